// After the relaunch: resuming the verification, its deadline, certifying,
// archive pruning, and the sentinel that asks for a background check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QElapsedTimer>
#include <QTest>
#include <algorithm>
#include <fstream>

#include "app/fakes/qt_test_main.h"
#include "app/updates/update_coordinator_fixture.h"
#include "core/updates/update_state.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using testing::healthDocument;
using ::testing::StartsWith;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string healthyTarget = healthDocument("2.0.0");
const std::string healthyOld = healthDocument("1.0.0");

class VerificationTest : public testing::UpdateHarness {
 public:
  VerificationTest() {
    // Ticks only when the test says so (the first one still comes at once).
    coordinator().setVerificationIntervalForTesting(std::chrono::hours(1));
    coordinator().onUpdateFinished = [this](const UpdateTransaction& t) { finished.push_back(t); };
  }

  // Saves as the active record an attempt at 2.0.0 with a baseline of one
  // healthy stream, in `state`, last updated `age` ago.
  void saveAttempt(UpdateState state, std::chrono::milliseconds age = 0ms,
                   std::string archive = {}) {
    const UpdateBaseline baseline{now() - age, 1, {{"cam1/main", false, std::nullopt}}};
    if (archive.empty()) archive = (reliability() / "archives" / "ZEV.app.A").string();
    UpdateTransaction t("1.0.0", "2.0.0", baseline, archive, now() - age, Uuid::random());
    t.setState(state);
    if (state == UpdateState::installing) t.setFailureReason("left over");
    store().save(t);
  }

  // Resumes, then lets `extraTicks` further ticks run, each waiting for its
  // sample.
  void resumeAndTick(int extraTicks) {
    QSignalSpy handled(&coordinator(), &UpdateCoordinator::healthSampleHandled);
    coordinator().resumeUpdateVerificationIfNeeded();
    if (coordinator().healthRequestsStarted() > 0)
      ASSERT_TRUE(handled.count() || handled.wait(10000));
    for (int i = 0; i < extraTicks && coordinator().isVerifying(); ++i) {
      coordinator().tickVerificationForTesting();
      ASSERT_TRUE(handled.wait(10000));
    }
  }

  std::vector<UpdateTransaction> finished;
};

TEST(VerificationTest, OnlyAReadableInstallingOrVerifyingRecordIsResumed) {
  // Four states that stay put, a corrupt record, and one whose resumed state cannot be saved.
  for (const char* kind :
       {"preparing", "certified", "failed", "rolled_back", "corrupt", "unsavable"}) {
    SCOPED_TRACE(kind);
    VerificationTest t;
    t.serveAlways({200, healthyTarget});
    const std::optional<UpdateState> state = updateStateFromRawValue(kind);
    t.saveAttempt(state.value_or(UpdateState::installing));
    if (!state) {  // "corrupt" cuts the active file, "unsavable" puts a file in the history's place
      fs::remove_all(t.store().transactionsDirectory());
      const bool corrupt = std::string(kind) == "corrupt";
      std::ofstream(corrupt ? t.store().activeURL() : t.store().transactionsDirectory()) << "{";
    }
    t.coordinator().resumeUpdateVerificationIfNeeded();
    EXPECT_FALSE(t.coordinator().isVerifying());
    EXPECT_EQ(t.coordinator().healthRequestsStarted(), 0);
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), state ? 0u : 1u);
    if (state) continue;
    EXPECT_EQ(entries[0].level, testing::LogEntry::Level::error);
    EXPECT_THAT(entries[0].message, StartsWith("cannot resume update verification: "));
  }
}

// The deadline is the saved updatedAt plus the window, fixed at start: a
// relaunch while verifying keeps it, a first launch after installing starts it.
TEST(VerificationTest, DeadlineIsFixedFromTheSavedUpdateTime) {
  const struct {
    const char* name;
    UpdateState state;
    std::chrono::milliseconds age;
    std::optional<std::string> bundleWindow;
    int timedOutAfter;  // seconds; 0: the first tick asks for health
  } cases[] = {
      {"verifying, began exactly 180 s ago", UpdateState::verifying, 180s, {}, 180},
      {"verifying, began 179.999 s ago", UpdateState::verifying, 179999ms, {}, 0},
      {"installing long ago: the window starts now", UpdateState::installing, 3600s, {}, 0},
      {"bundle window of 30 s", UpdateState::verifying, 31s, "30", 30},
      {"unusable bundle window means 180 s", UpdateState::verifying, 31s, "thirty", 0},
      {"zero bundle window means 180 s", UpdateState::verifying, 31s, "0", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    VerificationTest t;
    t.serveAlways({200, healthyOld});  // the old version: never certifies
    if (c.bundleWindow) t.bundleInfo.values["ZEVCertificationWindowSeconds"] = c.bundleWindow;
    t.saveAttempt(c.state, c.age);
    t.resumeAndTick(0);
    EXPECT_EQ(t.coordinator().healthRequestsStarted(), c.timedOutAfter ? 0 : 1);
    EXPECT_EQ(t.coordinator().isVerifying(), !c.timedOutAfter);
    const UpdateTransaction record = *t.store().loadActive();
    if (!c.timedOutAfter) {
      EXPECT_EQ(record.state(), UpdateState::verifying);
      continue;
    }
    EXPECT_EQ(record.state(), UpdateState::failed);
    EXPECT_EQ(record.failureReason(), "health certification timed out after " +
                                          std::to_string(c.timedOutAfter) + " seconds");
    EXPECT_EQ(record.updatedAt(), t.now());
    EXPECT_THAT(t.log.messages(), ElementsAre("update 2.0.0 finished state=failed"));
  }
}

// Samples in arrival order: h healthy, u unreachable (no usable answer),
// w wrong version. Certification needs three healthy ones in a row; a
// sample that is missing does not break the row, an unhealthy one does.
TEST(VerificationTest, ThreeHealthySamplesInARowCertify) {
  const std::pair<std::string, int> cases[] = {
      {"hhh", 3}, {"huhh", 4}, {"hhuuh", 5}, {"hwhh", -1}, {"hwhhh", 5}, {"uuuhhh", 6}, {"whhh", 4},
  };
  for (const auto& [answers, certifiedAfter] : cases) {
    SCOPED_TRACE(answers);
    VerificationTest t;
    t.serve([answers = answers](int n) -> testing::HealthServer::Response {
      const char kind = n < int(answers.size()) ? answers[n] : 'w';
      return {kind == 'u' ? 500 : 200, kind == 'u'   ? "{}"
                                       : kind == 'h' ? healthyTarget
                                                     : healthyOld};
    });
    t.saveAttempt(UpdateState::installing);
    t.resumeAndTick(int(answers.size()) - 1);
    EXPECT_EQ(t.coordinator().isVerifying(), certifiedAfter < 0);
    if (certifiedAfter < 0) continue;
    EXPECT_EQ(t.coordinator().healthRequestsStarted(), certifiedAfter);
    const UpdateTransaction record = *t.store().loadActive();
    EXPECT_EQ(record.state(), UpdateState::certified);
    EXPECT_EQ(record.failureReason(), std::nullopt);  // "left over" is cleared
    EXPECT_THAT(t.log.messages(), ElementsAre("update 2.0.0 finished state=certified"));
    EXPECT_THAT(t.finished, ElementsAre(record));
  }
}

TEST(VerificationTest, TicksDoNotWaitForEachOther) {
  VerificationTest t;
  t.serveAlways({200, healthyTarget, 2s});
  t.saveAttempt(UpdateState::installing);
  t.coordinator().resumeUpdateVerificationIfNeeded();
  t.coordinator().tickVerificationForTesting();
  t.coordinator().tickVerificationForTesting();
  EXPECT_EQ(t.coordinator().healthRequestsStarted(), 3);
}

// Certifying prunes the archives retention does not keep; a recorded path
// outside the archive root stops the pruning, after the state is saved.
TEST(VerificationTest, CertifyingPrunesArchivesUpToAPathOutsideTheRoot) {
  // Where a stray record's archive lies, relative to the reliability directory.
  for (const char* stray : {"", "outside", "archives/deeper/x"}) {
    SCOPED_TRACE(stray);
    VerificationTest t;
    t.serveAlways({200, healthyTarget});
    const fs::path archives = t.reliability() / "archives";
    const auto attempt = [&](const fs::path& archive, UpdateState state, std::chrono::seconds age) {
      fs::create_directories(archive);
      t.saveAttempt(state, age, archive.string());
    };
    if (*stray) attempt(t.reliability() / stray, UpdateState::rolledBack, 1s);
    // The oldest certified one goes; the current one, certified now, is the newest.
    attempt(archives / "certified-1", UpdateState::certified, 400s);
    attempt(archives / "certified-2", UpdateState::certified, 300s);
    attempt(archives / "certified-3", UpdateState::certified, 200s);
    attempt(archives / "failed", UpdateState::failed, 100000s);
    attempt(archives / "rolled-back", UpdateState::rolledBack, 1s);
    attempt(archives / "current", UpdateState::installing, 1s);
    t.resumeAndTick(2);
    ASSERT_FALSE(t.coordinator().isVerifying());
    EXPECT_EQ(t.store().loadActive()->state(), UpdateState::certified);
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(archives)) {
      left.push_back(entry.path().filename().string());
    }
    std::sort(left.begin(), left.end());
    if (!*stray) {
      EXPECT_THAT(left, ElementsAre("certified-2", "certified-3", "current", "failed"));
      continue;
    }
    EXPECT_TRUE(fs::exists(t.reliability() / stray));
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_THAT(entries[0].message, StartsWith("update result persistence failed: archive path"));
    EXPECT_EQ(entries[1], testing::info("update 2.0.0 finished state=certified"));
  }
}

// ---- the push watcher ------------------------------------------------------

void setModificationTime(const fs::path& file, long seconds, long nanoseconds = 0) {
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

TEST(PushWatcherTest, OnlyAStrictlyLaterModificationTriggersACheck) {
  // Steps: a number sets the sentinel's mtime (creating it), "rm" removes it,
  // "poll" runs one poll. Then the number of background checks asked for.
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"poll", "poll"}, 0},                                // absent
      {{"1000", "poll", "poll"}, 1},                        // present at start
      {{"1000", "poll", "1001", "1002", "poll"}, 2},        // touched twice in an interval
      {{"1000", "poll", "1000.1", "poll"}, 2},              // newer by a nanosecond
      {{"1000", "poll", "999", "poll"}, 1},                 // set back in time
      {{"1000", "poll", "1000", "poll"}, 1},                // same date again
      {{"1000", "poll", "rm", "poll", "1005", "poll"}, 2},  // recreated newer
      {{"1000", "poll", "rm", "poll", "900", "poll"}, 1},   // recreated older
  };
  for (int row = 0; const auto& [steps, checks] : cases) {
    SCOPED_TRACE(row++);
    testing::UpdateHarness t;
    t.coordinator().startSparkle();
    const fs::path sentinel = t.coordinator().sentinelPath();
    for (const std::string& step : steps) {
      if (step == "poll") {
        t.coordinator().checkUpdateSentinel();
      } else if (step == "rm") {
        fs::remove(sentinel);
      } else {
        std::ofstream(sentinel, std::ios::app).flush();
        const std::size_t dot = step.find('.');
        setModificationTime(sentinel, std::stol(step.substr(0, dot)),
                            dot == std::string::npos ? 0 : std::stol(step.substr(dot + 1)));
      }
    }
    EXPECT_EQ(t.updater.count("background"), checks);
  }
}

// The timer's first poll comes after an interval, not at once; without an
// updater the trigger is logged all the same.
TEST(PushWatcherTest, TimerPollsAndLogsTheTriggerWithItsDate) {
  for (bool updater : {true, false}) {
    SCOPED_TRACE(updater);
    testing::UpdateHarness t;
    if (updater) t.coordinator().startSparkle();
    t.coordinator().setSentinelIntervalForTesting(50ms);
    std::ofstream(t.coordinator().sentinelPath()).flush();
    setModificationTime(t.coordinator().sentinelPath(), 1'700'000'000);
    t.coordinator().startUpdatePushWatcher();
    t.log.clear();
    QElapsedTimer waited;
    waited.start();
    while (t.log.messages().empty() && waited.elapsed() < 10000) QTest::qWait(20);
    QTest::qWait(120);  // more polls: the date is remembered
    EXPECT_THAT(t.log.messages(),
                ElementsAre("update push sentinel touched (mtime=2023-11-14 22:13:20 +0000); "
                            "triggering Sparkle check"));
    EXPECT_EQ(t.updater.count("background"), updater ? 1 : 0);
  }
}

}  // namespace
}  // namespace zev
