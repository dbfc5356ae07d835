// The daemon's health document: what GET api/health answers with, as plain
// immutable value records, plus the texts and figures derived from it that the
// status item and popover display.
//
// Everything here is a pure function of its inputs and safe to call from any
// thread. Nothing throws; decodeHealth reports failure as an empty optional.
#ifndef ZEV_CORE_HEALTH_SUMMARY_H_
#define ZEV_CORE_HEALTH_SUMMARY_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zev {

struct UpdateHealth;  // core/update_health.h

// One stream of a camera. JSON keys: id, enabled, live, frame_age_ms,
// recording, last_segment_ms (optional).
struct HealthStream {
  std::string id;
  bool enabled = false;
  bool live = false;
  int64_t frameAgeMS = 0;
  bool recording = false;
  std::optional<int64_t> lastSegmentMS;

  bool operator==(const HealthStream&) const = default;
};

// One camera; `id` is its identity in lists.
struct HealthCamera {
  std::string id;
  std::string name;
  bool live = false;
  int64_t frameAgeMS = 0;
  std::optional<int64_t> worstFrameAgeMS;
  std::optional<bool> recording;
  std::optional<std::vector<HealthStream>> streams;

  bool operator==(const HealthCamera&) const = default;
};

// The daemon's build.
struct HealthBuild {
  std::string version;
  std::string revision;
  bool modified = false;
  int64_t builtMS = 0;

  bool operator==(const HealthBuild&) const = default;
};

// The host's default network route.
struct HealthDefaultRoute {
  std::string interface;
  std::string kind;  // "wifi" and "ethernet" are the kinds that mean something
  int64_t speedMbps = 0;  // 0 or less: unknown
  std::string media;

  // "en0 ethernet" when the speed is unknown, else "en0 ethernet 1000 Mb/s".
  std::string summaryText() const;
  // Wi-Fi, or ethernet slower than a gigabit (1 to 999 Mb/s).
  bool isWarning() const;

  bool operator==(const HealthDefaultRoute&) const = default;
};

struct HealthSummary {
  bool ok = false;
  std::string version;
  int64_t liveStreams = 0;
  int64_t totalStreams = 0;
  int64_t newestFrameAgeMS = 0;
  std::optional<int64_t> worstFrameAgeMS;
  double cpuPercent = 0;
  int64_t rssBytes = 0;
  double thumbDropRatio = 0;  // 0.2 means 20 %
  std::vector<HealthCamera> cameras;
  std::optional<HealthBuild> build;
  std::optional<bool> degraded;    // the daemon's own verdict, when it gives one
  std::vector<std::string> degradedReasons;  // absent or null in JSON: empty
  std::optional<HealthDefaultRoute> defaultRoute;

  int64_t totalCameras() const;
  int64_t liveCameras() const;

  // The number of degradation issues. A last reason "more:N" stands for N
  // further issues the daemon did not list, so {"a", "b", "more:5"} counts 7.
  // An arithmetic overflow in that sum is a fatal error (the process aborts);
  // see degradedOverflowMarker for a way to detect it beforehand.
  int64_t degradedIssueCount() const;

  // At most the first three reasons, the marker included if it is among them.
  std::span<const std::string> visibleDegradedReasons() const;

  // "—" when the worst frame age is unknown or negative, else "1234 ms".
  std::string worstFrameAgeText() const;

  // The flat per-stream view the update checks work on (core/update_health.h,
  // which callers include). Without a build object the build is the top-level
  // version with an empty revision.
  UpdateHealth updateHealth() const;

  bool operator==(const HealthSummary&) const = default;
};

// Decodes a health document. Any malformed JSON, or a required field that is
// missing, null or of the wrong type at any depth, yields no summary.
//
// Decoding rules beyond the field tables:
//  - Unknown keys are ignored.
//  - Duplicate keys: the last occurrence wins, at every depth.
//  - Integer fields take an integer literal in the signed 64-bit range, or a
//    whole number written with a fraction or exponent (3.0, 3e0) up to 2^53 in
//    magnitude, where a double still holds it exactly. 3.5, 2^63 and 1e17
//    fail: nothing is ever rounded into an integer field.
//  - Double fields take any JSON number. Booleans take only true and false.
std::optional<HealthSummary> decodeHealth(std::string_view bytes);

namespace detail {

// The issue count that a reason of the form "more:N" stands for, when `reason`
// is such a marker: "more:" then an optional sign and base-10 digits, nothing
// else, fitting a signed 64-bit integer.
std::optional<int64_t> parseMoreMarker(std::string_view reason);

}  // namespace detail

// True when degradedIssueCount would overflow for these reasons; lets callers
// that must not abort (a fuzzer, a defensive caller) avoid the fatal path.
bool degradedIssueCountOverflows(const std::vector<std::string>& reasons);

}  // namespace zev

#endif  // ZEV_CORE_HEALTH_SUMMARY_H_
