#include "platform/linux/service_manager_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "app/fakes/fake_systemctl.h"
#include "app/fakes/qt_test_main.h"
#include "app/fakes/scoped_env.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class LinuxServiceManagerTest : public ::testing::Test {
 protected:
  LinuxServiceManagerTest() { writeUnitTemplate(bundle); }
  static void writeUnitTemplate(const fs::path& bundlePath) {
    const fs::path unit = bundlePath / "Contents/Library/systemd/user/com.zev.zevd.service";
    fs::create_directories(unit.parent_path());
    std::ofstream(unit) << "[Service]\nExecStart=/bin/true\n";
  }

  LinuxServiceManager manager(const fs::path& at,
                              std::chrono::milliseconds timeout = std::chrono::seconds(25)) {
    return LinuxServiceManager(at, at / "Contents/Linux/ZEVLauncher", root / "config", timeout);
  }
  std::unique_ptr<AppService> agent(std::chrono::milliseconds timeout = std::chrono::seconds(25)) {
    return manager(bundle, timeout).agentService("com.zev.zevd.plist");
  }
  std::string entryText() const { return text(entryFile); }
  static std::string text(const fs::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  QTemporaryDir dir;
  const fs::path root = dir.path().toStdString();
  const fs::path bundle = root / "ZEV.app";
  const fs::path executable = bundle / "Contents/Linux/ZEVLauncher";
  const fs::path entryFile = root / "config/autostart/com.zev.launcher.desktop";
};

TEST_F(LinuxServiceManagerTest, LoginItemIsTheAutostartEntry) {
  auto service = manager(bundle).mainAppService();
  EXPECT_EQ(service->statusDescription(), "notRegistered");
  ASSERT_EQ(service->registerService(), std::nullopt);
  EXPECT_EQ(entryText(), autostartEntry(executable.string()));
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
  EXPECT_EQ(autostartEntry("/home/u/My Apps/ZEV"),
            "[Desktop Entry]\nType=Application\nName=ZEV Launcher\n"
            "Comment=Keeps the zevd camera recorder running and shows its health\n"
            "Exec=\"/home/u/My Apps/ZEV\"\nTryExec=/home/u/My Apps/ZEV\nTerminal=false\n"
            "X-GNOME-Autostart-enabled=true\n");
  const struct {
    const char* executable;
    const char* execLine;
    const char* tryExecLine;
  } cases[] = {
      {"/x/100%/ZEV", R"(Exec="/x/100%%/ZEV")", "TryExec=/x/100%/ZEV"},
      {R"(/x/$HOME/"q"/`id`)", R"(Exec="/x/\\$HOME/\\"q\\"/\\`id\\`")",
       R"(TryExec=/x/$HOME/"q"/`id`)"},
      {R"(/x/a\b)", R"(Exec="/x/a\\\\b")", R"(TryExec=/x/a\\b)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.executable);
    const std::string text = autostartEntry(c.executable);
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.execLine + "\n"));
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.tryExecLine + "\n"));
  }
}

// The user's unit names the zevd of the bundle registering it; "already
// registered" is is-enabled's "enabled" for that very unit, never a word in
// some other answer.
TEST_F(LinuxServiceManagerTest, AgentUnitRunsThisBundlesDaemon_AlreadyOnlyWhenEnabledAsIs) {
  const fs::path installed = root / "config/systemd/user/com.zev.zevd.service";
  constexpr int kAlready = ServiceError::alreadyRegistered;
  const struct {
    const char* name;
    fs::path bundle;
    const char* subcommand;  // told to answer as below
    int exitStatus;
    const char* output;
    std::optional<int> code;  // nothing: registered
    int calls;  // how far it got: is-enabled, daemon-reload (for a changed unit), enable
  } cases[] = {
      {"first registration", bundle, "is-enabled", 1, "disabled\n", {}, 3},
      {"enabled, same bundle", bundle, "is-enabled", 0, "enabled\n", kAlready, 1},
      {"enabled, bundle moved", root / "moved/ZEV.app", "is-enabled", 0, "enabled\n", {}, 3},
      {"'already' in a failure", bundle, "enable", 1,
       "Failed to enable unit: File already exists and is masked.\n", 1, 3},
      {"no user manager", root / "third/ZEV.app", "daemon-reload", 1, "Failed to connect to bus: No medium found\n",
       1, 2},
  };
  const std::vector<std::string> expectedCalls = {"--user is-enabled com.zev.zevd.service",
                                                  "--user daemon-reload",
                                                  "--user enable com.zev.zevd.service"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeUnitTemplate(c.bundle);
    testing::FakeSystemctl systemctl;
    systemctl.answer(c.subcommand, c.exitStatus, c.output);
    const auto error = manager(c.bundle).agentService("com.zev.zevd.plist")->registerService();
    EXPECT_EQ(error ? std::optional(error->code) : std::nullopt, c.code);
    EXPECT_EQ(systemctl.calls(),
              std::vector(expectedCalls.begin(), expectedCalls.begin() + c.calls));
    EXPECT_EQ(text(installed),
              "[Service]\nExecStart=\"" + (c.bundle / "Contents/Helpers/zevd").string() + "\"\n");
  }
  // A quote, a percent sign or a dollar in the path stays one literal word.
  EXPECT_EQ(unitForDaemon("[Unit]\nA=b\n[Service]\nExecStart=/old\nExecStart=/older\n",
                          "/a \"b\"/100%/$HOME/zevd"),
            "[Unit]\nA=b\n[Service]\nExecStart=\"/a \\\"b\\\"/100%%/$$HOME/zevd\"\n");
}

TEST_F(LinuxServiceManagerTest, AutostartSwitchedOffByTheUserStaysOff) {
  const struct {
    const char* name;
    const char* entry;
    bool left;
  } cases[] = {
      {"Hidden", "[Desktop Entry]\nExec=x\nHidden=true\n", true},
      {"GNOME switch", "[Desktop Entry]\nX-GNOME-Autostart-enabled = false\r\n", true},
      {"switch in another group", "[Desktop Entry]\nExec=x\n[Desktop Action a]\nHidden=true\n",
       false},
      {"switched on", "[Desktop Entry]\nHidden=false\nX-GNOME-Autostart-enabled=true\n", false},
  };
  fs::create_directories(entryFile.parent_path());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::ofstream(entryFile) << c.entry;
    const auto error = manager(bundle).mainAppService()->registerService();
    EXPECT_EQ(error.has_value(), c.left);
    if (error) EXPECT_EQ(error->code, ServiceError::switchedOffByUser);
    EXPECT_EQ(entryText() == c.entry, c.left);
  }
}

TEST_F(LinuxServiceManagerTest, AgentFailuresSayWhichCommandFailedAndWhy) {
  testing::FakeSystemctl systemctl;
  // is-enabled's complaint about a unit it does not know is no state.
  EXPECT_EQ(agent()->statusDescription(), "unknown (Failed to get unit file state for "
                                          "com.zev.zevd.service: No such file or directory)");
  systemctl.answer("daemon-reload", 1, "Failed to reload daemon: Access denied\n");
  EXPECT_EQ(agent()->registerService().value().fullDescription,
            "Error Domain=systemd Code=1 \"systemctl --user daemon-reload exited 1: Failed to "
            "reload daemon: Access denied\"");
  // The unit is in place now; registering again goes straight to a hanging enable.
  systemctl.delay("enable", 30);
  const auto error = agent(std::chrono::milliseconds(300))->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, serviceCommandFailed);
  EXPECT_THAT(error->localizedDescription, HasSubstr("did not exit within 300 ms"));
  QTemporaryDir emptyBin;
  testing::ScopedEnv path("PATH", emptyBin.path().toStdString());
  EXPECT_EQ(agent()->registerService().value().code, serviceCommandFailed);
}

}  // namespace
}  // namespace zev
