#include "platform/linux/service_manager_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/fakes/fake_systemctl.h"
#include "app/fakes/qt_test_main.h"
#include "app/fakes/scoped_env.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class LinuxServiceManagerTest : public ::testing::Test {
 protected:
  LinuxServiceManagerTest() {
    fs::create_directories(unitFile.parent_path());
    std::ofstream(unitFile) << "[Service]\nExecStart=/bin/true\n";
  }

  LinuxServiceManager manager(std::chrono::milliseconds timeout = std::chrono::seconds(25)) {
    return LinuxServiceManager(bundle, executable, root / "config", timeout);
  }
  std::string entryText() const {
    std::ifstream in(root / "config/autostart/com.zev.launcher.desktop");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  QTemporaryDir dir;
  const fs::path root = dir.path().toStdString();
  const fs::path bundle = root / "ZEV.app";
  const fs::path executable = bundle / "Contents/Linux/ZEVLauncher";
  const fs::path unitFile = bundle / "Contents/Library/systemd/user/com.zev.zevd.service";
};

TEST_F(LinuxServiceManagerTest, LoginItemIsTheAutostartEntry) {
  auto service = manager().mainAppService();
  EXPECT_EQ(service->statusDescription(), "notRegistered");
  ASSERT_EQ(service->registerService(), std::nullopt);
  EXPECT_EQ(entryText(),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Name=ZEV Launcher\n"
            "Comment=Keeps the zevd camera recorder running and shows its health\n"
            "Exec=\"" +
                executable.string() +
                "\"\n"
                "TryExec=" +
                executable.string() +
                "\n"
                "Terminal=false\n"
                "X-GNOME-Autostart-enabled=true\n");
  EXPECT_EQ(service->statusDescription(), "enabled");
  EXPECT_EQ(service->registerService().value().code, ServiceError::alreadyRegistered);

  // An entry left by a bundle elsewhere is replaced, not "already registered".
  const auto moved =
      LinuxServiceManager(bundle, "/elsewhere/ZEVLauncher", root / "config").mainAppService();
  EXPECT_EQ(moved->statusDescription(), "enabled (entry differs)");
  EXPECT_EQ(moved->registerService(), std::nullopt);
  EXPECT_THAT(entryText(), HasSubstr("Exec=\"/elsewhere/ZEVLauncher\"\n"));

  EXPECT_EQ(service->unregisterService(), std::nullopt);
  EXPECT_EQ(service->unregisterService().value().code, ENOENT);
}

TEST(AutostartEntry, QuotesTheExecutableSoNoCharacterIsReadAsSyntax) {
  struct Case {
    const char* executable;
    const char* execLine;
    const char* tryExecLine;
  };
  const Case cases[] = {
      {"/home/u/My Apps/ZEV", R"(Exec="/home/u/My Apps/ZEV")", "TryExec=/home/u/My Apps/ZEV"},
      {"/x/100%/ZEV", R"(Exec="/x/100%%/ZEV")", "TryExec=/x/100%/ZEV"},
      {R"(/x/$HOME/"q"/`id`)", R"(Exec="/x/\\$HOME/\\"q\\"/\\`id\\`")",
       R"(TryExec=/x/$HOME/"q"/`id`)"},
      {R"(/x/a\b)", R"(Exec="/x/a\\\\b")", R"(TryExec=/x/a\\b)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.executable);
    const std::string text = autostartEntry(c.executable);
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.execLine + "\n"));
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.tryExecLine + "\n"));
  }
}

// systemctl's answers are those systemd 252 gives; the fake plays a user
// manager's unit files when a case tells it nothing.
TEST_F(LinuxServiceManagerTest, AgentRegisterChecksLinksAndEnables_AndMapsAlreadyToCode12) {
  const std::string linked = "~/.config/systemd/user/com.zev.zevd.service";
  struct Case {
    const char* name;
    const char* subcommand;  // told to answer as below; nullptr: the fake's own answers
    int exitStatus;
    std::string output;
    std::optional<int> code;  // nothing: registered
    int calls;                // how far it got: is-enabled, link, enable
    std::string status;       // statusDescription afterwards ("": not asked)
  };
  const Case cases[] = {
      {"first registration", nullptr, 0, "", std::nullopt, 3, "enabled"},
      {"enabled already", "is-enabled", 0, "enabled\n", ServiceError::alreadyRegistered, 1,
       "enabled"},
      {"linked from another bundle", "link", 1,
       "Failed to link unit, file \"" + linked +
           "\" already exists and is a symlink to \"/old/ZEV.app/com.zev.zevd.service\".\n",
       ServiceError::alreadyRegistered, 2,
       "unknown (Failed to get unit file state for com.zev.zevd.service: No such file or directory)"},
      {"masked", "enable", 1, "Failed to enable unit: Unit file " + linked + " is masked.\n", 1, 3,
       "linked"},
  };
  const std::vector<std::string> expectedCalls = {"--user is-enabled com.zev.zevd.service",
                                                  "--user link " + unitFile.string(),
                                                  "--user enable com.zev.zevd.service"};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::FakeSystemctl systemctl;
    if (c.subcommand) systemctl.answer(c.subcommand, c.exitStatus, c.output);
    const auto service = manager().agentService("com.zev.zevd.plist");
    const auto error = service->registerService();
    EXPECT_EQ(error.has_value(), c.code.has_value());
    if (error && c.code) {
      EXPECT_EQ(error->code, *c.code);
    }
    EXPECT_EQ(systemctl.calls(),
              std::vector(expectedCalls.begin(), expectedCalls.begin() + c.calls));
    if (!c.status.empty()) {
      EXPECT_EQ(service->statusDescription(), c.status);
    }
  }
}

TEST_F(LinuxServiceManagerTest, AgentRegisterFailureSaysWhichCommandFailedAndWhy) {
  testing::FakeSystemctl systemctl;
  systemctl.answer("link", 1, "Failed to link unit: Read-only file system\n");
  const auto error = manager().agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription, "systemctl --user link " + unitFile.string() +
                                             " exited 1: Failed to link unit: Read-only file system");
  EXPECT_EQ(error->fullDescription,
            "Error Domain=systemd Code=1 \"" + error->localizedDescription + "\"");
}

TEST_F(LinuxServiceManagerTest, AgentRegisterFailsWithoutSystemctl_OrWhenItHangs) {
  {
    QTemporaryDir emptyBin;
    testing::ScopedEnv path("PATH", emptyBin.path().toStdString());
    EXPECT_EQ(manager().agentService("com.zev.zevd.plist")->registerService().value().code,
              serviceCommandFailed);
    EXPECT_EQ(manager().kickstartCommand("com.zev.zevd").path, "systemctl");
  }
  testing::FakeSystemctl systemctl;
  systemctl.delay("link", 30);
  const auto error =
      manager(std::chrono::milliseconds(300)).agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, serviceCommandFailed);
  EXPECT_THAT(error->localizedDescription, HasSubstr("did not exit within 300 ms"));
}

}  // namespace
}  // namespace zev
