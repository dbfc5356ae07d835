#include "core/health/health_summary.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <nlohmann/json.hpp>

namespace zev {

namespace {

using Json = nlohmann::json;

// Field readers. Each returns false when the value is not of the field's type;
// the caller then abandons the whole document.

bool read(const Json& value, int64_t& out) {
  switch (value.type()) {
    case Json::value_t::number_integer:
      out = value.get<int64_t>();
      return true;
    case Json::value_t::number_unsigned: {
      const auto u = value.get<uint64_t>();
      if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return false;
      out = static_cast<int64_t>(u);
      return true;
    }
    case Json::value_t::number_float: {
      // A whole number written as 3.0 or 3e0 is still that integer, but only
      // where a double holds it exactly: the parser also lands here for an
      // integer literal beyond the 64-bit range, which must not round into it.
      const double d = value.get<double>();
      constexpr double kTwoTo53 = 9007199254740992.0;
      if (!std::isfinite(d) || std::trunc(d) != d || d < -kTwoTo53 || d > kTwoTo53) return false;
      out = static_cast<int64_t>(d);
      return true;
    }
    default:
      return false;
  }
}

bool read(const Json& value, double& out) {
  if (!value.is_number()) return false;
  out = value.get<double>();
  return true;
}

bool read(const Json& value, bool& out) {
  if (!value.is_boolean()) return false;
  out = value.get<bool>();
  return true;
}

bool read(const Json& value, std::string& out) {
  if (!value.is_string()) return false;
  out = value.get_ref<const std::string&>();
  return true;
}

bool read(const Json& value, HealthStream& out);
bool read(const Json& value, HealthCamera& out);
bool read(const Json& value, HealthBuild& out);
bool read(const Json& value, HealthDefaultRoute& out);

template <typename T>
bool read(const Json& value, std::vector<T>& out) {
  if (!value.is_array()) return false;
  out.clear();
  out.reserve(value.size());
  for (const Json& element : value) {
    T item{};
    if (!read(element, item)) return false;
    out.push_back(std::move(item));
  }
  return true;
}

// A required key must be present and not null.
template <typename T>
bool required(const Json& object, const char* key, T& out) {
  const auto it = object.find(key);
  return it != object.end() && read(*it, out);
}

// An optional key may be absent or null; anything else must decode.
template <typename T>
bool optional(const Json& object, const char* key, std::optional<T>& out) {
  const auto it = object.find(key);
  if (it == object.end() || it->is_null()) {
    out.reset();
    return true;
  }
  T value{};
  if (!read(*it, value)) return false;
  out = std::move(value);
  return true;
}

bool read(const Json& value, HealthStream& out) {
  return value.is_object() && required(value, "id", out.id) &&
         required(value, "enabled", out.enabled) && required(value, "live", out.live) &&
         required(value, "frame_age_ms", out.frameAgeMS) &&
         required(value, "recording", out.recording) &&
         optional(value, "last_segment_ms", out.lastSegmentMS);
}

bool read(const Json& value, HealthCamera& out) {
  return value.is_object() && required(value, "id", out.id) && required(value, "name", out.name) &&
         required(value, "live", out.live) && required(value, "frame_age_ms", out.frameAgeMS) &&
         optional(value, "worst_frame_age_ms", out.worstFrameAgeMS) &&
         optional(value, "recording", out.recording) && optional(value, "streams", out.streams);
}

bool read(const Json& value, HealthBuild& out) {
  return value.is_object() && required(value, "version", out.version) &&
         required(value, "revision", out.revision) && required(value, "modified", out.modified) &&
         required(value, "built_ms", out.builtMS);
}

bool read(const Json& value, HealthDefaultRoute& out) {
  return value.is_object() && required(value, "interface", out.interface) &&
         required(value, "kind", out.kind) && required(value, "speed_mbps", out.speedMbps) &&
         required(value, "media", out.media);
}

bool read(const Json& value, HealthSummary& out) {
  if (!value.is_object()) return false;
  std::optional<std::vector<std::string>> reasons;
  const bool ok =
      required(value, "ok", out.ok) && required(value, "version", out.version) &&
      required(value, "live_streams", out.liveStreams) &&
      required(value, "total_streams", out.totalStreams) &&
      required(value, "newest_frame_age_ms", out.newestFrameAgeMS) &&
      optional(value, "worst_frame_age_ms", out.worstFrameAgeMS) &&
      required(value, "cpu_percent", out.cpuPercent) && required(value, "rss_bytes", out.rssBytes) &&
      required(value, "thumb_drop_ratio", out.thumbDropRatio) &&
      required(value, "cameras", out.cameras) && optional(value, "build", out.build) &&
      optional(value, "degraded", out.degraded) && optional(value, "degraded_reasons", reasons) &&
      optional(value, "default_route", out.defaultRoute);
  if (!ok) return false;
  out.degradedReasons = reasons ? std::move(*reasons) : std::vector<std::string>{};
  return true;
}

[[noreturn]] void fatalOverflow(int64_t listed, int64_t more) {
  std::fprintf(stderr, "fatal: degraded issue count overflows: %lld listed + %lld more\n",
               static_cast<long long>(listed), static_cast<long long>(more));
  std::abort();
}

}  // namespace

namespace detail {

std::optional<int64_t> parseMoreMarker(std::string_view reason) {
  constexpr std::string_view kPrefix = "more:";
  if (!reason.starts_with(kPrefix)) return std::nullopt;
  std::string_view digits = reason.substr(kPrefix.size());
  bool negative = false;
  if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
    negative = digits.front() == '-';
    digits.remove_prefix(1);
  }
  if (digits.empty()) return std::nullopt;
  // Accumulate towards the negative side so INT64_MIN parses too.
  int64_t value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    if (__builtin_mul_overflow(value, 10, &value) || __builtin_sub_overflow(value, c - '0', &value)) {
      return std::nullopt;
    }
  }
  if (negative) return value;
  if (value == std::numeric_limits<int64_t>::min()) return std::nullopt;
  return -value;
}

}  // namespace detail

bool degradedIssueCountOverflows(const std::vector<std::string>& reasons) {
  if (reasons.empty()) return false;
  const auto more = detail::parseMoreMarker(reasons.back());
  int64_t sum = 0;
  return more && __builtin_add_overflow(static_cast<int64_t>(reasons.size()) - 1, *more, &sum);
}

int64_t HealthSummary::totalCameras() const { return static_cast<int64_t>(cameras.size()); }

int64_t HealthSummary::liveCameras() const {
  int64_t live = 0;
  for (const HealthCamera& camera : cameras) live += camera.live ? 1 : 0;
  return live;
}

int64_t HealthSummary::degradedIssueCount() const {
  const auto listed = static_cast<int64_t>(degradedReasons.size());
  if (listed == 0) return 0;
  const auto more = detail::parseMoreMarker(degradedReasons.back());
  if (!more) return listed;
  int64_t count = 0;
  if (__builtin_add_overflow(listed - 1, *more, &count)) fatalOverflow(listed - 1, *more);
  return count;
}

std::span<const std::string> HealthSummary::visibleDegradedReasons() const {
  constexpr size_t kVisible = 3;
  return std::span<const std::string>(degradedReasons).first(std::min(degradedReasons.size(), kVisible));
}

std::string HealthSummary::worstFrameAgeText() const {
  if (!worstFrameAgeMS || *worstFrameAgeMS < 0) return "\u2014";
  return std::to_string(*worstFrameAgeMS) + " ms";
}

std::string HealthDefaultRoute::summaryText() const {
  std::string text = interface + " " + kind;
  if (speedMbps >= 1) text += " " + std::to_string(speedMbps) + " Mb/s";
  return text;
}

bool HealthDefaultRoute::isWarning() const {
  if (kind == "wifi") return true;
  return kind == "ethernet" && speedMbps >= 1 && speedMbps <= 999;
}

std::optional<HealthSummary> decodeHealth(std::string_view bytes) {
  // No exceptions: a parse error yields a discarded value, which is not an object.
  const Json document = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
  HealthSummary summary;
  if (!read(document, summary)) return std::nullopt;
  return summary;
}

}  // namespace zev
