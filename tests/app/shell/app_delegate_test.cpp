#include "app/shell/app_delegate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QPointer>
#include <QTemporaryDir>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

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
using testing::FakePlatform;
using testing::FakeStatusItem;
using testing::info;
using ::testing::IsEmpty;
using testing::LogEntry;
using testing::serviceError;
using ::testing::StartsWith;
using testing::StatusItemRecord;

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
  void resetRecords() {
    fakes.launcherLog->clear();
    fakes.serviceManager->calls.clear();
    standardError.str("");
  }

  QTemporaryDir dir;
  FakePlatform fakes;
  std::ostringstream standardError;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, ConstructionTouchesNoPort) {
  EXPECT_EQ(delegate->localBase(), QUrl(QStringLiteral("http://127.0.0.1:8085")));
  EXPECT_THAT(fakes.serviceManager->calls, IsEmpty());
  EXPECT_THAT(fakes.launcherLog->entries(), IsEmpty());
  EXPECT_EQ(fakes.statusItemsMade, 0);
}

TEST_F(AppDelegateTest, VerifyDaemonPresentAcceptsOnlyAnExecutableFile) {
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"executable file", [&] { installDaemon(); }},
      {"absent", [] {}},
      {"without execute permission", [&] { installDaemon(fs::perms(0644)); }},
      {"a directory", [&] { fs::create_directory(daemonPath()); }},
  };
  const std::string path = daemonPath().string();
  for (const auto& [name, arrange] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(daemonPath());
    resetRecords();
    arrange();
    delegate->verifyDaemonPresent();
    if (name == cases[0].first) {
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
    std::optional<ServiceError> result;
    LogEntry log;
    std::string standardError;
  };
  const Case cases[] = {
      {std::nullopt, info("LoginItem registered (status=enabled)"), ""},
      {serviceError(12, "already there"), info("LoginItem already registered"), ""},
      {serviceError(ServiceError::switchedOffByUser, "switched off (Hidden=true)"),
       info("switched off (Hidden=true)"), ""},
      {serviceError(5, "cannot write entry"),
       error("LoginItem register failed: cannot write entry"),
       "ZEV launcher: autostart entry registration failed: "
       "Error Domain=Fake Code=5 \"cannot write entry\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.log.message);
    resetRecords();
    fakes.serviceManager->mainApp.registerResult = c.result;
    delegate->registerLoginItem();
    EXPECT_THAT(fakes.launcherLog->entries(), ElementsAre(c.log));
    EXPECT_EQ(standardError.str(), c.standardError);
  }
}

TEST_F(AppDelegateTest, RegisterAgentDropsThenRegistersAfresh) {
  struct Case {
    std::optional<ServiceError> unregisterResult;
    std::optional<ServiceError> registerResult;
    std::vector<LogEntry> log;
    std::string standardError;
  };
  const Case cases[] = {
      {std::nullopt,
       std::nullopt,
       {info("Agent prior registration dropped"), info("Agent registered (status=enabled)")},
       ""},
      {serviceError(1, "unit not loaded"),
       std::nullopt,
       {info("Agent unregister no-op: unit not loaded"), info("Agent registered (status=enabled)")},
       ""},
      {std::nullopt,
       serviceError(12, "already enabled"),
       {info("Agent prior registration dropped"), info("Agent already registered (race?)")},
       ""},
      {serviceError(1, "no user manager"),
       serviceError(1, "no user manager"),
       {info("Agent unregister no-op: no user manager"),
        error("Agent register failed: no user manager")},
       "ZEV launcher: systemd user unit registration failed: "
       "Error Domain=Fake Code=1 \"no user manager\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.log.back().message);
    resetRecords();
    fakes.serviceManager->agent.unregisterResult = c.unregisterResult;
    fakes.serviceManager->agent.registerResult = c.registerResult;
    delegate->registerAgent();
    EXPECT_EQ(fakes.launcherLog->entries(), c.log);
    EXPECT_EQ(standardError.str(), c.standardError);
  }
}

TEST_F(AppDelegateTest, KickstartAgentLogsTheExitStatusAndCombinedOutput) {
  const std::pair<Command, LogEntry> cases[] = {
      {{"/bin/sh", {"-c", "echo restarting; echo note >&2"}},
       info("kickstart exit=0 out=restarting\nnote\n")},
      {{"/bin/sh", {"-c", "echo 'Unit com.zev.zevd.service not loaded.' >&2; exit 5"}},
       info("kickstart exit=5 out=Unit com.zev.zevd.service not loaded.\n")},
      {{"/bin/sh", {"-c", "printf '\\377\\376'"}}, info("kickstart exit=0 out=")},
  };
  for (const auto& [command, log] : cases) {
    SCOPED_TRACE(log.message);
    resetRecords();
    fakes.serviceManager->kickstart = command;
    delegate->kickstartAgent();
    EXPECT_THAT(fakes.launcherLog->entries(), ElementsAre(log));
    EXPECT_THAT(fakes.serviceManager->calls, ElementsAre("kickstartCommand(com.zev.zevd)"));
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
  const std::vector<LogEntry> log = fakes.launcherLog->entries();
  ASSERT_EQ(log.size(), 7u);
  EXPECT_EQ(log[0], error("missing daemon at " + daemonPath().string()));
  EXPECT_EQ(log[1], error("LoginItem register failed: no autostart directory"));
  EXPECT_EQ(log[2], info("Agent unregister no-op: no user manager"));
  EXPECT_EQ(log[3], error("Agent register failed: no user manager"));
  EXPECT_EQ(log[4].level, LogEntry::Level::error);
  EXPECT_THAT(log[4].message, StartsWith("kickstart spawn failed: "));
  // Steps 5-7: nothing to resume, the updater, the push watcher.
  EXPECT_EQ(log[5], info("Sparkle started; feed=<nil>"));
  EXPECT_EQ(log[6], info("update push watcher started; sentinel=/tmp/com.zev.zevd.update-trigger"));
  // One line each for the missing daemon and the two failed registrations,
  // worded as the single-step tests above check.
  const std::string printed = standardError.str();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3) << printed;

  EXPECT_EQ(fakes.statusItemsMade, 1);
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

// installStatusItem: the controller it builds and what each of the
// popover's five actions does to the platform.
class InstallStatusItemTest : public AppDelegateTest {
 protected:
  InstallStatusItemTest() {
    fakes.statusItemFactory = [this] { return std::make_unique<FakeStatusItem>(item); };
    delegate->installStatusItem();
    resetRecords();
    fakes.activation->calls.clear();
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

  std::shared_ptr<StatusItemRecord> item = std::make_shared<StatusItemRecord>();
};

TEST_F(InstallStatusItemTest, InstallsOneControllerPollingTheLocalBase_ReplacedWhenInstalledAgain) {
  ASSERT_NE(delegate->statusController(), nullptr);
  EXPECT_EQ(fakes.statusItemsMade, 1);
  EXPECT_EQ(controller().healthURL().toString(), "http://127.0.0.1:8085/api/health");
  EXPECT_THAT(fakes.statusItemLog->messages(),
              ElementsAre("status item installed; polling http://127.0.0.1:8085"));
  EXPECT_EQ(item->toolTip, "ZEV daemon unreachable");

  QPointer<StatusItemController> first = delegate->statusController();
  delegate->installStatusItem();  // installing again replaces the controller
  EXPECT_TRUE(first.isNull());
  EXPECT_EQ(fakes.statusItemsMade, 2);
}

TEST_F(InstallStatusItemTest, EachActionReachesItsPort) {
  trigger("openWebUIButton");
  EXPECT_THAT(fakes.workspace->openedURLs, ElementsAre("http://127.0.0.1:8085"));

  trigger("revealLogsAction");
  EXPECT_THAT(fakes.workspace->revealedFiles, ElementsAre("/home/tester/.zevd/zevd.log"));

  // View Log makes the log window once and shows the same one again.
  EXPECT_EQ(delegate->logWindowController(), nullptr);
  trigger("viewLogAction");
  LogWindowController* logWindow = delegate->logWindowController();
  ASSERT_NE(logWindow, nullptr);
  EXPECT_TRUE(logWindow->window()->isVisible());
  EXPECT_EQ(logWindow->model().currentURL(), "/home/tester/.zevd/zevd.log");
  logWindow->window()->close();
  trigger("viewLogAction");
  EXPECT_EQ(delegate->logWindowController(), logWindow);
  EXPECT_TRUE(logWindow->window()->isVisible());

  // The updater has not been started: checking for updates touches nothing.
  fakes.launcherLog->clear();
  trigger("checkUpdatesButton");
  EXPECT_THAT(fakes.launcherLog->entries(), IsEmpty());
  EXPECT_THAT(fakes.serviceManager->calls, IsEmpty());
  EXPECT_EQ(fakes.workspace->openedURLs.size(), 1u);
  EXPECT_FALSE(controller().isPopoverShown());
}

TEST_F(InstallStatusItemTest, RestartKickstartsTheAgentOnlyAfterConfirmation) {
  for (bool confirmed : {false, true}) {
    SCOPED_TRACE(confirmed ? "Restart" : "Cancel");
    fakes.serviceManager->calls.clear();
    fakes.activation->calls.clear();
    controller().setRestartPromptForTesting([confirmed] { return confirmed; });
    trigger("restartButton");
    // The alert is brought to the front in either case.
    EXPECT_THAT(fakes.activation->calls, ElementsAre("activate"));
    if (confirmed) {
      EXPECT_THAT(fakes.serviceManager->calls, ElementsAre("kickstartCommand(com.zev.zevd)"));
    } else {
      EXPECT_THAT(fakes.serviceManager->calls, IsEmpty());
    }
  }
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
