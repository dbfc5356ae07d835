// The one source of "now" in the application, injectable so that timers and
// deadlines are tested in milliseconds.
#ifndef ZEV_APP_CLOCK_H_
#define ZEV_APP_CLOCK_H_

#include <chrono>
#include <functional>

namespace zev {

using Clock = std::function<std::chrono::system_clock::time_point()>;

inline Clock systemClock() {
  return [] { return std::chrono::system_clock::now(); };
}

}  // namespace zev

#endif  // ZEV_APP_CLOCK_H_
