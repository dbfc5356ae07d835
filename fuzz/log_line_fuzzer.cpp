// LogLine::parse on arbitrary bytes: no crash, and the parsed line agrees with
// the field map the same grammar gives.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/logs/log_fields.h"
#include "core/logs/log_line.h"
#include "core/logs/log_severity.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

std::optional<std::string_view> lookup(const std::unordered_map<std::string, std::string>& fields,
                                       const char* key) {
  const auto it = fields.find(key);
  if (it == fields.end()) return std::nullopt;
  return std::string_view(it->second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view raw(reinterpret_cast<const char*>(data), size);
  // A copy outlives the original and shares nothing it frees.
  auto original = std::make_optional(zev::LogLine::parse(raw));
  const zev::LogLine line = *original;
  original = zev::LogLine::parse("other");
  check(line.raw() == raw);
  check(line.id() == zev::stableID(raw));

  const auto fields = zev::detail::parseLogFields(raw);
  const auto time = lookup(fields, "time");
  check(line.timestamp() == (time ? time : lookup(fields, "ts")));
  const auto camera = lookup(fields, "camera");
  check(line.camera() == (camera ? camera : lookup(fields, "cam")));
  const auto msg = lookup(fields, "msg");
  check(line.message() == (msg ? *msg : raw));
  // The severity: the level's value with ASCII letters lower-cased.
  std::string level(lookup(fields, "level").value_or("-"));
  for (char& c : level) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  check(line.severity() == zev::logSeverityFromRawValue(level));

  // The ASCII fast path and the general path read the grammar alike.
  check(fields == zev::detail::parseLogFields(raw, zev::detail::LogScanPath::general));
  check(line == zev::LogLine::parse(raw));
  return 0;
}
