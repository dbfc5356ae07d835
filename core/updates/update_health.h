// The update checks' view of the daemon's health: a flat list of streams with
// the daemon's build (UpdateHealth), and the snapshot taken of it before an
// update (UpdateBaseline), against which the new build is verified.
//
// Plain values, safe on any thread. JSON coding uses the field names as keys
// in declaration order; an optional field is omitted when absent and reads as
// absent when missing or null. Decoding throws DecodingError.
#ifndef ZEV_CORE_UPDATE_HEALTH_H_
#define ZEV_CORE_UPDATE_HEALTH_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/health/health_summary.h"
#include "core/support/timestamp.h"

namespace zev {

// The newest frame of a fresh stream is at most this old.
inline constexpr int64_t updateFreshFrameMaxMS = 5000;

// The freshness rule shared by baseline capture and verification:
// 0 <= frameAgeMS <= 5000, both ends inclusive; negative ages are stale.
constexpr bool isFreshFrameAge(int64_t frameAgeMS) {
  return static_cast<uint64_t>(frameAgeMS) < static_cast<uint64_t>(updateFreshFrameMaxMS + 1);
}

// One stream of one camera. `id` is the camera's id, "/", the stream's id.
struct UpdateStreamHealth {
  std::string id;
  bool enabled = false;
  bool live = false;
  int64_t frameAgeMS = 0;
  bool recording = false;
  std::optional<int64_t> lastSegmentMS;

  bool operator==(const UpdateStreamHealth&) const = default;
};

// The daemon's build and every stream of every camera, in document order.
// Built by HealthSummary::updateHealth().
struct UpdateHealth {
  HealthBuild build;
  std::vector<UpdateStreamHealth> streams;

  bool operator==(const UpdateHealth&) const = default;
};

// A stream that was healthy when the baseline was taken.
struct BaselineStream {
  std::string id;
  bool recording = false;
  std::optional<int64_t> lastSegmentMS;

  bool operator==(const BaselineStream&) const = default;
};

// The health snapshot taken before an update.
struct UpdateBaseline {
  Timestamp capturedAt;
  int64_t configuredStreamCount = 0;    // enabled streams at that moment
  std::vector<BaselineStream> streams;  // the enabled, live and fresh ones, in health order

  // Counts the enabled streams and keeps those that are enabled, live and
  // fresh (recording or not), with their recording progress.
  static UpdateBaseline capture(const UpdateHealth& health, Timestamp at);

  // The daemon has enabled streams but none of them was healthy: an update
  // taken now could not be verified, so it is refused.
  bool isUnexpectedlyEmpty() const { return configuredStreamCount >= 1 && streams.empty(); }

  bool operator==(const UpdateBaseline&) const = default;
};

// JSON coding. HealthBuild uses the health document's keys (version, revision,
// modified, built_ms); capturedAt is milliseconds since 1970.
nlohmann::ordered_json toJSON(const HealthBuild& build);
nlohmann::ordered_json toJSON(const UpdateStreamHealth& stream);
nlohmann::ordered_json toJSON(const UpdateHealth& health);
nlohmann::ordered_json toJSON(const BaselineStream& stream);
nlohmann::ordered_json toJSON(const UpdateBaseline& baseline);

void fromJSON(const nlohmann::json& value, HealthBuild& out);
void fromJSON(const nlohmann::json& value, UpdateStreamHealth& out);
void fromJSON(const nlohmann::json& value, UpdateHealth& out);
void fromJSON(const nlohmann::json& value, BaselineStream& out);
void fromJSON(const nlohmann::json& value, UpdateBaseline& out);

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_HEALTH_H_
