// The severity of a log line, and the severity choice of the log filter.
#ifndef ZEV_CORE_LOG_SEVERITY_H_
#define ZEV_CORE_LOG_SEVERITY_H_

#include <array>
#include <optional>
#include <string_view>

namespace zev {

// Declared in the order the severity picker lists them. `all` is a filter
// value meaning "no restriction", but a line whose level field says "all"
// carries it as a real severity: such a line then passes only the `all`
// choice. That asymmetry is intended.
enum class LogSeverity : unsigned char { all, error, warn, info, debug };

inline constexpr std::array<LogSeverity, 5> allLogSeverities = {
    LogSeverity::all, LogSeverity::error, LogSeverity::warn, LogSeverity::info,
    LogSeverity::debug};

// "all", "error", "warn", "info", "debug".
std::string_view rawValue(LogSeverity severity);

// Exact, case-sensitive inverse of rawValue: "warning", "WARN" or "err" give
// no severity.
std::optional<LogSeverity> logSeverityFromRawValue(std::string_view raw);

}  // namespace zev

#endif  // ZEV_CORE_LOG_SEVERITY_H_
