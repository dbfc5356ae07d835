// Starts the real ZEVLauncher from the assembled bundle, with a scratch home,
// a fake systemctl and no display, and watches it supervise the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/fakes/fake_systemctl.h"
#include "app/fakes/qt_test_main.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

#ifdef ZEV_BUNDLE
const fs::path bundle = ZEV_BUNDLE;
#else
const fs::path bundle;
#endif

TEST(Launcher, RegistersAndRestartsTheDaemonFromItsBundle_ThenKeepsRunning) {
  if (bundle.empty()) GTEST_SKIP() << "built without the bundle";
  const fs::path executable = bundle / "Contents/Linux/ZEVLauncher";

  QTemporaryDir home;
  testing::FakeSystemctl systemctl;

  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("HOME"), home.path());
  environment.remove(QStringLiteral("XDG_CONFIG_HOME"));
  environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
  QProcess launcher;
  launcher.setProcessEnvironment(environment);
  launcher.setProcessChannelMode(QProcess::MergedChannels);
  launcher.start(QString::fromStdString(executable.string()), {});
  ASSERT_TRUE(launcher.waitForStarted()) << executable;

  const auto restarted = [&] {
    const std::vector<std::string> calls = systemctl.calls();
    return !calls.empty() && calls.back() == "--user restart com.zev.zevd.service";
  };
  ASSERT_TRUE(QTest::qWaitFor(restarted, 60000)) << launcher.readAll().toStdString();
  // The agent's unregistering comes first; the order of the steps is
  // app_delegate_test's, what registering asks service_manager_linux_test's.
  EXPECT_EQ(systemctl.calls().front(), "--user disable com.zev.zevd.service");
  // The user's unit runs this bundle's daemon (the autostart entry's text is
  // service_manager_linux_test's).
  std::stringstream unitText;
  unitText << std::ifstream(fs::path(home.path().toStdString()) /
                            ".config/systemd/user/com.zev.zevd.service")
                  .rdbuf();
  EXPECT_THAT(unitText.str(),
              HasSubstr("ExecStart=\"" + (bundle / "Contents/Helpers/zevd").string() + "\"\n"));

  // Nothing ends the launcher once it is up, not even a missing tray.
  QTest::qWait(500);
  EXPECT_EQ(launcher.state(), QProcess::Running) << launcher.readAll().toStdString();
  launcher.terminate();
  launcher.waitForFinished(10000);
}

}  // namespace
}  // namespace zev
