// The simulated health document over time: whatever the instant, each
// scenario must keep its colour and its figures must agree with its cameras,
// or the demo and the end-to-end tests flicker for no reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"
#include "health_document.h"

namespace zev {
namespace {

constexpr int64_t kStartMS = 1795219200000;  // 2026-11-21T00:00:00Z

std::optional<HealthSummary> summaryAt(sim::Scenario scenario, int64_t nowMS) {
  sim::SimState state;
  state.scenario = scenario;
  return decodeHealth(sim::healthDocument(state, kStartMS, nowMS).dump());
}

TEST(ZevdSimDocument, EachScenarioKeepsItsColourAndConsistentFiguresAtEveryInstant) {
  const struct {
    sim::Scenario scenario;
    HealthStatus status;
    int64_t liveCameras, totalCameras;
  } cases[] = {
      {sim::Scenario::healthy, HealthStatus::green, 4, 4},
      {sim::Scenario::partial, HealthStatus::green, 2, 4},
      {sim::Scenario::degraded, HealthStatus::yellow, 3, 4},
      {sim::Scenario::noStreams, HealthStatus::yellow, 0, 0},
      {sim::Scenario::allDown, HealthStatus::red, 0, 4},
      {sim::Scenario::staleFrames, HealthStatus::yellow, 4, 4},
      {sim::Scenario::thumbDrops, HealthStatus::yellow, 4, 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(sim::scenarioName(c.scenario)));
    // Two minutes in odd steps, so every frame period, segment and wobble is
    // sampled at many phases; then a day later.
    std::vector<int64_t> offsets = {86400000, 86400000 + 61};
    for (int64_t offset = 0; offset < 120000; offset += 397) offsets.push_back(offset);
    for (const int64_t offset : offsets) {
      const int64_t now = kStartMS + offset;
      SCOPED_TRACE(offset);
      const auto summary = summaryAt(c.scenario, now);
      ASSERT_TRUE(summary.has_value());
      ASSERT_EQ(classifyHealth(summary), c.status);
      EXPECT_EQ(summary->liveCameras(), c.liveCameras);
      EXPECT_EQ(summary->totalCameras(), c.totalCameras);
      // Green comes from the figures, never from a verdict of the daemon's own.
      EXPECT_EQ(summary->degraded.has_value(), c.scenario == sim::Scenario::degraded);
      if (c.scenario == sim::Scenario::degraded) {
        EXPECT_EQ(summary->degradedIssueCount(), 5);  // three listed, "more:2"
        EXPECT_TRUE(summary->defaultRoute && summary->defaultRoute->isWarning());
      }

      int64_t live = 0, total = 0, newestLive = INT64_MAX, newestAny = INT64_MAX;
      for (const HealthCamera& camera : summary->cameras) {
        ASSERT_TRUE(camera.streams.has_value());
        newestAny = std::min(newestAny, camera.frameAgeMS);
        if (camera.live) newestLive = std::min(newestLive, camera.frameAgeMS);
        bool anyLive = false;
        for (const HealthStream& stream : *camera.streams) {
          if (!stream.enabled) continue;
          ++total;
          live += stream.live;
          anyLive = anyLive || stream.live;
          EXPECT_GE(stream.frameAgeMS, 0);
          EXPECT_LE(stream.lastSegmentMS.value_or(now), now);
          if (stream.live && stream.lastSegmentMS) {
            EXPECT_GT(*stream.lastSegmentMS, now - sim::kSegmentMS);
          }
          EXPECT_EQ(stream.recording, stream.live && stream.lastSegmentMS.has_value());
        }
        EXPECT_EQ(camera.live, anyLive);
      }
      ASSERT_EQ(summary->liveStreams, live);
      ASSERT_EQ(summary->totalStreams, total);
      EXPECT_GE(summary->worstFrameAgeMS.value_or(INT64_MAX), summary->newestFrameAgeMS);
      EXPECT_EQ(summary->ok, summary->liveCameras() > 0 || summary->cameras.empty());
      // The newest frame is the youngest live camera's; with none live, any camera's.
      if (!summary->cameras.empty()) {
        EXPECT_EQ(summary->newestFrameAgeMS, newestLive != INT64_MAX ? newestLive : newestAny);
      }
    }
  }
}

}  // namespace
}  // namespace zev
