#include "core/updates/update_health.h"

#include "core/support/decoding_error.h"
#include "core/support/json_fields.h"

namespace zev {

namespace {

using detail::optionalMember;
using detail::readBool;
using detail::readInt64;
using detail::readString;
using detail::requiredMember;

void putOptional(nlohmann::ordered_json& object, const char* key, const std::optional<int64_t>& v) {
  if (v) object[key] = *v;
}

std::optional<int64_t> readOptionalInt64(const nlohmann::json& object, const char* key) {
  const nlohmann::json* value = optionalMember(object, key);
  if (!value) return std::nullopt;
  return readInt64(*value, key);
}

template <typename T>
std::vector<T> readArray(const nlohmann::json& object, const char* key) {
  const nlohmann::json& array = requiredMember(object, key);
  if (!array.is_array()) throw DecodingError(std::string(key) + ": not an array");
  std::vector<T> items;
  items.reserve(array.size());
  for (const nlohmann::json& element : array) {
    T item;
    fromJSON(element, item);
    items.push_back(std::move(item));
  }
  return items;
}

template <typename T>
nlohmann::ordered_json arrayJSON(const std::vector<T>& items) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const T& item : items) array.push_back(toJSON(item));
  return array;
}

}  // namespace

UpdateHealth HealthSummary::updateHealth() const {
  UpdateHealth health;
  // A daemon that reports no build object is judged by its top-level version.
  health.build = build.value_or(HealthBuild{version, "", false, 0});
  for (const HealthCamera& camera : cameras) {
    if (!camera.streams) continue;
    for (const HealthStream& stream : *camera.streams) {
      health.streams.push_back({camera.id + "/" + stream.id, stream.enabled, stream.live,
                                stream.frameAgeMS, stream.recording, stream.lastSegmentMS});
    }
  }
  return health;
}

UpdateBaseline UpdateBaseline::capture(const UpdateHealth& health, Timestamp at) {
  UpdateBaseline baseline;
  baseline.capturedAt = at;
  for (const UpdateStreamHealth& stream : health.streams) {
    if (!stream.enabled) continue;
    ++baseline.configuredStreamCount;
    if (stream.live && isFreshFrameAge(stream.frameAgeMS)) {
      baseline.streams.push_back({stream.id, stream.recording, stream.lastSegmentMS});
    }
  }
  return baseline;
}

nlohmann::ordered_json toJSON(const HealthBuild& build) {
  nlohmann::ordered_json object;
  object["version"] = build.version;
  object["revision"] = build.revision;
  object["modified"] = build.modified;
  object["built_ms"] = build.builtMS;
  return object;
}

nlohmann::ordered_json toJSON(const UpdateStreamHealth& stream) {
  nlohmann::ordered_json object;
  object["id"] = stream.id;
  object["enabled"] = stream.enabled;
  object["live"] = stream.live;
  object["frameAgeMS"] = stream.frameAgeMS;
  object["recording"] = stream.recording;
  putOptional(object, "lastSegmentMS", stream.lastSegmentMS);
  return object;
}

nlohmann::ordered_json toJSON(const UpdateHealth& health) {
  nlohmann::ordered_json object;
  object["build"] = toJSON(health.build);
  object["streams"] = arrayJSON(health.streams);
  return object;
}

nlohmann::ordered_json toJSON(const BaselineStream& stream) {
  nlohmann::ordered_json object;
  object["id"] = stream.id;
  object["recording"] = stream.recording;
  putOptional(object, "lastSegmentMS", stream.lastSegmentMS);
  return object;
}

nlohmann::ordered_json toJSON(const UpdateBaseline& baseline) {
  nlohmann::ordered_json object;
  object["capturedAt"] = millisecondsSince1970(baseline.capturedAt);
  object["configuredStreamCount"] = baseline.configuredStreamCount;
  object["streams"] = arrayJSON(baseline.streams);
  return object;
}

void fromJSON(const nlohmann::json& value, HealthBuild& out) {
  out.version = readString(requiredMember(value, "version"), "version");
  out.revision = readString(requiredMember(value, "revision"), "revision");
  out.modified = readBool(requiredMember(value, "modified"), "modified");
  out.builtMS = readInt64(requiredMember(value, "built_ms"), "built_ms");
}

void fromJSON(const nlohmann::json& value, UpdateStreamHealth& out) {
  out.id = readString(requiredMember(value, "id"), "id");
  out.enabled = readBool(requiredMember(value, "enabled"), "enabled");
  out.live = readBool(requiredMember(value, "live"), "live");
  out.frameAgeMS = readInt64(requiredMember(value, "frameAgeMS"), "frameAgeMS");
  out.recording = readBool(requiredMember(value, "recording"), "recording");
  out.lastSegmentMS = readOptionalInt64(value, "lastSegmentMS");
}

void fromJSON(const nlohmann::json& value, UpdateHealth& out) {
  fromJSON(requiredMember(value, "build"), out.build);
  out.streams = readArray<UpdateStreamHealth>(value, "streams");
}

void fromJSON(const nlohmann::json& value, BaselineStream& out) {
  out.id = readString(requiredMember(value, "id"), "id");
  out.recording = readBool(requiredMember(value, "recording"), "recording");
  out.lastSegmentMS = readOptionalInt64(value, "lastSegmentMS");
}

void fromJSON(const nlohmann::json& value, UpdateBaseline& out) {
  out.capturedAt = detail::readTimestamp(requiredMember(value, "capturedAt"), "capturedAt");
  out.configuredStreamCount =
      readInt64(requiredMember(value, "configuredStreamCount"), "configuredStreamCount");
  out.streams = readArray<BaselineStream>(value, "streams");
}

}  // namespace zev
