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
using testing::healthDocument;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing::Stream;
namespace fs = std::filesystem;

const std::string healthy = healthDocument("1.0.0", {Stream{}});

UpdateCheckFeedback feedbackOf(UpdateCheckFeedback::Kind kind) {
  UpdateCheckFeedback feedback;
  feedback.kind = kind;
  return feedback;
}

class PreparationTest : public testing::UpdateHarness {
 public:
  // Starts the updater and lets it announce an install of 2.0.0; waits until
  // the preparation has stopped. Returns how often the install was released.
  int prepare() {
    coordinator().startSparkle();
    log.clear();
    int released = 0;
    QSignalSpy ended(&coordinator(), &UpdateCoordinator::preparationEnded);
    EXPECT_TRUE(updater.delegate->willInstallUpdateOnQuit({"2.0.0", "2.0"}, [&] { ++released; }));
    EXPECT_TRUE(ended.count() > 0 || ended.wait(10000));
    return released;
  }
  std::optional<UpdateTransaction> active() { return store().loadActive(); }
};

TEST(PreparationTest, EveryStopShortHoldsTheUpdateBack) {
  // A document whose only enabled stream is not live: no healthy baseline.
  const std::string allStale = healthDocument("1.0.0", {Stream{.live = false}});
  // Valid JSON, padded past the size cap.
  const std::string huge = healthy.substr(0, healthy.size() - 1) + std::string(1 << 20, ' ') + "}";
  struct Case {
    const char* name;
    std::function<void(PreparationTest&)> arrange;
    std::string logged;                         // the error line after "preparing update …"
    std::optional<std::string> recordedReason;  // none: no record written
    bool archiveLeft = false;
  };
  const Case cases[] = {
      {"daemon unreachable", [](PreparationTest&) {},
       "update preparation failed: daemon health unavailable", std::nullopt},
      {"body that is not a health document",
       [](PreparationTest& t) {
         t.serveAlways({200, "{\"ok\":true}"});
       },
       "update preparation failed: daemon health unavailable", std::nullopt},
      {"body beyond the size cap",
       [huge](PreparationTest& t) {
         t.serveAlways({200, huge});
       },
       "update preparation failed: daemon health unavailable", std::nullopt},
      {"daemon slower than the time-out",
       [](PreparationTest& t) {
         t.coordinator().setHealthTimeoutForTesting(std::chrono::milliseconds(200));
         t.serveAlways({200, healthy, std::chrono::milliseconds(3000)});
       },
       "update preparation failed: daemon health unavailable", std::nullopt},
      {"hold marker present",
       [](PreparationTest& t) {
         t.serveAlways({200, healthy});
         fs::create_directories(t.reliability());
         std::ofstream(t.reliability() / "update-hold.json");
       },
       "", std::nullopt},
      {"configured streams without a healthy baseline",
       [allStale](PreparationTest& t) {
         t.serveAlways({200, allStale});
       },
       "update blocked: configured streams had no healthy baseline",
       "update blocked: configured streams had no healthy baseline"},
      {"copy fails",
       [](PreparationTest& t) {
         t.serveAlways({200, healthy});
         t.tool->copyError = "/usr/bin/ditto exited 1";
       },
       "update preparation failed: /usr/bin/ditto exited 1",
       "archive verification failed: /usr/bin/ditto exited 1", true},
      {"reliability directory cannot be written",
       [](PreparationTest& t) {
         t.serveAlways({200, healthy});
         std::ofstream(t.reliability()) << "a file where the directory should be";
       },
       "update preparation state write failed: ", std::nullopt},
      {"verification of the copy fails",
       [](PreparationTest& t) {
         t.serveAlways({200, healthy});
         t.tool->verifyError = "altered file: Contents/Info.plist";
       },
       "update preparation failed: altered file: Contents/Info.plist",
       "archive verification failed: altered file: Contents/Info.plist", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PreparationTest t;
    c.arrange(t);
    EXPECT_EQ(t.prepare(), 0);

    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0], testing::info("preparing update 2.0.0 for certified installation"));
    EXPECT_EQ(entries[1].level, testing::LogEntry::Level::error);
    if (c.logged.empty()) {
      EXPECT_THAT(entries[1].message, StartsWith("update preparation refused: update hold"));
      EXPECT_EQ(t.coordinator().healthRequestsStarted(), 0);
    } else if (c.logged.ends_with(": ")) {  // followed by the system's description
      EXPECT_THAT(entries[1].message, StartsWith(c.logged));
    } else {
      EXPECT_EQ(entries[1].message, c.logged);
    }
    if (!c.archiveLeft) EXPECT_THAT(t.tool->calls(), IsEmpty());

    const std::optional<UpdateTransaction> record =
        fs::is_directory(t.reliability()) ? t.active() : std::nullopt;
    ASSERT_EQ(record.has_value(), c.recordedReason.has_value());
    if (record) {
      EXPECT_EQ(record->state(), UpdateState::failed);
      EXPECT_EQ(record->failureReason(), c.recordedReason);
      EXPECT_EQ(record->updatedAt(), t.now());
      EXPECT_EQ(t.store().loadAll(), std::vector{*record});  // the history copy agrees
      // The archive of a failed copy or verification stays for pruning.
      EXPECT_EQ(fs::exists(fs::path(record->archivePath()) / "partial"), c.archiveLeft);
      EXPECT_EQ(fs::exists(t.reliability() / "archives"), c.archiveLeft);
    }
  }
}

TEST(PreparationTest, HealthyDaemonRecordsInstallingAndReleasesOnce) {
  PreparationTest t;
  // The status code is not examined: a decodable body counts.
  t.serveAlways({503, healthy});
  t.clock.now += std::chrono::milliseconds(1234);
  EXPECT_EQ(t.prepare(), 1);

  EXPECT_THAT(t.log.messages(), ElementsAre("preparing update 2.0.0 for certified installation"));
  const std::optional<UpdateTransaction> record = t.active();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->state(), UpdateState::installing);
  EXPECT_EQ(record->sourceVersion(), "1.0.0");
  EXPECT_EQ(record->targetVersion(), "2.0.0");
  EXPECT_EQ(record->createdAt(), t.now());
  EXPECT_EQ(record->baseline().configuredStreamCount, 1);
  EXPECT_EQ(record->baseline().streams.size(), 1u);
  EXPECT_FALSE(record->failureReason());

  // The archive sits directly in <reliability>/archives, named by a UUID of
  // its own, not the transaction's.
  const fs::path archive = record->archivePath();
  EXPECT_EQ(archive.parent_path(), t.reliability() / "archives");
  const std::string name = archive.filename().string();
  ASSERT_THAT(name, StartsWith("ZEV.app."));
  const std::optional<Uuid> archiveID = Uuid::parse(name.substr(8));
  ASSERT_TRUE(archiveID);
  EXPECT_EQ(archiveID->string(), name.substr(8));  // upper case
  EXPECT_NE(*archiveID, record->id());
  EXPECT_THAT(t.tool->calls(),
              ElementsAre("copy " + t.bundleInfo.bundle.string() + " " + archive.string(),
                          "verify " + archive.string()));
}

TEST(PreparationTest, UserInitiatedRelaunchIsCertifiedToo) {
  PreparationTest t;
  t.serveAlways({200, healthy});
  t.coordinator().startSparkle();
  int resumed = 0;
  QSignalSpy ended(&t.coordinator(), &UpdateCoordinator::preparationEnded);
  EXPECT_TRUE(
      t.updater.delegate->shouldPostponeRelaunchForUpdate({"2.0.0", ""}, [&] { ++resumed; }));
  ASSERT_TRUE(ended.wait(10000));
  EXPECT_EQ(resumed, 1);
  EXPECT_EQ(t.active()->state(), UpdateState::installing);
}

TEST(PreparationTest, UpdaterStartsAutomaticAndTheUserDriverSwitchesActivation) {
  for (const std::optional<std::string>& feed :
       {std::optional<std::string>(),
        std::optional<std::string>("https://u.example/appcast.xml")}) {
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
  window.show(feedbackOf(UpdateCheckFeedback::Kind::checking));
  QMessageBox* first = window.window();
  int installs = 0;
  UpdateCheckFeedback offer = feedbackOf(UpdateCheckFeedback::Kind::updateAvailable);
  offer.item = UpdateItem{"200", "<b>2.0</b>"};
  offer.install = [&] { ++installs; };
  window.show(offer);
  ASSERT_EQ(window.window(), first);
  EXPECT_EQ(first->text(), QStringLiteral("ZEV Launcher <b>2.0</b> is available."));
  EXPECT_EQ(first->textFormat(), Qt::PlainText);
  for (QAbstractButton* button : first->buttons()) {
    if (button->text() == QStringLiteral("Install")) button->click();
  }
  EXPECT_EQ(installs, 1);
}

TEST(AppDelegateUpdatesTest, LaunchStartsUpdatesBeforeTheStatusItemAndThePopoverChecks) {
  QTemporaryDir dir;
  testing::FakePlatform fakes;
  fakes.bundleInfo->home = dir.path().toStdString();
  auto item = std::make_shared<testing::StatusItemRecord>();
  fakes.statusItemFactory = [item] { return std::make_unique<testing::FakeStatusItem>(item); };
  std::ostringstream standardError;
  AppDelegate delegate(fakes.take(), standardError);
  delegate.updates().setSentinelPathForTesting(dir.filePath("trigger").toStdString());

  delegate.applicationDidFinishLaunching();

  const std::vector<std::string> log = fakes.launcherLog->messages();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[log.size() - 2], "Sparkle started; feed=<nil>");
  EXPECT_EQ(log.back(),
            "update push watcher started; sentinel=" + dir.filePath("trigger").toStdString());
  EXPECT_TRUE(delegate.updates().isPushWatcherRunning());
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
