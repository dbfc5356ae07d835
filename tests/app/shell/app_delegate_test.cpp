#include "app/shell/app_delegate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_status_item.h"
#include "app/fakes/qt_test_main.h"
#include "app/logs/log_window_controller.h"
#include "app/status/popover_view.h"
#include "app/status/status_item_controller.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::error;
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
  void resetRecords() {
    fakes.launcherLog->clear();
    fakes.serviceManager->calls.clear();
    standardError.str("");
  }

  QTemporaryDir dir;
  testing::FakePlatform fakes;
  std::ostringstream standardError;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, VerifyDaemonPresentAcceptsOnlyAnExecutableFile) {
  const auto install = [this](fs::perms permissions) {
    std::ofstream(daemonPath()) << "#!/bin/sh\n";
    fs::permissions(daemonPath(), permissions);
  };
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"executable file", [&] { install(fs::perms(0755)); }},
      {"absent", [] {}},
      {"without execute permission", [&] { install(fs::perms(0644)); }},
      {"a directory", [&] { fs::create_directory(daemonPath()); }},
  };
  const std::string path = daemonPath().string();
  for (const auto& [name, arrange] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(daemonPath());
    resetRecords();
    arrange();
    delegate->verifyDaemonPresent();
    const bool present = name == cases[0].first;
    EXPECT_THAT(fakes.launcherLog->entries(),
                ElementsAre(present ? info("daemon present at " + path)
                                    : error("missing daemon at " + path)));
    EXPECT_EQ(standardError.str(), present ? "" : "ZEV launcher: missing daemon at " + path + "\n");
  }
}

// Both registrations report alike: registered, already registered (code 12,
// normal after the first launch), switched off by the user, or failed, which
// standard error hears of too.
TEST_F(AppDelegateTest, RegistrationsLogEachOutcome) {
  const auto login = &AppDelegate::registerLoginItem;
  const auto agent = &AppDelegate::registerAgent;
  using Step = void (AppDelegate::*)();
  // The step; the result of registering, and of the agent's unregistering; the log.
  const std::tuple<Step, std::optional<ServiceError>, std::vector<LogEntry>> cases[] = {
      {login, std::nullopt, {info("LoginItem registered (status=enabled)")}},
      {login, serviceError(12, "already there"), {info("LoginItem already registered")}},
      {login, serviceError(ServiceError::switchedOffByUser, "off"), {info("off")}},
      {login, serviceError(5, "no entry"), {error("LoginItem register failed: no entry")}},
      {agent,
       std::nullopt,
       {info("Agent prior registration dropped"), info("Agent registered (status=enabled)")}},
      {agent,
       serviceError(1, "no manager"),
       {info("Agent unregister no-op: no manager"), error("Agent register failed: no manager")}},
  };
  for (const auto& [step, result, log] : cases) {
    SCOPED_TRACE(log.back().message);
    resetRecords();
    fakes.serviceManager->mainApp.registerResult = result;
    fakes.serviceManager->agent.unregisterResult = result;
    fakes.serviceManager->agent.registerResult = result;
    (delegate.get()->*step)();
    EXPECT_EQ(fakes.launcherLog->entries(), log);
    if (log.back().level == LogEntry::Level::error) {
      EXPECT_THAT(standardError.str(), ::testing::StartsWith("ZEV launcher: "));
      EXPECT_THAT(standardError.str(), ::testing::EndsWith(" " + result->fullDescription + "\n"));
    } else {
      EXPECT_EQ(standardError.str(), "");
    }
  }
}

// The launch waits for the kickstart command; the popover's restart runs the
// same command beside the event loop. Both log its outcome alike.
TEST_F(AppDelegateTest, KickstartAndRestartLogTheCommandsOutcome) {
  // An error's message goes on with the system's own wording.
  const std::pair<Command, LogEntry> cases[] = {
      {{"/bin/sh", {"-c", "echo out; echo err >&2; exit 5"}},
       info("kickstart exit=5 out=out\nerr\n")},
      {{"/bin/sh", {"-c", "printf '\\377\\376'"}}, info("kickstart exit=0 out=")},
      {{"/nonexistent/systemctl", {}}, error("kickstart spawn failed: ")},
  };
  for (const auto& [command, expected] : cases) {
    fakes.serviceManager->kickstart = command;
    for (bool restart : {false, true}) {
      SCOPED_TRACE(expected.message + (restart ? " (restart)" : " (launch)"));
      resetRecords();
      if (restart) {
        delegate->restartAgent();
        ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.launcherLog->entries().empty(); }, 5000));
        QTest::qWait(50);  // and nothing more
      } else {
        delegate->kickstartAgent();
      }
      ASSERT_EQ(fakes.launcherLog->entries().size(), 1u);
      LogEntry shown = fakes.launcherLog->entries()[0];
      if (shown.level == LogEntry::Level::error) shown.message.resize(expected.message.size());
      EXPECT_EQ(shown, expected);
      EXPECT_THAT(fakes.serviceManager->calls, ElementsAre("kickstartCommand(com.zev.zevd)"));
    }
  }
}

TEST_F(AppDelegateTest, ReliabilityDirectoryHonoursOnlyANonEmptyString) {
  // Outer optional: whether the key is there; inner: whether it is a string.
  const std::pair<std::optional<std::optional<std::string>>, fs::path> cases[] = {
      {std::nullopt, "/home/tester/.zevd/reliability"},
      {std::optional<std::string>(""), "/home/tester/.zevd/reliability"},
      {std::optional<std::string>(), "/home/tester/.zevd/reliability"},
      {std::optional<std::string>("~/custom/rel"), "/home/tester/custom/rel"},
      {std::optional<std::string>("~root/rel"), "/root/rel"},
      {std::optional<std::string>("/var/lib/zev/~/rel"), "/var/lib/zev/~/rel"},
      {std::optional<std::string>("rel/dir"), fs::current_path() / "rel/dir"},
  };
  for (const auto& [value, expected] : cases) {
    SCOPED_TRACE(expected);
    fakes.bundleInfo->values.clear();
    if (value) fakes.bundleInfo->values["ZEVReliabilityDirectory"] = *value;
    EXPECT_EQ(delegate->reliabilityDirectory(), expected);
    EXPECT_FALSE(fs::exists(expected));
  }
}

TEST_F(AppDelegateTest, LaunchSequenceRunsEveryStepInOrderWhateverFailsOrThrows) {
  fakes.serviceManager->mainApp.registerThrows = "autostart adapter broke";
  fakes.serviceManager->agent.unregisterResult = serviceError(1, "no user manager");
  fakes.serviceManager->agent.registerResult = serviceError(1, "no user manager");
  fakes.serviceManager->kickstart = {"/nonexistent/systemctl", {}};

  delegate->applicationDidFinishLaunching();

  EXPECT_THAT(fakes.serviceManager->calls,
              ElementsAre("mainAppService", "mainApp.register", "agentService(com.zev.zevd.plist)",
                          "agent(com.zev.zevd.plist).unregister",
                          "agent(com.zev.zevd.plist).register", "kickstartCommand(com.zev.zevd)"));
  const std::vector<LogEntry> log = fakes.launcherLog->entries();
  ASSERT_EQ(log.size(), 7u);
  EXPECT_EQ(log[1], error("registerLoginItem failed: autostart adapter broke"));
  // Steps 5-7: nothing to resume, the updater, the push watcher.
  EXPECT_EQ(log[5], info("Sparkle started; feed=<nil>"));
  EXPECT_EQ(log[6], info("update push watcher started; sentinel=/tmp/com.zev.zevd.update-trigger"));
  // One line each for the missing daemon and the failed agent registration.
  const std::string printed = standardError.str();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2) << printed;
  EXPECT_EQ(fakes.statusItemsMade, 1);
}

// installStatusItem: the controller it builds and what each of the
// popover's actions does to the platform.
class InstallStatusItemTest : public AppDelegateTest {
 protected:
  InstallStatusItemTest() {
    fakes.statusItemFactory = [this] { return std::make_unique<testing::FakeStatusItem>(item); };
    delegate->installStatusItem();
    resetRecords();
  }

  StatusItemController& controller() { return *delegate->statusController(); }

  // Opens the popover and triggers one of its controls by object name.
  void trigger(const char* objectName) {
    controller().togglePopover();
    PopoverView* popover = controller().popover();
    if (auto* action = popover->findChild<QAction*>(objectName)) {
      action->trigger();
    } else {
      popover->findChild<QAbstractButton*>(objectName)->click();
    }
  }

  const std::shared_ptr<testing::StatusItemRecord> item{new testing::StatusItemRecord};
};

TEST_F(InstallStatusItemTest, EachActionReachesItsPort) {
  trigger("openWebUIButton");
  EXPECT_THAT(fakes.workspace->openedURLs, ElementsAre("http://127.0.0.1:8085"));
  trigger("revealLogsAction");
  EXPECT_THAT(fakes.workspace->revealedFiles, ElementsAre("/home/tester/.zevd/zevd.log"));

  // View Log makes the log window once and shows the same one again.
  trigger("viewLogAction");
  LogWindowController* logWindow = delegate->logWindowController();
  ASSERT_NE(logWindow, nullptr);
  EXPECT_EQ(logWindow->model().currentURL(), "/home/tester/.zevd/zevd.log");
  logWindow->window()->close();
  trigger("viewLogAction");
  EXPECT_EQ(delegate->logWindowController(), logWindow);
  EXPECT_TRUE(logWindow->window()->isVisible());
}

// Restart, once confirmed, runs beside the event loop (restartAgent): one
// asked for meanwhile is dropped; once it has ended, the next one runs.
TEST_F(InstallStatusItemTest, RestartIsNotWaitedForAndRunsOneAtATime) {
  controller().setRestartPromptForTesting([] { return true; });
  fakes.serviceManager->kickstart = {"/bin/sh", {"-c", "sleep 1; echo done"}};
  trigger("restartButton");
  delegate->restartAgent();
  EXPECT_THAT(fakes.serviceManager->calls, ElementsAre("kickstartCommand(com.zev.zevd)"));
  EXPECT_THAT(fakes.launcherLog->messages(),
              ElementsAre("restart already running; request dropped"));
  ASSERT_TRUE(QTest::qWaitFor([&] { return fakes.launcherLog->entries().size() == 2; }, 5000));
  EXPECT_EQ(fakes.launcherLog->messages().back(), "kickstart exit=0 out=done\n");
  QTest::qWait(50);
  delegate->restartAgent();
  ASSERT_TRUE(QTest::qWaitFor([&] { return fakes.launcherLog->entries().size() == 3; }, 5000));
  EXPECT_EQ(fakes.launcherLog->messages().back(), "kickstart exit=0 out=done\n");
}

// The alert runs a nested event loop in which anything may happen, even the
// owner going away: the answer must then be dropped, not acted on.
TEST_F(InstallStatusItemTest, OwnerGoneWhileTheAlertIsUpRestartsNothing) {
  // The fakes go with the delegate, so the restart leaves its trace on disk.
  const std::string marker = dir.filePath("restarted").toStdString();
  fakes.serviceManager->kickstart = {"/bin/sh", {"-c", "touch '" + marker + "'"}};
  controller().setRestartPromptForTesting([this] {
    delegate.reset();
    return true;
  });
  controller().confirmRestart();
  EXPECT_EQ(delegate, nullptr);
  EXPECT_FALSE(std::filesystem::exists(marker));
}

}  // namespace
}  // namespace zev
