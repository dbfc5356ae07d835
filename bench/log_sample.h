// A realistic daemon log for the log benchmarks.
#ifndef ZEV_BENCH_LOG_SAMPLE_H_
#define ZEV_BENCH_LOG_SAMPLE_H_

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace zev::bench {

// About 120 bytes a line: mixed levels, 8 cameras, quoted messages with
// escapes, a few lines without a camera or with non-ASCII text, and the odd
// free-text line as a crash trace would leave.
inline std::string generateLog(size_t bytes, uint32_t seed) {
  static const char* const kCameras[] = {"front-door", "back-yard", "garage", "driveway",
                                         "porch",      "side-gate", "nursery", "attic"};
  static const char* const kMessages[] = {
      "segment closed",
      "motion started",
      "motion ended",
      "rtsp: read \\\"timeout\\\" after 5s, reconnecting",
      "thumbnail written",
      "frame dropped: decoder busy",
      "disk usage 71%",
      "keyframe interval 2.0s",
      "stream resumed",
      "Bewegung erkannt \xE2\x80\x94 T\xC3\xBCr",
  };
  std::mt19937 random(seed);
  std::string log;
  log.reserve(bytes + 256);
  int64_t ms = 1763683200000;
  uint64_t segment = 184467;
  while (log.size() < bytes) {
    ms += 37 + random() % 400;
    const int roll = static_cast<int>(random() % 1000);
    if (roll < 3) {
      log += "goroutine 17 [running]: main.(*Recorder).flush(0xc000123450) recorder.go:211 +0x1c5\n";
      continue;
    }
    const char* level = roll < 650 ? "info" : roll < 850 ? "debug" : roll < 960 ? "warn" : "error";
    if (roll % 97 == 0) level = "INFO";
    const int64_t s = ms / 1000;
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "2025-11-21T%02lld:%02lld:%02lld.%03lldZ",
                  static_cast<long long>(s / 3600 % 24), static_cast<long long>(s / 60 % 60),
                  static_cast<long long>(s % 60), static_cast<long long>(ms % 1000));
    log += "time=";
    log += stamp;
    log += " level=";
    log += level;
    if (random() % 20 != 0) {
      log += " camera=";
      log += kCameras[random() % 8];
    }
    const size_t message = random() % 100 < 2 ? 9 : random() % 9;
    log += " msg=\"";
    log += kMessages[message];
    log += "\" seg=" + std::to_string(++segment) +
           " dur_ms=" + std::to_string(5800 + random() % 400) +
           " bytes=" + std::to_string(9000000 + random() % 4000000) + "\n";
  }
  return log;
}

}  // namespace zev::bench

#endif  // ZEV_BENCH_LOG_SAMPLE_H_
