// The certified update as the coordinator runs it, on fake ports with a
// manual clock, a stand-in daemon and a scratch reliability directory.
// Before the install: baseline, record, archive, release, and every way that
// can stop short; the updater's start-up and its user driver. After the
// relaunch: resuming the verification, its deadline, certifying, archive
// pruning, and the sentinel that asks for a background check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QAbstractButton>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_status_item.h"
#include "app/fakes/fake_updater.h"
#include "app/fakes/health_server.h"
#include "app/fakes/manual_clock.h"
#include "app/fakes/qt_test_main.h"
#include "app/shell/app_delegate.h"
#include "app/status/popover_view.h"
#include "app/status/status_item_controller.h"
#include "app/updates/update_check_feedback_window.h"
#include "app/updates/update_coordinator.h"
#include "core/updates/update_state.h"
#include "core/updates/update_transaction_store.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// A decodable health document of `version` whose one enabled stream,
// "cam1/main", is fresh, not recording, and live or not.
std::string healthDocument(const std::string& version, bool live = true) {
  return R"({"ok":true,"version":")" + version +
         R"(","live_streams":1,"total_streams":1,"newest_frame_age_ms":100,"cpu_percent":1,)"
         R"("rss_bytes":1,"thumb_drop_ratio":0,"cameras":[{"id":"cam1","name":"Cam","live":true,)"
         R"("frame_age_ms":100,"streams":[{"id":"main","enabled":true,"live":)" +
         (live ? "true" : "false") + R"(,"frame_age_ms":100,"recording":false}]}]})";
}
const std::string healthy = healthDocument("1.0.0");  // the running version
const std::string healthyTarget = healthDocument("2.0.0");

// A health body of exactly `size` bytes: `healthy` padded with spaces.
std::string paddedTo(std::size_t size) {
  return std::string(healthy).insert(healthy.size() - 1, size - healthy.size(), ' ');
}

// One scenario's world; tests make one per table row.
class UpdateTest {
 public:
  UpdateTest() {
    bundleInfo.bundle = root / "ZEV.app";
    coordinator = std::make_unique<UpdateCoordinator>(
        UpdateCoordinator::Ports{log, bundleInfo, &updater, tool, &activation}, clock.clock(),
        [this] { return reliability(); }, [this] { return base; });
    coordinator->setSentinelPathForTesting((root / "update-trigger").string());
    coordinator->presentCheckFeedback = [](const UpdateCheckFeedback&) {};  // no window
    // Ticks only when the test says so (the first one still comes at once).
    coordinator->setVerificationIntervalForTesting(std::chrono::hours(1));
    coordinator->onUpdateFinished = [this](const UpdateTransaction& t) { finished.push_back(t); };
  }
  ~UpdateTest() {
    coordinator.reset();
    // An archiving step still on its way back must not outlive the fakes.
    QThreadPool::globalInstance()->waitForDone(10000);
  }

  // Answers every request with `respond(n)`.
  void serve(std::function<testing::HealthServer::Response(int)> respond) {
    server = std::make_unique<testing::HealthServer>(std::move(respond));
    base = QUrl(server->baseURL());
  }
  void serveAlways(testing::HealthServer::Response response) {
    serve([response](int) { return response; });
  }

  fs::path reliability() const { return root / "rel"; }
  UpdateTransactionStore store() const { return UpdateTransactionStore(reliability()); }
  Timestamp now() const { return std::chrono::floor<std::chrono::milliseconds>(clock.now); }

  // Starts the updater and lets it announce an install of 2.0.0 (on quit, or
  // as the user's relaunch); waits until the preparation has stopped.
  // Returns how often the install was released.
  int prepare(bool userRelaunch = false) {
    coordinator->startSparkle();
    log.clear();
    int released = 0;
    QSignalSpy ended(coordinator.get(), &UpdateCoordinator::preparationEnded);
    UpdaterDelegate& delegate = *updater.delegate;
    EXPECT_TRUE(userRelaunch
                    ? delegate.shouldPostponeRelaunchForUpdate({"2.0.0", ""}, [&] { ++released; })
                    : delegate.willInstallUpdateOnQuit({"2.0.0", "2.0"}, [&] { ++released; }));
    EXPECT_TRUE(ended.count() > 0 || ended.wait(10000));
    return released;
  }

  // Saves as the active record an attempt at 2.0.0 with a baseline of one
  // healthy stream, in `state`, last updated `age` ago; its archive, when
  // given, is made.
  void saveAttempt(UpdateState state, std::chrono::milliseconds age = 0ms,
                   std::string archive = {}) {
    const UpdateBaseline baseline{now() - age, 1, {{"cam1/main", false, std::nullopt}}};
    if (archive.empty()) archive = (reliability() / "archives" / "ZEV.app.A").string();
    else fs::create_directories(archive);
    UpdateTransaction t("1.0.0", "2.0.0", baseline, archive, now() - age, Uuid::random());
    t.setState(state);
    if (state == UpdateState::installing) t.setFailureReason("left over");
    store().save(t);
  }

  // Resumes, then lets `extraTicks` further ticks run, each waiting for its
  // sample.
  void resumeAndTick(int extraTicks) {
    QSignalSpy handled(coordinator.get(), &UpdateCoordinator::healthSampleHandled);
    coordinator->resumeUpdateVerificationIfNeeded();
    if (coordinator->healthRequestsStarted() > 0)
      ASSERT_TRUE(handled.count() || handled.wait(10000));
    for (int i = 0; i < extraTicks && coordinator->isVerifying(); ++i) {
      coordinator->tickVerificationForTesting();
      ASSERT_TRUE(handled.wait(10000));
    }
  }

  QTemporaryDir dir;
  fs::path root = dir.path().toStdString();
  testing::FakeSystemLog log;
  testing::FakeBundleInfo bundleInfo;
  testing::FakeUpdater updater;
  std::shared_ptr<testing::FakeArchiveTool> tool = std::make_shared<testing::FakeArchiveTool>();
  testing::FakeAppActivation activation;
  testing::ManualClock clock;
  std::unique_ptr<testing::HealthServer> server;
  // Port 1 (tcpmux) has no listener here: connections are refused at once.
  QUrl base = QUrl(QStringLiteral("http://127.0.0.1:1"));
  std::unique_ptr<UpdateCoordinator> coordinator;
  std::vector<UpdateTransaction> finished;
};

// ---- preparation -----------------------------------------------------------

TEST(UpdatePreparation, EveryStopShortHoldsTheUpdateBack) {
  using Arrange = void (*)(UpdateTest&);
  const Arrange slow = [](UpdateTest& t) {
    t.coordinator->setHealthTimeoutForTesting(std::chrono::milliseconds(200));
    t.serveAlways({200, healthy, std::chrono::milliseconds(3000)});
  };
  // Any entry of the hold's name holds, even a link to nothing.
  const Arrange hold = [](UpdateTest& t) {
    fs::create_directories(t.reliability());
    fs::create_symlink(t.root / "missing", t.reliability() / "update-hold.json");
  };
  const Arrange fileInTheWay = [](UpdateTest& t) { std::ofstream(t.reliability()) << "x"; };
  const Arrange copyFails = [](UpdateTest& t) { t.tool->copyError = "ditto exited 1"; };
  const Arrange verifyFails = [](UpdateTest& t) { t.tool->verifyError = "altered file: X"; };
  const std::string unavailable = "update preparation failed: daemon health unavailable";
  const std::string blocked = "update blocked: configured streams had no healthy baseline";
  const struct {
    const char* name;
    std::string body;                 // none: the daemon is unreachable
    std::string logged;               // the start of the error after "preparing update …"
    std::string recordedReason = "";  // none: no record written
    Arrange arrange = [](UpdateTest&) {};
  } cases[] = {
      {"daemon unreachable", "", unavailable},
      {"body that is not a health document", R"({"ok":true})", unavailable},
      {"body past the size cap", paddedTo(UpdateCoordinator::maxHealthBodyBytes + 1), unavailable},
      {"daemon slower than the time-out", healthy, unavailable, "", slow},
      {"hold marker", healthy, "update preparation refused: update hold is active (", "", hold},
      {"no healthy baseline", healthDocument("1.0.0", false), blocked, blocked},
      {"file in the way", healthy, "update preparation state write failed: ", "", fileInTheWay},
      {"copy fails", healthy, "update preparation failed: ditto exited 1",
       "archive verification failed: ditto exited 1", copyFails},
      {"verification of the copy fails", healthy, "update preparation failed: altered file: X",
       "archive verification failed: altered file: X", verifyFails},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    UpdateTest t;
    if (!c.body.empty()) t.serveAlways({200, c.body});
    c.arrange(t);
    EXPECT_EQ(t.prepare(), 0);
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0], testing::info("preparing update 2.0.0 for certified installation"));
    EXPECT_EQ(entries[1].level, testing::LogEntry::Level::error);
    EXPECT_THAT(entries[1].message, StartsWith(c.logged));
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
  }
}

TEST(UpdatePreparation, HealthyDaemonRecordsInstallingAndReleasesOnce_AlsoOnTheUsersRelaunch) {
  for (bool userRelaunch : {false, true}) {
    SCOPED_TRACE(userRelaunch);
    UpdateTest t;
    // The status is not examined, and a body at the size cap is still read.
    t.serveAlways({503, paddedTo(UpdateCoordinator::maxHealthBodyBytes)});
    t.clock.now += std::chrono::milliseconds(1234);
    EXPECT_EQ(t.prepare(userRelaunch), 1);

    EXPECT_THAT(t.log.messages(), ElementsAre("preparing update 2.0.0 for certified installation"));
    const std::optional<UpdateTransaction> record = t.store().loadActive();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state(), UpdateState::installing);
    EXPECT_EQ(record->sourceVersion(), "1.0.0");  // what the daemon's health said
    EXPECT_EQ(record->baseline().streams.size(), 1u);
    EXPECT_EQ(record->createdAt(), t.now());
    // The archive sits directly in <reliability>/archives, named by an
    // upper-case UUID of its own, not the transaction's.
    const fs::path archive = record->archivePath();
    const Uuid archiveID = Uuid::parse(archive.extension().string().substr(1)).value();
    EXPECT_EQ(archive, t.reliability() / "archives" / ("ZEV.app." + archiveID.string()));
    EXPECT_NE(archiveID, record->id());
    EXPECT_THAT(t.tool->calls(),
                ElementsAre("copy " + t.bundleInfo.bundle.string() + " " + archive.string(),
                            "verify " + archive.string()));
  }
}

TEST(UpdatePreparation, UpdaterStartsAutomaticAndTheUserDriverSwitchesActivation) {
  UpdateTest t;
  t.updater.feed = "https://u.example/a";  // none ("<nil>") is the app delegate test's
  t.coordinator->checkForUpdates();       // before start-up: nothing
  t.coordinator->startSparkle();
  t.coordinator->checkForUpdates();
  EXPECT_THAT(t.updater.calls,
              ElementsAre("start", "automaticChecks=1", "automaticDownloads=1", "userInitiated"));
  EXPECT_THAT(t.log.messages(), ElementsAre("Sparkle started; feed=https://u.example/a"));
  UpdaterDelegate& driver = *t.coordinator;
  EXPECT_FALSE(driver.standardUserDriverShouldHandleShowingScheduledUpdate({"2.0.0", ""}, true));
  driver.standardUserDriverWillHandleShowingUpdate(false, {"2.0.0", ""}, {});
  driver.standardUserDriverWillHandleShowingUpdate(true, {"2.0.0", ""}, {true});
  driver.standardUserDriverDidReceiveUserAttention({"2.0.0", ""});
  EXPECT_THAT(t.activation.calls, ElementsAre("regular", "activate", "accessory"));
}

// The feed's text is untrusted: shown as plain text, in one reused window.
// Its buttons are the updater's test's.
TEST(UpdateCheckFeedbackWindowTest, OfferIsPlainTextInOneReusedWindow) {
  UpdateCheckFeedbackWindow window;
  window.show({.kind = UpdateCheckFeedback::Kind::checking});
  QMessageBox* first = window.window();
  window.show({.kind = UpdateCheckFeedback::Kind::updateAvailable,
               .item = UpdateItem{"200", "<b>2.0</b>"}});
  ASSERT_EQ(window.window(), first);
  EXPECT_EQ(first->text(), QStringLiteral("ZEV Launcher <b>2.0</b> is available."));
  EXPECT_EQ(first->textFormat(), Qt::PlainText);
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
  StatusItemController& status = *delegate.statusController();
  status.togglePopover();
  status.popover()->findChild<QAbstractButton*>("checkUpdatesButton")->click();
  EXPECT_EQ(fakes.updater->count("userInitiated"), 1);
}

// ---- verification ----------------------------------------------------------

// A record that cannot be read, or whose resumed state cannot be saved (a
// file in the history's place), is not resumed.
TEST(UpdateVerification, AnUnreadableOrUnsavableRecordIsNotResumed) {
  for (bool corrupt : {true, false}) {
    SCOPED_TRACE(corrupt);
    UpdateTest t;
    t.saveAttempt(UpdateState::installing);
    fs::remove_all(t.store().transactionsDirectory());
    std::ofstream(corrupt ? t.store().activeURL() : t.store().transactionsDirectory()) << "{";
    t.coordinator->resumeUpdateVerificationIfNeeded();
    EXPECT_FALSE(t.coordinator->isVerifying());
    EXPECT_EQ(t.coordinator->healthRequestsStarted(), 0);
    EXPECT_THAT(t.log.messages(), ElementsAre(StartsWith("cannot resume update verification: ")));
  }
}

// Only an installing or verifying attempt is resumed; it ends as its samples
// and its deadline say, and says so once. The deadline is the saved updatedAt
// plus the window, fixed at start: a relaunch while verifying keeps it, a
// first launch after installing starts it. Samples in arrival order:
// h healthy, u unreachable (no usable answer), w wrong version (as is every
// sample past the script); one tick per scripted sample. Three healthy ones in
// a row certify; a missing sample does not break the row, an unhealthy one
// does (the verifier's own test has the rest of the rule).
TEST(UpdateVerification, EndsAsItsSamplesAndItsDeadlineSay) {
  using enum UpdateState;
  const std::string timedOut = "health certification timed out after ";
  const struct {
    const char* name;
    UpdateState state;
    std::chrono::milliseconds age;
    std::optional<std::string> bundleWindow;
    std::string answers;
    int requests;
    UpdateState after;
    std::optional<std::string> reason = std::nullopt;  // once finished
  } cases[] = {
      {"preparing stays put", preparing, 0s, {}, "", 0, preparing},
      {"certified stays put", certified, 0s, {}, "", 0, certified},
      {"failed stays put", failed, 0s, {}, "", 0, failed},
      {"rolled back stays put", rolledBack, 0s, {}, "", 0, rolledBack},
      {"began exactly 180 s ago", verifying, 180s, {}, "", 0, failed, timedOut + "180 seconds"},
      {"began 179.999 s ago", verifying, 179999ms, {}, "", 1, verifying},
      {"installing long ago: the window starts now", installing, 3600s, {}, "", 1, verifying},
      {"bundle window of 30 s", verifying, 31s, "30", "", 0, failed, timedOut + "30 seconds"},
      {"unusable bundle window means 180 s", verifying, 31s, "thirty", "", 1, verifying},
      {"zero bundle window means 180 s", verifying, 31s, "0", "", 1, verifying},
      // "left over", the installing record's reason, is cleared.
      {"hhuuh", installing, 0s, {}, "hhuuh", 5, certified},
      {"hwhhh", installing, 0s, {}, "hwhhh", 5, certified},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    UpdateTest t;
    t.serve([answers = c.answers](int n) -> testing::HealthServer::Response {
      const char kind = n < int(answers.size()) ? answers[n] : 'w';
      return {kind == 'u' ? 500 : 200, kind == 'h' ? healthyTarget : kind == 'u' ? "{}" : healthy};
    });
    if (c.bundleWindow) t.bundleInfo.values["ZEVCertificationWindowSeconds"] = c.bundleWindow;
    t.saveAttempt(c.state, c.age);
    t.resumeAndTick(int(c.answers.size()));
    EXPECT_EQ(t.coordinator->healthRequestsStarted(), c.requests);
    EXPECT_EQ(t.coordinator->isVerifying(), c.after == verifying);
    const UpdateTransaction record = *t.store().loadActive();
    EXPECT_EQ(record.state(), c.after);
    const bool ends = c.after != c.state && c.after != verifying;
    EXPECT_THAT(t.log.messages(), SizeIs(ends));
    if (!ends) continue;
    EXPECT_EQ(record.failureReason(), c.reason);
    EXPECT_EQ(record.updatedAt(), t.now());
    EXPECT_THAT(t.log.messages(),
                ElementsAre("update 2.0.0 finished state=" + std::string(rawValue(c.after))));
    EXPECT_THAT(t.finished, ElementsAre(record));
  }
}

TEST(UpdateVerification, TicksDoNotWaitForEachOther) {
  UpdateTest t;
  t.serveAlways({200, healthyTarget, 2s});
  t.saveAttempt(UpdateState::installing);
  t.coordinator->resumeUpdateVerificationIfNeeded();
  t.coordinator->tickVerificationForTesting();
  t.coordinator->tickVerificationForTesting();
  EXPECT_EQ(t.coordinator->healthRequestsStarted(), 3);
}

// Certifying prunes the archives retention does not keep; a recorded path
// outside the archive root stops the pruning, after the state is saved.
TEST(UpdateVerification, CertifyingPrunesArchivesUpToAPathOutsideTheRoot) {
  // Where a stray record's archive lies, relative to the reliability directory.
  for (const char* stray : {"", "outside", "archives/deeper/x"}) {
    SCOPED_TRACE(stray);
    UpdateTest t;
    t.serveAlways({200, healthyTarget});
    const fs::path archives = t.reliability() / "archives";
    if (*stray) t.saveAttempt(UpdateState::rolledBack, 1s, t.reliability() / stray);
    // The oldest certified one goes; the current one, certified now, is the newest.
    t.saveAttempt(UpdateState::certified, 400s, archives / "certified-1");
    t.saveAttempt(UpdateState::certified, 300s, archives / "certified-2");
    t.saveAttempt(UpdateState::certified, 200s, archives / "certified-3");
    t.saveAttempt(UpdateState::failed, 100000s, archives / "failed");
    t.saveAttempt(UpdateState::rolledBack, 1s, archives / "rolled-back");
    t.saveAttempt(UpdateState::installing, 1s, archives / "current");
    t.resumeAndTick(2);
    EXPECT_EQ(t.store().loadActive()->state(), UpdateState::certified);
    std::set<std::string> left;
    for (const auto& entry : fs::directory_iterator(archives))
      left.insert(entry.path().filename().string());
    if (!*stray) {
      EXPECT_THAT(left, ElementsAre("certified-2", "certified-3", "current", "failed"));
      continue;
    }
    EXPECT_TRUE(fs::exists(t.reliability() / stray));
    EXPECT_THAT(t.log.messages(),
                ElementsAre(StartsWith("update result persistence failed: archive path"),
                            "update 2.0.0 finished state=certified"));
  }
}

// ---- the push watcher ------------------------------------------------------

// Creates `file` if need be and sets its modification time.
void touch(const fs::path& file, long seconds, long nanoseconds = 0) {
  std::ofstream(file, std::ios::app).flush();
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

TEST(UpdatePushWatcher, OnlyAStrictlyLaterModificationTriggersACheck) {
  // One sentinel's story: a step sets its mtime (creating it), removes it
  // ("rm") or polls, after which so many background checks have been asked for.
  const std::pair<std::string, int> steps[] = {
      {"poll", 0},                                     // absent
      {"1000", 0}, {"poll", 1}, {"poll", 1},           // present at start
      {"1000", 1}, {"poll", 1},                        // same date again
      {"999", 1},  {"poll", 1},                        // set back in time
      {"1000.1", 1}, {"poll", 2},                      // newer by a nanosecond
      {"rm", 2},   {"poll", 2}, {"900", 2}, {"poll", 2},  // recreated older
      {"rm", 2},   {"1005", 2}, {"poll", 3},           // recreated newer
  };
  UpdateTest t;
  t.coordinator->startSparkle();
  const fs::path sentinel = t.coordinator->sentinelPath();
  for (int row = 0; const auto& [step, checks] : steps) {
    SCOPED_TRACE(row++);
    if (step == "poll") {
      t.coordinator->checkUpdateSentinel();
    } else if (step == "rm") {
      fs::remove(sentinel);
    } else {
      const std::size_t dot = step.find('.');
      touch(sentinel, std::stol(step.substr(0, dot)),
            dot == std::string::npos ? 0 : std::stol(step.substr(dot + 1)));
    }
    EXPECT_EQ(t.updater.count("background"), checks);
  }
}

// The timer's first poll comes after an interval, not at once; without an
// updater the trigger is logged all the same.
TEST(UpdatePushWatcher, TimerPollsAndLogsTheTriggerWithItsDate) {
  for (bool updater : {true, false}) {
    SCOPED_TRACE(updater);
    UpdateTest t;
    if (updater) t.coordinator->startSparkle();
    t.coordinator->setSentinelIntervalForTesting(50ms);
    touch(t.coordinator->sentinelPath(), 1'700'000'000);
    t.coordinator->startUpdatePushWatcher();
    t.log.clear();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !t.log.messages().empty(); }, 10000));
    QTest::qWait(120);  // more polls: the date is remembered
    EXPECT_THAT(t.log.messages(),
                ElementsAre("update push sentinel touched (mtime=2023-11-14 22:13:20 +0000); "
                            "triggering Sparkle check"));
    EXPECT_EQ(t.updater.count("background"), updater ? 1 : 0);
  }
}

}  // namespace
}  // namespace zev
