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
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing::Stream;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string healthyTarget = healthDocument("2.0.0", {Stream{}});
const std::string healthyOld = healthDocument("1.0.0", {Stream{}});

class VerificationTest : public testing::UpdateHarness {
 public:
  VerificationTest() {
    // Ticks only when the test says so (the first one still comes at once).
    coordinator().setVerificationIntervalForTesting(std::chrono::hours(1));
    coordinator().onUpdateFinished = [this](const UpdateTransaction& t) { finished.push_back(t); };
  }

  // An attempt at 2.0.0 with a baseline of one healthy stream, in `state`,
  // last updated `age` ago, saved as the active record.
  UpdateTransaction saveAttempt(UpdateState state, std::chrono::milliseconds age = 0ms,
                                std::string archive = {}) {
    UpdateBaseline baseline;
    baseline.capturedAt = now() - age;
    baseline.configuredStreamCount = 1;
    baseline.streams = {BaselineStream{"cam1/main", false, std::nullopt}};
    if (archive.empty()) archive = (reliability() / "archives" / "ZEV.app.A").string();
    UpdateTransaction t("1.0.0", "2.0.0", baseline, archive, now() - age, Uuid::random());
    t.setState(state);
    if (state == UpdateState::installing) t.setFailureReason("left over");
    store().save(t);
    return t;
  }

  // Resumes, then lets `extraTicks` further ticks run, each waiting for its sample.
  void resumeAndTick(int extraTicks) {
    {
      QSignalSpy handled(&coordinator(), &UpdateCoordinator::healthSampleHandled);
      coordinator().resumeUpdateVerificationIfNeeded();
      if (coordinator().healthRequestsStarted() > 0)
        ASSERT_TRUE(handled.count() || handled.wait(10000));
    }
    for (int i = 0; i < extraTicks && coordinator().isVerifying(); ++i) {
      QSignalSpy handled(&coordinator(), &UpdateCoordinator::healthSampleHandled);
      coordinator().tickVerificationForTesting();
      ASSERT_TRUE(handled.wait(10000));
    }
  }

  std::vector<UpdateTransaction> finished;
};

TEST(VerificationTest, OnlyInstallingOrVerifyingAttemptsAreResumed) {
  for (UpdateState state : {UpdateState::preparing, UpdateState::certified, UpdateState::failed,
                            UpdateState::rolledBack}) {
    SCOPED_TRACE(std::string(rawValue(state)));
    VerificationTest t;
    t.serveAlways({200, healthyTarget});
    t.saveAttempt(state);
    const fs::path active = t.store().activeURL();
    const auto before = fs::last_write_time(active);
    t.coordinator().resumeUpdateVerificationIfNeeded();
    EXPECT_FALSE(t.coordinator().isVerifying());
    EXPECT_EQ(t.coordinator().healthRequestsStarted(), 0);
    EXPECT_EQ(fs::last_write_time(active), before);
    EXPECT_THAT(t.log.entries(), IsEmpty());
  }
}

TEST(VerificationTest, UnreadableOrUnsavableRecordIsLoggedAndNothingStarts) {
  const std::pair<const char*, std::function<void(VerificationTest&)>> cases[] = {
      {"corrupt active file",
       [](VerificationTest& t) {
         fs::create_directories(t.reliability());
         std::ofstream(t.store().activeURL()) << "{\"id\":";
       }},
      {"history directory in the way of the save",
       [](VerificationTest& t) {
         t.saveAttempt(UpdateState::installing);
         fs::remove_all(t.store().transactionsDirectory());
         std::ofstream(t.store().transactionsDirectory()) << "a file";
       }},
  };
  for (const auto& [name, arrange] : cases) {
    SCOPED_TRACE(name);
    VerificationTest t;
    arrange(t);
    t.coordinator().resumeUpdateVerificationIfNeeded();
    EXPECT_FALSE(t.coordinator().isVerifying());
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, testing::LogEntry::Level::error);
    EXPECT_THAT(entries[0].message, StartsWith("cannot resume update verification: "));
  }
}

// The deadline is the saved updatedAt plus the window, fixed at start: a
// relaunch while verifying keeps it, a first launch after installing starts it.
TEST(VerificationTest, DeadlineIsFixedFromTheSavedUpdateTime) {
  struct Case {
    const char* name;
    UpdateState state;
    std::chrono::milliseconds age;
    std::optional<std::string> plistWindow;
    std::optional<std::string> failure;  // none: the first tick asks for health
  };
  const Case cases[] = {
      {"verifying, began 181 s ago", UpdateState::verifying, 181s, std::nullopt,
       "health certification timed out after 180 seconds"},
      {"verifying, began exactly 180 s ago", UpdateState::verifying, 180s, std::nullopt,
       "health certification timed out after 180 seconds"},
      {"verifying, began 179.999 s ago", UpdateState::verifying, 179999ms, std::nullopt,
       std::nullopt},
      {"installing long ago: the window starts now", UpdateState::installing, 3600s, std::nullopt,
       std::nullopt},
      {"bundle window of 30 s", UpdateState::verifying, 31s, "30",
       "health certification timed out after 30 seconds"},
      {"bundle window of 30 s, not yet over", UpdateState::verifying, 29s, "30", std::nullopt},
      {"unusable bundle window means 180 s", UpdateState::verifying, 31s, "thirty", std::nullopt},
      {"zero bundle window means 180 s", UpdateState::verifying, 31s, "0", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    VerificationTest t;
    t.serveAlways({200, healthyOld});  // the old version: never certifies
    if (c.plistWindow) t.bundleInfo.values["ZEVCertificationWindowSeconds"] = c.plistWindow;
    const UpdateTransaction saved = t.saveAttempt(c.state, c.age);
    t.resumeAndTick(0);
    if (c.failure) {
      EXPECT_EQ(t.coordinator().healthRequestsStarted(), 0);
      EXPECT_FALSE(t.coordinator().isVerifying());
      const std::optional<UpdateTransaction> record = t.store().loadActive();
      EXPECT_EQ(record->state(), UpdateState::failed);
      EXPECT_EQ(record->failureReason(), c.failure);
      EXPECT_EQ(record->updatedAt(), t.now());
      EXPECT_THAT(t.log.messages(), ElementsAre("update 2.0.0 finished state=failed"));
    } else {
      EXPECT_EQ(t.coordinator().healthRequestsStarted(), 1);
      EXPECT_TRUE(t.coordinator().isVerifying());
      EXPECT_EQ(t.store().loadActive()->state(), UpdateState::verifying);
    }
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
      if (kind == 'h') return {200, healthyTarget};
      if (kind == 'w') return {200, healthyOld};
      return {500, "{}"};
    });
    t.saveAttempt(UpdateState::installing);
    t.resumeAndTick(int(answers.size()) - 1);
    if (certifiedAfter < 0) {
      EXPECT_TRUE(t.coordinator().isVerifying());
      EXPECT_TRUE(t.finished.empty());
      continue;
    }
    EXPECT_EQ(t.coordinator().healthRequestsStarted(), certifiedAfter);
    EXPECT_FALSE(t.coordinator().isVerifying());
    const UpdateTransaction record = *t.store().loadActive();
    EXPECT_EQ(record.state(), UpdateState::certified);
    EXPECT_EQ(record.failureReason(), std::nullopt);  // "left over" is cleared
    EXPECT_EQ(t.store().loadAll(), std::vector{record});
    EXPECT_THAT(t.log.messages(), ElementsAre("update 2.0.0 finished state=certified"));
    ASSERT_EQ(t.finished.size(), 1u);
    EXPECT_EQ(t.finished[0], record);
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

TEST(VerificationTest, PruningKeepsWhatRetentionKeepsAndRemovesTheRest) {
  VerificationTest t;
  t.serveAlways({200, healthyTarget});
  const fs::path archives = t.reliability() / "archives";
  const auto attempt = [&](const char* name, UpdateState state, std::chrono::seconds age) {
    fs::create_directories(archives / name);
    t.saveAttempt(state, age, (archives / name).string());
  };
  attempt("certified-1", UpdateState::certified, 400s);  // the oldest certified: goes
  attempt("certified-2", UpdateState::certified, 300s);
  attempt("certified-3", UpdateState::certified, 200s);
  attempt("failed", UpdateState::failed, 100000s);
  attempt("rolled-back", UpdateState::rolledBack, 1s);
  attempt("current", UpdateState::installing, 1s);  // certified now: the newest
  t.resumeAndTick(2);
  ASSERT_FALSE(t.coordinator().isVerifying());

  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(archives)) {
    left.push_back(entry.path().filename().string());
  }
  std::sort(left.begin(), left.end());
  EXPECT_THAT(left, ElementsAre("certified-2", "certified-3", "current", "failed"));
}

TEST(VerificationTest, PruningStopsAtAPathOutsideTheArchiveRootAfterTheStateIsSaved) {
  const char* paths[] = {"outside", "archives/deeper/x", "archives-old/x", "archives"};
  for (const char* relative : paths) {
    SCOPED_TRACE(relative);
    VerificationTest t;
    t.serveAlways({200, healthyTarget});
    const fs::path stray = t.reliability() / relative;
    fs::create_directories(stray);
    t.saveAttempt(UpdateState::rolledBack, 1s, stray.string());
    t.saveAttempt(UpdateState::installing);
    t.resumeAndTick(2);
    ASSERT_FALSE(t.coordinator().isVerifying());
    EXPECT_EQ(t.store().loadActive()->state(), UpdateState::certified);
    EXPECT_TRUE(fs::exists(stray));
    const std::vector<testing::LogEntry> entries = t.log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].level, testing::LogEntry::Level::error);
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
  struct Case {
    const char* name;
    std::vector<std::string> steps;
    int checks;
  };
  const Case cases[] = {
      {"absent", {"poll", "poll"}, 0},
      {"present at start: one check on the first poll", {"1000", "poll", "poll"}, 1},
      {"touched twice within an interval", {"1000", "poll", "1001", "1002", "poll"}, 2},
      {"newer by a nanosecond", {"1000", "poll", "1000.1", "poll"}, 2},
      {"set back in time", {"1000", "poll", "999", "poll"}, 1},
      {"same date again", {"1000", "poll", "1000", "poll"}, 1},
      {"recreated newer", {"1000", "poll", "rm", "poll", "1005", "poll"}, 2},
      {"recreated older", {"1000", "poll", "rm", "poll", "900", "poll"}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::UpdateHarness t;
    t.coordinator().startSparkle();
    const fs::path sentinel = t.coordinator().sentinelPath();
    for (const std::string& step : c.steps) {
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
    EXPECT_EQ(t.updater.count("background"), c.checks);
  }
}

TEST(PushWatcherTest, TriggerIsLoggedWithTheDateAndWithoutAnUpdaterChecksNothing) {
  testing::UpdateHarness t;  // the updater is never started
  const fs::path sentinel = t.coordinator().sentinelPath();
  std::ofstream(sentinel).flush();
  setModificationTime(sentinel, 1'700'000'000);
  t.coordinator().checkUpdateSentinel();
  EXPECT_THAT(t.log.messages(),
              ElementsAre("update push sentinel touched (mtime=2023-11-14 22:13:20 +0000); "
                          "triggering Sparkle check"));
  EXPECT_EQ(t.updater.count("background"), 0);
  // The date is remembered all the same.
  t.coordinator().checkUpdateSentinel();
  EXPECT_EQ(t.log.messages().size(), 1u);
}

TEST(PushWatcherTest, TimerPollsEveryIntervalNotAtOnce) {
  testing::UpdateHarness t;
  t.coordinator().startSparkle();
  t.coordinator().setSentinelIntervalForTesting(50ms);
  std::ofstream(t.coordinator().sentinelPath()).flush();
  t.log.clear();
  t.coordinator().startUpdatePushWatcher();
  EXPECT_THAT(t.log.messages(), ElementsAre("update push watcher started; sentinel=" +
                                            t.coordinator().sentinelPath()));
  EXPECT_EQ(t.updater.count("background"), 0);  // not fired at once
  QElapsedTimer waited;
  waited.start();
  while (t.updater.count("background") == 0 && waited.elapsed() < 10000) QTest::qWait(20);
  EXPECT_EQ(t.updater.count("background"), 1);
}

}  // namespace
}  // namespace zev
