#include "core/health/health_status.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace zev {
namespace {

HealthSummary summaryWith(int64_t total, int64_t live, std::optional<bool> degraded, double thumbs,
                     int64_t newestAge) {
  HealthSummary summary;
  summary.totalStreams = total;
  summary.liveStreams = live;
  summary.degraded = degraded;
  summary.thumbDropRatio = thumbs;
  summary.newestFrameAgeMS = newestAge;
  return summary;
}

TEST(ClassifyHealth, RulesApplyInOrder) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    const char* name;
    std::optional<HealthSummary> summary;
    HealthStatus expected;
  };
  const std::vector<Case> cases = {
      {"no summary", std::nullopt, HealthStatus::red},
      {"nothing configured beats none live", summaryWith(0, 0, std::nullopt, 0, 0), HealthStatus::yellow},
      {"nothing configured beats degraded false", summaryWith(0, 0, false, 0, 0), HealthStatus::yellow},
      {"configured, none live", summaryWith(4, 0, false, 0, 0), HealthStatus::red},
      {"daemon verdict wins over stale frame", summaryWith(4, 1, false, 0.9, 60000), HealthStatus::green},
      {"daemon says degraded", summaryWith(4, 4, true, 0, 10), HealthStatus::yellow},
      {"thumb ratio at limit", summaryWith(4, 4, std::nullopt, 0.2, 10), HealthStatus::yellow},
      {"thumb ratio NaN", summaryWith(4, 4, std::nullopt, kNaN, 10), HealthStatus::yellow},
      {"just fresh, just below ratio", summaryWith(4, 4, std::nullopt, 0.19, 1999), HealthStatus::green},
      {"frame age at limit", summaryWith(4, 4, std::nullopt, 0, 2000), HealthStatus::yellow},
      {"negative frame age", summaryWith(4, 4, std::nullopt, 0, -1), HealthStatus::yellow},
      {"frame age zero", summaryWith(4, 4, std::nullopt, 0, 0), HealthStatus::green},
      {"negative ratio is below the limit", summaryWith(4, 4, std::nullopt, -1, 0), HealthStatus::green},
      {"negative stream counts are not zero", summaryWith(-1, -1, std::nullopt, 0, 0), HealthStatus::green},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(classifyHealth(c.summary), c.expected);
  }
}

TEST(ClassifyHealth, IgnoresOkCamerasAndRoute) {
  HealthSummary summary = summaryWith(4, 4, std::nullopt, 0.01, 100);
  summary.ok = false;
  summary.cpuPercent = 400;
  summary.worstFrameAgeMS = 999999;
  summary.cameras.push_back(HealthCamera{"c", "c", false, 999999, {}, {}, {}});
  summary.defaultRoute = HealthDefaultRoute{"wlan0", "wifi", 5, "n"};
  EXPECT_EQ(classifyHealth(summary), HealthStatus::green);
}

TEST(HealthStatusRawValue, RoundTripsExactly) {
  for (HealthStatus status : {HealthStatus::green, HealthStatus::yellow, HealthStatus::red}) {
    EXPECT_EQ(healthStatusFromRawValue(rawValue(status)), status);
  }
  EXPECT_EQ(rawValue(HealthStatus::yellow), "yellow");
  EXPECT_FALSE(healthStatusFromRawValue("Green").has_value());
  EXPECT_FALSE(healthStatusFromRawValue("").has_value());
}

}  // namespace
}  // namespace zev
