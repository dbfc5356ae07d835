#include "core/logs/log_severity.h"

namespace zev {

std::string_view rawValue(LogSeverity severity) {
  switch (severity) {
    case LogSeverity::all:
      return "all";
    case LogSeverity::error:
      return "error";
    case LogSeverity::warn:
      return "warn";
    case LogSeverity::info:
      return "info";
    case LogSeverity::debug:
      return "debug";
  }
  return "all";  // unreachable for valid enumerators
}

std::optional<LogSeverity> logSeverityFromRawValue(std::string_view raw) {
  for (const LogSeverity severity : allLogSeverities) {
    if (rawValue(severity) == raw) return severity;
  }
  return std::nullopt;
}

}  // namespace zev
