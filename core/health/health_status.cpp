#include "core/health/health_status.h"

namespace zev {

std::string_view rawValue(HealthStatus status) {
  switch (status) {
    case HealthStatus::green:
      return "green";
    case HealthStatus::yellow:
      return "yellow";
    case HealthStatus::red:
      return "red";
  }
  return "red";
}

std::optional<HealthStatus> healthStatusFromRawValue(std::string_view raw) {
  for (HealthStatus status : {HealthStatus::green, HealthStatus::yellow, HealthStatus::red}) {
    if (rawValue(status) == raw) return status;
  }
  return std::nullopt;
}

HealthStatus classifyHealth(const HealthSummary& summary) {
  if (summary.totalStreams == 0) return HealthStatus::yellow;
  if (summary.liveStreams == 0) return HealthStatus::red;
  if (summary.degraded.has_value()) {
    // The daemon's own verdict overrides the frame-age and thumbnail rules.
    return *summary.degraded ? HealthStatus::yellow : HealthStatus::green;
  }
  // Written as "not below" so that a NaN ratio counts as too high.
  const bool thumbsDropping = !(summary.thumbDropRatio < healthThumbDropMaxRatio);
  const bool frameStale =
      summary.newestFrameAgeMS < 0 || summary.newestFrameAgeMS >= healthFreshFrameMaxMS;
  return thumbsDropping || frameStale ? HealthStatus::yellow : HealthStatus::green;
}

HealthStatus classifyHealth(const std::optional<HealthSummary>& summary) {
  return summary ? classifyHealth(*summary) : HealthStatus::red;
}

}  // namespace zev
