#include "platform/linux/service_manager_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

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
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string readFile(const fs::path& file) {
  std::ifstream in(file);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

class LinuxServiceManagerTest : public ::testing::Test {
 protected:
  LinuxServiceManagerTest() {
    fs::create_directories(unitFile.parent_path());
    std::ofstream(unitFile) << "[Service]\nExecStart=/bin/true\n";
  }

  LinuxServiceManager manager(std::chrono::milliseconds timeout = std::chrono::seconds(25)) {
    return LinuxServiceManager(bundle, executable, configHome, timeout);
  }

  QTemporaryDir dir;
  const fs::path root = dir.path().toStdString();
  const fs::path bundle = root / "ZEV.app";
  const fs::path executable = bundle / "Contents/Linux/ZEVLauncher";
  const fs::path configHome = root / "config";
  const fs::path entry = configHome / "autostart/com.zev.launcher.desktop";
  const fs::path unitFile = bundle / "Contents/Library/systemd/user/com.zev.zevd.service";
};

TEST_F(LinuxServiceManagerTest, LoginItemWritesTheAutostartEntry_ThenReportsAlreadyRegistered) {
  auto service = manager().mainAppService();
  EXPECT_EQ(service->statusDescription(), "notRegistered");

  EXPECT_EQ(service->registerService(), std::nullopt);
  EXPECT_EQ(readFile(entry), "[Desktop Entry]\n"
                             "Type=Application\n"
                             "Name=ZEV Launcher\n"
                             "Comment=Keeps the zevd camera recorder running and shows its health\n"
                             "Exec=\"" + executable.string() + "\"\n"
                             "TryExec=" + executable.string() + "\n"
                             "Terminal=false\n"
                             "X-GNOME-Autostart-enabled=true\n");
  EXPECT_EQ(service->statusDescription(), "enabled");

  const std::optional<ServiceError> again = service->registerService();
  ASSERT_TRUE(again);
  EXPECT_EQ(again->code, ServiceError::alreadyRegistered);
}

TEST_F(LinuxServiceManagerTest, LoginItemReplacesAnEntryForAnotherLocation) {
  fs::create_directories(entry.parent_path());
  std::ofstream(entry) << autostartEntry("/old/place/ZEV.app/Contents/Linux/ZEVLauncher");
  auto service = manager().mainAppService();
  EXPECT_EQ(service->statusDescription(), "enabled (entry differs)");

  EXPECT_EQ(service->registerService(), std::nullopt);
  EXPECT_EQ(readFile(entry), autostartEntry(executable));
}

TEST_F(LinuxServiceManagerTest, LoginItemUnregisterRemovesTheEntry_AndFailsWhenThereIsNone) {
  auto service = manager().mainAppService();
  ASSERT_EQ(service->registerService(), std::nullopt);
  EXPECT_EQ(service->unregisterService(), std::nullopt);
  EXPECT_FALSE(fs::exists(entry));

  const std::optional<ServiceError> error = service->unregisterService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_THAT(error->localizedDescription, HasSubstr(entry.string()));
}

TEST_F(LinuxServiceManagerTest, LoginItemRegisterFailsWhenTheDirectoryCannotBeMade) {
  std::ofstream(configHome) << "a file where the directory should be";
  const std::optional<ServiceError> error = manager().mainAppService()->registerService();
  ASSERT_TRUE(error);
  EXPECT_NE(error->code, ServiceError::alreadyRegistered);
  EXPECT_THAT(error->localizedDescription, HasSubstr("cannot create"));
  EXPECT_THAT(error->fullDescription, HasSubstr("Error Domain=XDGAutostart"));
}

TEST(AutostartEntry, QuotesTheExecutableSoNoCharacterIsReadAsSyntax) {
  struct Case {
    const char* executable;
    const char* execLine;
    const char* tryExecLine;
  };
  const Case cases[] = {
      {"/opt/ZEV.app/Contents/Linux/ZEVLauncher", R"(Exec="/opt/ZEV.app/Contents/Linux/ZEVLauncher")",
       "TryExec=/opt/ZEV.app/Contents/Linux/ZEVLauncher"},
      {"/home/u/My Apps/ZEV", R"(Exec="/home/u/My Apps/ZEV")", "TryExec=/home/u/My Apps/ZEV"},
      {"/x/100%/ZEV", R"(Exec="/x/100%%/ZEV")", "TryExec=/x/100%/ZEV"},
      {R"(/x/$HOME/"q"/`id`)", R"(Exec="/x/\\$HOME/\\"q\\"/\\`id\\`")", R"(TryExec=/x/$HOME/"q"/`id`)"},
      {R"(/x/a\b)", R"(Exec="/x/a\\\\b")", R"(TryExec=/x/a\\b)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.executable);
    const std::string text = autostartEntry(c.executable);
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.execLine + "\n"));
    EXPECT_THAT(text, HasSubstr(std::string("\n") + c.tryExecLine + "\n"));
  }
}

TEST(XdgConfigHome, UsesTheVariableOnlyWhenItIsAnAbsolutePath) {
  struct Case {
    std::optional<std::string> value;
    const char* expected;
  };
  const Case cases[] = {
      {std::nullopt, "/home/tester/.config"},
      {"", "/home/tester/.config"},
      {"relative/config", "/home/tester/.config"},
      {"/srv/config", "/srv/config"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.value_or("(unset)"));
    testing::ScopedEnv env("XDG_CONFIG_HOME", c.value);
    EXPECT_EQ(xdgConfigHome("/home/tester"), fs::path(c.expected));
  }
}

TEST(UnitNameForPlist, SwapsThePlistSuffixForService) {
  EXPECT_EQ(unitNameForPlist("com.zev.zevd.plist"), "com.zev.zevd.service");
  EXPECT_EQ(unitNameForPlist("com.zev.zevd"), "com.zev.zevd.service");
}

TEST_F(LinuxServiceManagerTest, AgentRegisterLinksAndEnablesTheBundledUnit) {
  testing::FakeSystemctl systemctl;
  systemctl.answer("is-enabled", 1, "Failed to get unit file state for com.zev.zevd.service: "
                                    "No such file or directory\n");
  auto agent = manager().agentService("com.zev.zevd.plist");

  EXPECT_EQ(agent->registerService(), std::nullopt);
  EXPECT_THAT(systemctl.calls(), ElementsAre("--user is-enabled com.zev.zevd.service",
                                             "--user link " + unitFile.string(),
                                             "--user enable com.zev.zevd.service"));
}

TEST_F(LinuxServiceManagerTest, AgentRegisterFailures) {
  struct Case {
    const char* name;
    const char* failing;  // subcommand told to fail
    int exitStatus;
    const char* output;
    int code;
    std::vector<std::string> calls;
  };
  const std::string isEnabled = "--user is-enabled com.zev.zevd.service";
  const std::string link = "--user link " + unitFile.string();
  const std::string enable = "--user enable com.zev.zevd.service";
  const Case cases[] = {
      {"enabled already", "is-enabled", 0, "enabled\n", ServiceError::alreadyRegistered,
       {isEnabled}},
      {"systemctl says already", "enable", 1, "Unit com.zev.zevd.service is already enabled.\n",
       ServiceError::alreadyRegistered, {isEnabled, link, enable}},
      {"no user manager", "link", 1, "Failed to connect to bus: No medium found\n", 1,
       {isEnabled, link}},
      {"enable refused", "enable", 4, "Failed to enable unit: Access denied\n", 4,
       {isEnabled, link, enable}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::FakeSystemctl systemctl;
    systemctl.answer(c.failing, c.exitStatus, c.output);
    const std::optional<ServiceError> error = manager().agentService("com.zev.zevd.plist")
                                                  ->registerService();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, c.code);
    EXPECT_EQ(systemctl.calls(), c.calls);
  }
}

TEST_F(LinuxServiceManagerTest, AgentRegisterFailureSaysWhichCommandFailedAndWhy) {
  testing::FakeSystemctl systemctl;
  systemctl.answer("link", 1, "Failed to connect to bus: No medium found\n");
  const std::optional<ServiceError> error =
      manager().agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription, "systemctl --user link " + unitFile.string() +
                                             " exited 1: Failed to connect to bus: No medium found");
  EXPECT_EQ(error->fullDescription,
            "Error Domain=systemd Code=1 \"" + error->localizedDescription + "\"");
}

TEST_F(LinuxServiceManagerTest, AgentRegisterWithoutTheUnitFileRunsNothing) {
  testing::FakeSystemctl systemctl;
  fs::remove(unitFile);
  const std::optional<ServiceError> error =
      manager().agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_THAT(error->localizedDescription, HasSubstr(unitFile.string()));
  EXPECT_THAT(systemctl.calls(), IsEmpty());
}

TEST_F(LinuxServiceManagerTest, AgentRegisterGivesUpOnASystemctlThatHangs) {
  testing::FakeSystemctl systemctl;
  systemctl.delay("link", 30);
  const std::optional<ServiceError> error =
      manager(std::chrono::milliseconds(300)).agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, serviceCommandFailed);
  EXPECT_THAT(error->localizedDescription, HasSubstr("did not exit within 300 ms"));
}

TEST_F(LinuxServiceManagerTest, AgentUnregisterDisablesTheUnit) {
  testing::FakeSystemctl systemctl;
  auto agent = manager().agentService("com.zev.zevd.plist");
  EXPECT_EQ(agent->unregisterService(), std::nullopt);

  systemctl.answer("disable", 1,
                   "Failed to disable unit: Unit file com.zev.zevd.service does not exist.\n");
  const std::optional<ServiceError> error = agent->unregisterService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, 1);
  EXPECT_THAT(error->localizedDescription, HasSubstr("does not exist"));
  EXPECT_THAT(systemctl.calls(), ElementsAre("--user disable com.zev.zevd.service",
                                             "--user disable com.zev.zevd.service"));
}

TEST_F(LinuxServiceManagerTest, AgentStatusIsTheUnitFileState) {
  struct Case {
    int exitStatus;
    const char* output;
    const char* status;
  };
  const Case cases[] = {
      {0, "enabled\n", "enabled"},
      {0, "linked\n", "linked"},
      {1, "disabled\n", "disabled"},
      {1, "Failed to connect to bus: No medium found\n",
       "unknown (Failed to connect to bus: No medium found)"},
      {1, "", "unknown"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.output);
    testing::FakeSystemctl systemctl;
    systemctl.answer("is-enabled", c.exitStatus, c.output);
    EXPECT_EQ(manager().agentService("com.zev.zevd.plist")->statusDescription(), c.status);
  }
}

TEST_F(LinuxServiceManagerTest, WithoutSystemctlOnPathRegistrationFailsAndKickstartCannotSpawn) {
  QTemporaryDir emptyBin;
  testing::ScopedEnv path("PATH", emptyBin.path().toStdString());
  const std::optional<ServiceError> error =
      manager().agentService("com.zev.zevd.plist")->registerService();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, serviceCommandFailed);
  EXPECT_EQ(manager().kickstartCommand("com.zev.zevd").path, "systemctl");
}

TEST_F(LinuxServiceManagerTest, KickstartRestartsTheUnitThroughSystemctlOnPath) {
  testing::FakeSystemctl systemctl;
  const Command command = manager().kickstartCommand("com.zev.zevd");
  EXPECT_EQ(command.path, systemctl.path().string());
  EXPECT_THAT(command.arguments, ElementsAre("--user", "restart", "com.zev.zevd.service"));
}

}  // namespace
}  // namespace zev
