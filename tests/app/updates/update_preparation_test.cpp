// Before an update installs: baseline, record, archive, release, and every
// way that can stop short. Also the updater's start-up and the answers the
// launcher gives the updater's user driver.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QMessageBox>
#include <fstream>
#include <sstream>

#include "app/fakes/fake_status_item.h"
#include "app/fakes/qt_test_main.h"
#include "app/shell/app_delegate.h"
#include "app/status/popover_view.h"
#include "app/status/status_item_controller.h"
#include "app/updates/update_check_feedback_window.h"
#include "app/updates/update_coordinator_fixture.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

const std::string healthy = testing::healthDocument("1.0.0");

class PreparationTest : public testing::UpdateHarness {
 public:
  // Starts the updater and lets it announce an install of 2.0.0 (on quit, or
  // as the user's relaunch); waits until the preparation has stopped.
  // Returns how often the install was released.
  int prepare(bool userRelaunch = false) {
    coordinator().startSparkle();
    log.clear();
    int released = 0;
    QSignalSpy ended(&coordinator(), &UpdateCoordinator::preparationEnded);
    UpdaterDelegate& delegate = *updater.delegate;
    EXPECT_TRUE(userRelaunch
                    ? delegate.shouldPostponeRelaunchForUpdate({"2.0.0", ""}, [&] { ++released; })
                    : delegate.willInstallUpdateOnQuit({"2.0.0", "2.0"}, [&] { ++released; }));
    EXPECT_TRUE(ended.count() > 0 || ended.wait(10000));
    return released;
  }
};

TEST(PreparationTest, EveryStopShortHoldsTheUpdateBack) {
  using Arrange = void (*)(PreparationTest&);
  const Arrange slow = [](PreparationTest& t) {
    t.coordinator().setHealthTimeoutForTesting(std::chrono::milliseconds(200));
    t.serveAlways({200, healthy, std::chrono::milliseconds(3000)});
  };
  const Arrange hold = [](PreparationTest& t) {
    fs::create_directories(t.reliability());
    std::ofstream(t.reliability() / "update-hold.json");
  };
  const Arrange fileInTheWay = [](PreparationTest& t) { std::ofstream(t.reliability()) << "x"; };
  const Arrange copyFails = [](PreparationTest& t) { t.tool->copyError = "ditto exited 1"; };
  const Arrange verifyFails = [](PreparationTest& t) { t.tool->verifyError = "altered file: X"; };
  const std::string unavailable = "update preparation failed: daemon health unavailable";
  const std::string blocked = "update blocked: configured streams had no healthy baseline";
  const struct {
    const char* name;
    std::string body;                 // none: the daemon is unreachable
    std::string logged;               // the error after "preparing update …", or its start
    std::string recordedReason = "";  // none: no record written
    Arrange arrange = [](PreparationTest&) {};
  } cases[] = {
      {"daemon unreachable", "", unavailable},
      {"body that is not a health document", R"({"ok":true})", unavailable},
      {"body beyond the size cap (valid JSON)",
       healthy.substr(0, healthy.size() - 1) + std::string(1 << 20, ' ') + "}", unavailable},
      {"daemon slower than the time-out", healthy, unavailable, "", slow},
      {"hold marker present", healthy, "update preparation refused: update hold is active (", "",
       hold},
      {"no healthy baseline", testing::healthDocument("1.0.0", false), blocked, blocked},
      {"reliability directory cannot be written", healthy,
       "update preparation state write failed: ", "", fileInTheWay},
      {"copy fails", healthy, "update preparation failed: ditto exited 1",
       "archive verification failed: ditto exited 1", copyFails},
      {"verification of the copy fails", healthy, "update preparation failed: altered file: X",
       "archive verification failed: altered file: X", verifyFails},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PreparationTest t;
    if (!c.body.empty()) t.serveAlways({200, c.body});
    c.arrange(t);
    EXPECT_EQ(t.prepare(), 0);
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0], testing::info("preparing update 2.0.0 for certified installation"));
    EXPECT_EQ(entries[1].level, testing::LogEntry::Level::error);
    if (c.logged.ends_with(": ") || c.logged.ends_with("(")) {
      EXPECT_THAT(entries[1].message, StartsWith(c.logged));
    } else {
      EXPECT_EQ(entries[1].message, c.logged);
    }
    // The archive of a failed copy or verification stays for pruning.
    const bool archiveLeft = c.recordedReason.starts_with("archive");
    if (!archiveLeft) EXPECT_THAT(t.tool->calls(), IsEmpty());

    const std::optional<UpdateTransaction> record =
        fs::is_directory(t.reliability()) ? t.store().loadActive() : std::nullopt;
    ASSERT_EQ(record.has_value(), !c.recordedReason.empty());
    if (!record) continue;
    EXPECT_EQ(record->state(), UpdateState::failed);
    EXPECT_EQ(record->failureReason(), c.recordedReason);
    EXPECT_EQ(record->updatedAt(), t.now());
    EXPECT_EQ(fs::exists(fs::path(record->archivePath()) / "partial"), archiveLeft);
    EXPECT_EQ(fs::exists(t.reliability() / "archives"), archiveLeft);
  }
}

TEST(PreparationTest, HealthyDaemonRecordsInstallingAndReleasesOnce_AlsoOnTheUsersRelaunch) {
  for (bool userRelaunch : {false, true}) {
    SCOPED_TRACE(userRelaunch);
    PreparationTest t;
    t.serveAlways({503, healthy});  // the status is not examined: a decodable body counts
    t.clock.now += std::chrono::milliseconds(1234);
    EXPECT_EQ(t.prepare(userRelaunch), 1);

    EXPECT_THAT(t.log.messages(), ElementsAre("preparing update 2.0.0 for certified installation"));
    const std::optional<UpdateTransaction> record = t.store().loadActive();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state(), UpdateState::installing);
    EXPECT_EQ(record->sourceVersion(),
              "1.0.0");  // what the daemon's health said
    EXPECT_EQ(record->baseline().streams.size(), 1u);
    EXPECT_EQ(record->createdAt(), t.now());

    // The archive sits directly in <reliability>/archives, named by an
    // upper-case UUID of its own, not the transaction's.
    const fs::path archive = record->archivePath();
    EXPECT_EQ(archive.parent_path(), t.reliability() / "archives");
    const std::string name = archive.filename().string();
    ASSERT_THAT(name, StartsWith("ZEV.app."));
    const std::optional<Uuid> archiveID = Uuid::parse(name.substr(8));
    ASSERT_TRUE(archiveID);
    EXPECT_EQ(archiveID->string(), name.substr(8));
    EXPECT_NE(*archiveID, record->id());
    EXPECT_THAT(t.tool->calls(),
                ElementsAre("copy " + t.bundleInfo.bundle.string() + " " + archive.string(),
                            "verify " + archive.string()));
  }
}

TEST(PreparationTest, UpdaterStartsAutomaticAndTheUserDriverSwitchesActivation) {
  for (const std::optional<std::string>& feed :
       {std::optional<std::string>(), std::optional<std::string>("https://u.example/a")}) {
    PreparationTest t;
    t.updater.feed = feed;
    t.coordinator().checkForUpdates();  // before start-up: nothing
    t.coordinator().startSparkle();
    t.coordinator().checkForUpdates();
    EXPECT_THAT(t.updater.calls,
                ElementsAre("start", "automaticChecks=1", "automaticDownloads=1", "userInitiated"));
    EXPECT_THAT(t.log.messages(), ElementsAre("Sparkle started; feed=" + feed.value_or("<nil>")));
  }
  PreparationTest t;
  UpdaterDelegate& driver = t.coordinator();
  EXPECT_FALSE(driver.standardUserDriverShouldHandleShowingScheduledUpdate({"2.0.0", ""}, true));
  driver.standardUserDriverWillHandleShowingUpdate(false, {"2.0.0", ""}, {});
  driver.standardUserDriverWillHandleShowingUpdate(true, {"2.0.0", ""}, {true});
  driver.standardUserDriverDidReceiveUserAttention({"2.0.0", ""});
  EXPECT_THAT(t.activation.calls, ElementsAre("regular", "activate", "accessory"));
}

// The feed's text is untrusted: shown as plain text, in one reused window.
TEST(UpdateCheckFeedbackWindowTest, OfferIsPlainTextAndInstallAccepts) {
  UpdateCheckFeedbackWindow window;
  UpdateCheckFeedback feedback;
  feedback.kind = UpdateCheckFeedback::Kind::checking;
  window.show(feedback);
  QMessageBox* first = window.window();
  int installs = 0;
  feedback.kind = UpdateCheckFeedback::Kind::updateAvailable;
  feedback.item = UpdateItem{"200", "<b>2.0</b>"};
  feedback.install = [&] { ++installs; };
  window.show(feedback);
  ASSERT_EQ(window.window(), first);
  EXPECT_EQ(first->text(), QStringLiteral("ZEV Launcher <b>2.0</b> is available."));
  EXPECT_EQ(first->textFormat(), Qt::PlainText);
  for (QAbstractButton* button : first->buttons()) {
    if (button->text() == QStringLiteral("Install")) button->click();
  }
  EXPECT_EQ(installs, 1);
}

// The launch order and its log lines are the app delegate test's; here the
// popover's button reaches the updater the launch started.
TEST(AppDelegateUpdatesTest, PopoverCheckReachesTheUpdaterStartedAtLaunch) {
  QTemporaryDir dir;
  testing::FakePlatform fakes;
  fakes.bundleInfo->home = dir.path().toStdString();
  auto item = std::make_shared<testing::StatusItemRecord>();
  fakes.statusItemFactory = [item] { return std::make_unique<testing::FakeStatusItem>(item); };
  std::ostringstream standardError;
  AppDelegate delegate(fakes.take(), standardError);
  delegate.updates().setSentinelPathForTesting(dir.filePath("trigger").toStdString());
  delegate.applicationDidFinishLaunching();
  ASSERT_NE(delegate.statusController(), nullptr);
  delegate.statusController()->togglePopover();
  delegate.statusController()
      ->popover()
      ->findChild<QAbstractButton*>("checkUpdatesButton")
      ->click();
  EXPECT_EQ(fakes.updater->count("userInitiated"), 1);
}

}  // namespace
}  // namespace zev
