// Reduces the latest health document, or its absence, to the colour of the
// status dot. Pure functions; safe on any thread.
#ifndef ZEV_CORE_HEALTH_STATUS_H_
#define ZEV_CORE_HEALTH_STATUS_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "core/health/health_summary.h"

namespace zev {

enum class HealthStatus { green, yellow, red };

// "green", "yellow", "red".
std::string_view rawValue(HealthStatus status);
// The inverse of rawValue; exact and case-sensitive.
std::optional<HealthStatus> healthStatusFromRawValue(std::string_view raw);

// A newest frame this many milliseconds old, or older, is stale.
inline constexpr int64_t healthFreshFrameMaxMS = 2000;
// A thumbnail drop ratio of this or more is too high.
inline constexpr double healthThumbDropMaxRatio = 0.2;

// No summary: red. No streams configured: yellow. None live: red. Then the
// daemon's own `degraded` verdict when it gives one; otherwise yellow for a
// high thumbnail drop ratio (or one that is not a number) or a newest frame
// age outside [0, healthFreshFrameMaxMS), green for the rest.
HealthStatus classifyHealth(const HealthSummary& summary);
HealthStatus classifyHealth(const std::optional<HealthSummary>& summary);

}  // namespace zev

#endif  // ZEV_CORE_HEALTH_STATUS_H_
