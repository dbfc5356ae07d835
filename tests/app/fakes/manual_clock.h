// A clock for tests: it reads whatever the test last set.
#ifndef ZEV_TESTS_APP_FAKES_MANUAL_CLOCK_H_
#define ZEV_TESTS_APP_FAKES_MANUAL_CLOCK_H_

#include <chrono>

#include "app/shell/clock.h"

namespace zev::testing {

// A clock that moves only when the test says so.
struct ManualClock {
  std::chrono::system_clock::time_point now{std::chrono::seconds(1'700'000'000)};
  Clock clock() {
    return [this] { return now; };
  }
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_MANUAL_CLOCK_H_
