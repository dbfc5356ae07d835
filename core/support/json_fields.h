// Field readers shared by the decoders of the update records. Each reads one
// value of a parsed JSON object and throws DecodingError, naming the key, when
// it is missing (for required fields) or of the wrong type.
//
// Number rules: integer fields take an integer literal in the signed 64-bit
// range, or a whole number written with a fraction or exponent (3.0, 3e0) up
// to 2^53 in magnitude; nothing is rounded into an integer field. Timestamps
// take any number of milliseconds since 1970 within the signed 64-bit range,
// integer or fractional, rounded to the nearest millisecond.
#ifndef ZEV_CORE_JSON_FIELDS_H_
#define ZEV_CORE_JSON_FIELDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "core/support/timestamp.h"

namespace zev::detail {

using Json = nlohmann::json;

// The member `key` of `object`; throws when `object` is not an object or when
// the key is missing or null.
const Json& requiredMember(const Json& object, const char* key);
// The member `key`, or nullptr when it is missing or null.
const Json* optionalMember(const Json& object, const char* key);

int64_t readInt64(const Json& value, const char* key);
bool readBool(const Json& value, const char* key);
std::string readString(const Json& value, const char* key);
Timestamp readTimestamp(const Json& value, const char* key);

// Parses one JSON document; throws DecodingError when `bytes` are not exactly
// one well-formed JSON value.
Json parseDocument(std::string_view bytes);

}  // namespace zev::detail

#endif  // ZEV_CORE_JSON_FIELDS_H_
