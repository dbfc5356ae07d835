// Wall-clock instants of the update records: system-clock time points with
// millisecond precision, stored in files as milliseconds since 1970-01-01 UTC.
#ifndef ZEV_CORE_TIMESTAMP_H_
#define ZEV_CORE_TIMESTAMP_H_

#include <chrono>
#include <cstdint>

namespace zev {

using Timestamp = std::chrono::sys_time<std::chrono::milliseconds>;

// The current time, truncated to the millisecond.
inline Timestamp currentTimestamp() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

inline Timestamp timestampFromMillisecondsSince1970(int64_t ms) {
  return Timestamp(std::chrono::milliseconds(ms));
}

inline int64_t millisecondsSince1970(Timestamp t) { return t.time_since_epoch().count(); }

}  // namespace zev

#endif  // ZEV_CORE_TIMESTAMP_H_
