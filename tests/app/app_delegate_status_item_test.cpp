// AppDelegate::installStatusItem: the controller it builds and what each of
// the popover's five actions does to the platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QPointer>
#include <QTemporaryDir>
#include <filesystem>

#include "app/app_delegate.h"
#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_status_item.h"
#include "app/fakes/qt_test_main.h"
#include "app/popover_view.h"
#include "app/status_item_controller.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using testing::FakePlatform;
using testing::FakeStatusItem;
using ::testing::IsEmpty;
using testing::StatusItemRecord;

class InstallStatusItemTest : public ::testing::Test {
 protected:
  InstallStatusItemTest() {
    fakes.bundleInfo->home = "/home/tester";
    fakes.statusItemFactory = [this] { return std::make_unique<FakeStatusItem>(item); };
    delegate = std::make_unique<AppDelegate>(fakes.take(), standardError);
    delegate->installStatusItem();
    fakes.launcherLog->clear();
    fakes.serviceManager->calls.clear();
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
  FakePlatform fakes;
  std::ostringstream standardError;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(InstallStatusItemTest, InstallsOneControllerPollingTheLocalBase) {
  ASSERT_NE(delegate->statusController(), nullptr);
  EXPECT_EQ(fakes.statusItemsMade, 1);
  EXPECT_EQ(controller().healthURL().toString(), "http://127.0.0.1:8085/api/health");
  EXPECT_THAT(fakes.statusItemLog->messages(),
              ElementsAre("status item installed; polling http://127.0.0.1:8085"));
  EXPECT_EQ(item->toolTip, "ZEV daemon unreachable");
}

TEST_F(InstallStatusItemTest, EachActionReachesItsPort) {
  trigger("openWebUIButton");
  EXPECT_THAT(fakes.workspace->openedURLs, ElementsAre("http://127.0.0.1:8085"));

  trigger("revealLogsAction");
  EXPECT_THAT(fakes.workspace->revealedFiles, ElementsAre("/home/tester/.zevd/zevd.log"));

  // The log window arrives with the log viewer; until then only a log line.
  trigger("viewLogAction");
  EXPECT_THAT(fakes.launcherLog->entries(),
              ElementsAre(testing::info("log window not available yet")));

  // No updater exists yet: checking for updates touches nothing.
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
  QTemporaryDir dir;
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

TEST_F(InstallStatusItemTest, InstallingAgainReplacesTheController) {
  QPointer<StatusItemController> first = delegate->statusController();
  delegate->installStatusItem();
  EXPECT_TRUE(first.isNull());
  EXPECT_EQ(fakes.statusItemsMade, 2);
}

}  // namespace
}  // namespace zev
