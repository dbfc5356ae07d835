#include "core/health/health_status.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace zev {
namespace {

// `ok` is never part of the verdict.
HealthSummary summaryWith(int64_t total, int64_t live, std::optional<bool> degraded, double thumbs,
                          int64_t newestAge, bool ok = true) {
  return {.ok = ok, .liveStreams = live, .totalStreams = total, .newestFrameAgeMS = newestAge,
          .thumbDropRatio = thumbs, .degraded = degraded};
}

TEST(ClassifyHealth, RulesApplyInOrder) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* name;
    std::optional<HealthSummary> summary;
    HealthStatus expected;
  } cases[] = {
      {"no summary", std::nullopt, HealthStatus::red},
      {"nothing configured beats none live", summaryWith(0, 0, false, 0, 0), HealthStatus::yellow},
      {"configured, none live", summaryWith(4, 0, false, 0, 0), HealthStatus::red},
      {"daemon verdict wins over stale frame", summaryWith(4, 1, false, 0.9, 60000), HealthStatus::green},
      {"daemon says degraded", summaryWith(4, 4, true, 0, 10), HealthStatus::yellow},
      {"thumb ratio at limit", summaryWith(4, 4, std::nullopt, 0.2, 10), HealthStatus::yellow},
      {"thumb ratio NaN", summaryWith(4, 4, std::nullopt, kNaN, 10), HealthStatus::yellow},
      {"just fresh, just below ratio", summaryWith(4, 4, std::nullopt, 0.19, 1999, false), HealthStatus::green},
      {"frame age at limit", summaryWith(4, 4, std::nullopt, 0, 2000), HealthStatus::yellow},
      {"negative frame age", summaryWith(4, 4, std::nullopt, 0, -1), HealthStatus::yellow},
      {"negative stream counts are not zero", summaryWith(-1, -1, std::nullopt, 0, 0), HealthStatus::green},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(classifyHealth(c.summary), c.expected);
  }
  EXPECT_EQ(healthStatusFromRawValue(rawValue(HealthStatus::yellow)), HealthStatus::yellow);
  EXPECT_FALSE(healthStatusFromRawValue("Green").has_value());
}

}  // namespace
}  // namespace zev
