// The daemon's two log files, as the log window's source picker lists them.
#ifndef ZEV_APP_LOGS_LOG_SOURCE_H_
#define ZEV_APP_LOGS_LOG_SOURCE_H_

#include <QString>
#include <array>

namespace zev {

// The second case is the daemon's standard error; it is not called `stderr`
// because that name is a macro of the C library on some systems.
enum class LogSource { daemon, standardError };

inline constexpr std::array<LogSource, 2> allLogSources = {LogSource::daemon,
                                                           LogSource::standardError};

// "Daemon", "Standard Error": the raw value, also the picker's title.
inline QString rawValue(LogSource source) {
  return source == LogSource::daemon ? QStringLiteral("Daemon") : QStringLiteral("Standard Error");
}

// The name the export's save dialog proposes.
inline QString exportFileName(LogSource source) {
  return source == LogSource::daemon ? QStringLiteral("zevd-filtered.log")
                                     : QStringLiteral("zevd-stderr-filtered.log");
}

}  // namespace zev

#endif  // ZEV_APP_LOGS_LOG_SOURCE_H_
