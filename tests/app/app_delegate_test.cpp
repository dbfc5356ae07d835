#include "app/app_delegate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QTemporaryDir>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/fakes/fake_platform.h"
#include "app/fakes/qt_test_main.h"
#include "app/process_runner.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing::error;
using testing::FakePlatform;
using testing::info;
using testing::LogEntry;
using testing::serviceError;

class AppDelegateTest : public ::testing::Test {
 protected:
  AppDelegateTest() {
    fakes.bundleInfo->bundle = fs::path(dir.path().toStdString()) / "ZEV.app";
    fs::create_directories(fakes.bundleInfo->bundle / "Contents/Helpers");
    delegate = std::make_unique<AppDelegate>(fakes.take(), standardError);
  }

  fs::path daemonPath() const { return fakes.bundleInfo->bundle / "Contents/Helpers/zevd"; }
  void installDaemon(fs::perms permissions = fs::perms(0755)) {
    std::ofstream(daemonPath()) << "#!/bin/sh\n";
    fs::permissions(daemonPath(), permissions);
  }

  QTemporaryDir dir;
  FakePlatform fakes;
  std::ostringstream standardError;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, ConstructionTouchesNoPort) {
  EXPECT_EQ(delegate->localBase(), QUrl(QStringLiteral("http://127.0.0.1:8085")));
  EXPECT_EQ(delegate->statusController(), nullptr);
  EXPECT_THAT(fakes.serviceManager->calls, IsEmpty());
  EXPECT_THAT(fakes.launcherLog->entries(), IsEmpty());
  EXPECT_THAT(fakes.activation->calls, IsEmpty());
  EXPECT_EQ(fakes.statusItemsMade, 0);
  EXPECT_EQ(standardError.str(), "");
}

TEST_F(AppDelegateTest, VerifyDaemonPresentAcceptsOnlyAnExecutableFile) {
  struct Case {
    const char* name;
    std::function<void()> arrange;
    bool present;
  };
  const Case cases[] = {
      {"executable file", [&] { installDaemon(); }, true},
      {"executable by its owner only", [&] { installDaemon(fs::perms(0700)); }, true},
      {"symlink to an executable",
       [&] {
         const fs::path real = dir.path().toStdString() + "/real-zevd";
         std::ofstream(real) << "#!/bin/sh\n";
         fs::permissions(real, fs::perms(0755));
         fs::create_symlink(real, daemonPath());
       },
       true},
      {"absent", [] {}, false},
      {"without execute permission", [&] { installDaemon(fs::perms(0644)); }, false},
      {"a directory", [&] { fs::create_directory(daemonPath()); }, false},
      {"dangling symlink", [&] { fs::create_symlink("/nonexistent/zevd", daemonPath()); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(daemonPath());
    fakes.launcherLog->clear();
    standardError.str("");
    c.arrange();

    delegate->verifyDaemonPresent();

    const std::string path = daemonPath().string();
    if (c.present) {
      EXPECT_THAT(fakes.launcherLog->entries(), ElementsAre(info("daemon present at " + path)));
      EXPECT_EQ(standardError.str(), "");
    } else {
      EXPECT_THAT(fakes.launcherLog->entries(), ElementsAre(error("missing daemon at " + path)));
      EXPECT_EQ(standardError.str(), "ZEV launcher: missing daemon at " + path + "\n");
    }
  }
}

TEST_F(AppDelegateTest, RegisterLoginItemLogsEachOutcome) {
  struct Case {
    const char* name;
    std::optional<ServiceError> result;
    std::vector<LogEntry> log;
    std::string standardError;
  };
  const Case cases[] = {
      {"first launch", std::nullopt, {info("LoginItem registered (status=enabled)")}, ""},
      {"later launches", serviceError(12, "already there"), {info("LoginItem already registered")},
       ""},
      {"failure",
       serviceError(5, "cannot write entry"),
       {error("LoginItem register failed: cannot write entry")},
       "ZEV launcher: SMAppService.mainApp.register() failed: "
       "Error Domain=Fake Code=5 \"cannot write entry\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fakes.launcherLog->clear();
    standardError.str("");
    fakes.serviceManager->mainApp.registerResult = c.result;

    delegate->registerLoginItem();

    EXPECT_EQ(fakes.launcherLog->entries(), c.log);
    EXPECT_EQ(standardError.str(), c.standardError);
  }
}

TEST_F(AppDelegateTest, RegisterAgentDropsThenRegistersTheSameService) {
  struct Case {
    const char* name;
    std::optional<ServiceError> unregisterResult;
    std::optional<ServiceError> registerResult;
    std::vector<LogEntry> log;
    std::string standardError;
  };
  const Case cases[] = {
      {"later launches",
       std::nullopt,
       std::nullopt,
       {info("Agent prior registration dropped"), info("Agent registered (status=enabled)")},
       ""},
      {"first launch",
       serviceError(1, "unit not loaded"),
       std::nullopt,
       {info("Agent unregister no-op: unit not loaded"), info("Agent registered (status=enabled)")},
       ""},
      {"registered meanwhile",
       std::nullopt,
       serviceError(12, "already enabled"),
       {info("Agent prior registration dropped"), info("Agent already registered (race?)")},
       ""},
      {"registration fails",
       serviceError(1, "no user manager"),
       serviceError(1, "no user manager"),
       {info("Agent unregister no-op: no user manager"),
        error("Agent register failed: no user manager")},
       "ZEV launcher: SMAppService.agent.register() failed: "
       "Error Domain=Fake Code=1 \"no user manager\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fakes.launcherLog->clear();
    fakes.serviceManager->calls.clear();
    standardError.str("");
    fakes.serviceManager->agent.unregisterResult = c.unregisterResult;
    fakes.serviceManager->agent.registerResult = c.registerResult;

    delegate->registerAgent();

    EXPECT_EQ(fakes.launcherLog->entries(), c.log);
    EXPECT_EQ(standardError.str(), c.standardError);
    // One service object: dropped, then registered.
    ASSERT_GE(fakes.serviceManager->calls.size(), 3u);
    EXPECT_THAT(std::vector(fakes.serviceManager->calls.begin(),
                            fakes.serviceManager->calls.begin() + 3),
                ElementsAre("agentService(com.zev.zevd.plist)",
                            "agent(com.zev.zevd.plist).unregister",
                            "agent(com.zev.zevd.plist).register"));
  }
}

TEST_F(AppDelegateTest, KickstartAgentLogsTheExitStatusAndCombinedOutput) {
  struct Case {
    const char* name;
    Command command;
    LogEntry log;
  };
  const Case cases[] = {
      {"restarted",
       {"/bin/sh", {"-c", "echo restarting; echo note >&2"}},
       info("kickstart exit=0 out=restarting\nnote\n")},
      {"agent not loaded",
       {"/bin/sh", {"-c", "echo 'Unit com.zev.zevd.service not loaded.' >&2; exit 5"}},
       info("kickstart exit=5 out=Unit com.zev.zevd.service not loaded.\n")},
      {"output not UTF-8", {"/bin/sh", {"-c", "printf '\\377\\376'"}}, info("kickstart exit=0 out=")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fakes.launcherLog->clear();
    fakes.serviceManager->kickstart = c.command;

    delegate->kickstartAgent();

    EXPECT_THAT(fakes.launcherLog->entries(), ElementsAre(c.log));
    EXPECT_EQ(standardError.str(), "");
  }
  EXPECT_THAT(fakes.serviceManager->calls, ::testing::Each("kickstartCommand(com.zev.zevd)"));
}

TEST_F(AppDelegateTest, KickstartAgentLogsASpawnFailure) {
  fakes.serviceManager->kickstart = {"/nonexistent/systemctl", {"--user", "restart"}};
  delegate->kickstartAgent();
  const std::vector<LogEntry> log = fakes.launcherLog->entries();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].level, LogEntry::Level::error);
  EXPECT_THAT(log[0].message, StartsWith("kickstart spawn failed: "));
  EXPECT_GT(log[0].message.size(), std::string("kickstart spawn failed: ").size());
}

TEST(AppDelegateRun, RaisesTheExitStatusInTheReliabilityDomain) {
  try {
    AppDelegate::run("/bin/sh", {"-c", "exit 3"});
    FAIL() << "no error raised";
  } catch (const ReliabilityError& error) {
    EXPECT_EQ(error.code(), 3);
    EXPECT_EQ(error.localizedDescription(), "/bin/sh exited 3");
  }
  EXPECT_NO_THROW(AppDelegate::run("/bin/sh", {"-c", "exit 0"}));
  EXPECT_THROW(AppDelegate::run("/nonexistent/ditto", {}), ProcessLaunchError);
}

TEST_F(AppDelegateTest, ReliabilityDirectoryHonoursANonEmptyStringSetting) {
  struct Case {
    const char* name;
    std::optional<std::optional<std::string>> value;  // outer: key present
    fs::path expected;
  };
  const fs::path cwd = fs::current_path();
  const Case cases[] = {
      {"key absent", std::nullopt, "/home/tester/.zevd/reliability"},
      {"empty string", std::optional<std::string>(""), "/home/tester/.zevd/reliability"},
      {"not a string", std::optional<std::string>(), "/home/tester/.zevd/reliability"},
      {"leading tilde", std::optional<std::string>("~/custom/rel"), "/home/tester/custom/rel"},
      {"tilde alone", std::optional<std::string>("~"), "/home/tester"},
      {"another user's home", std::optional<std::string>("~root/rel"), "/root/rel"},
      {"absolute", std::optional<std::string>("/var/lib/zev/rel"), "/var/lib/zev/rel"},
      {"tilde not leading", std::optional<std::string>("/srv/~/rel"), "/srv/~/rel"},
      {"relative", std::optional<std::string>("rel/dir"), cwd / "rel/dir"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fakes.bundleInfo->values.clear();
    if (c.value) fakes.bundleInfo->values["ZEVReliabilityDirectory"] = *c.value;
    EXPECT_EQ(delegate->reliabilityDirectory(), c.expected);
  }
}

TEST_F(AppDelegateTest, ReliabilityDirectoryIsReadAfreshAndNeverCreated) {
  fakes.bundleInfo->home = fs::path(dir.path().toStdString()) / "home";
  const fs::path first = delegate->reliabilityDirectory();
  EXPECT_EQ(first, fakes.bundleInfo->home / ".zevd/reliability");
  EXPECT_FALSE(fs::exists(fakes.bundleInfo->home));

  fakes.bundleInfo->values["ZEVReliabilityDirectory"] = "~/elsewhere";
  EXPECT_EQ(delegate->reliabilityDirectory(), fakes.bundleInfo->home / "elsewhere");
}

// The whole sequence with every supervision step failing: each failure is
// logged, the steps still run in order, and the status item is installed.
TEST_F(AppDelegateTest, LaunchSequenceRunsEveryStepInOrderWhenAllFail) {
  fakes.serviceManager->mainApp.registerResult = serviceError(5, "no autostart directory");
  fakes.serviceManager->agent.unregisterResult = serviceError(1, "no user manager");
  fakes.serviceManager->agent.registerResult = serviceError(1, "no user manager");
  fakes.serviceManager->kickstart = {"/nonexistent/systemctl", {}};

  delegate->applicationDidFinishLaunching();

  EXPECT_THAT(fakes.serviceManager->calls,
              ElementsAre("mainAppService", "mainApp.register", "agentService(com.zev.zevd.plist)",
                          "agent(com.zev.zevd.plist).unregister",
                          "agent(com.zev.zevd.plist).register", "kickstartCommand(com.zev.zevd)"));
  const std::vector<std::string> log = fakes.launcherLog->messages();
  ASSERT_EQ(log.size(), 5u);
  EXPECT_EQ(log[0], "missing daemon at " + daemonPath().string());
  EXPECT_EQ(log[1], "LoginItem register failed: no autostart directory");
  EXPECT_EQ(log[2], "Agent unregister no-op: no user manager");
  EXPECT_EQ(log[3], "Agent register failed: no user manager");
  EXPECT_THAT(log[4], StartsWith("kickstart spawn failed: "));
  EXPECT_EQ(standardError.str(),
            "ZEV launcher: missing daemon at " + daemonPath().string() + "\n"
            "ZEV launcher: SMAppService.mainApp.register() failed: "
            "Error Domain=Fake Code=5 \"no autostart directory\"\n"
            "ZEV launcher: SMAppService.agent.register() failed: "
            "Error Domain=Fake Code=1 \"no user manager\"\n");

  EXPECT_EQ(fakes.statusItemsMade, 1);
  EXPECT_NE(delegate->statusController(), nullptr);
}

TEST_F(AppDelegateTest, LaunchSequenceOnALaterLaunch) {
  installDaemon();
  fakes.serviceManager->mainApp.registerResult = serviceError(12, "already registered");

  delegate->applicationDidFinishLaunching();

  EXPECT_THAT(fakes.launcherLog->entries(),
              ElementsAre(info("daemon present at " + daemonPath().string()),
                          info("LoginItem already registered"),
                          info("Agent prior registration dropped"),
                          info("Agent registered (status=enabled)"),
                          info("kickstart exit=0 out=")));
  EXPECT_EQ(standardError.str(), "");
  EXPECT_NE(delegate->statusController(), nullptr);
}

TEST_F(AppDelegateTest, LaunchSequenceCarriesOnPastAStepThatThrows) {
  installDaemon();
  fakes.serviceManager->mainApp.registerThrows = "autostart adapter broke";

  delegate->applicationDidFinishLaunching();

  const std::vector<std::string> log = fakes.launcherLog->messages();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[1], "registerLoginItem failed: autostart adapter broke");
  EXPECT_EQ(fakes.serviceManager->calls.back(), "kickstartCommand(com.zev.zevd)");
  EXPECT_NE(delegate->statusController(), nullptr);
}

}  // namespace
}  // namespace zev
