#include "core/support/json_fields.h"

#include <cmath>
#include <limits>

#include "core/support/decoding_error.h"

namespace zev::detail {

namespace {

[[noreturn]] void fail(const char* key, const char* problem) {
  throw DecodingError(std::string(key) + ": " + problem);
}

}  // namespace

const Json& requiredMember(const Json& object, const char* key) {
  if (!object.is_object()) fail(key, "enclosing value is not an object");
  const auto it = object.find(key);
  if (it == object.end()) fail(key, "missing");
  if (it->is_null()) fail(key, "null");
  return *it;
}

const Json* optionalMember(const Json& object, const char* key) {
  if (!object.is_object()) fail(key, "enclosing value is not an object");
  const auto it = object.find(key);
  if (it == object.end() || it->is_null()) return nullptr;
  return &*it;
}

int64_t readInt64(const Json& value, const char* key) {
  switch (value.type()) {
    case Json::value_t::number_integer:
      return value.get<int64_t>();
    case Json::value_t::number_unsigned: {
      const auto u = value.get<uint64_t>();
      if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) fail(key, "out of range");
      return static_cast<int64_t>(u);
    }
    case Json::value_t::number_float: {
      // The parser also lands here for integer literals beyond 64 bits, which
      // must not be rounded into range.
      const double d = value.get<double>();
      constexpr double kTwoTo53 = 9007199254740992.0;
      if (!std::isfinite(d) || std::trunc(d) != d || d < -kTwoTo53 || d > kTwoTo53) {
        fail(key, "not an integer");
      }
      return static_cast<int64_t>(d);
    }
    default:
      fail(key, "not a number");
  }
}

bool readBool(const Json& value, const char* key) {
  if (!value.is_boolean()) fail(key, "not a boolean");
  return value.get<bool>();
}

std::string readString(const Json& value, const char* key) {
  if (!value.is_string()) fail(key, "not a string");
  return value.get<std::string>();
}

Timestamp readTimestamp(const Json& value, const char* key) {
  if (value.is_number_float()) {
    const double ms = value.get<double>();
    // [-2^63, 2^63): every double in it rounds to a representable int64.
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(ms) || ms < -kLimit || ms >= kLimit) fail(key, "timestamp out of range");
    return timestampFromMillisecondsSince1970(std::llround(ms));
  }
  if (!value.is_number()) fail(key, "not a number");
  return timestampFromMillisecondsSince1970(readInt64(value, key));
}

Json parseDocument(std::string_view bytes) {
  Json document = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
  if (document.is_discarded()) throw DecodingError("malformed JSON");
  return document;
}

}  // namespace zev::detail
