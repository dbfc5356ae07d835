// Realistic lines for the daemon's two log files: logfmt events for zevd.log
// (time, level in mixed case and now and then one no reader knows, camera or
// cam, a msg with blanks, quotes and backslashes, extra fields, and now and
// then a free-text line) and free text for zevd.err.log.
//
// Every line comes with what a reader of the log format should recover from
// it, so tests can check a parser against the generator. Deterministic for a
// given seed and sequence of times. Not thread-safe; one generator per writer.
#ifndef ZEV_TOOLS_ZEVD_SIM_LOG_GENERATOR_H_
#define ZEV_TOOLS_ZEVD_SIM_LOG_GENERATOR_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <string>

namespace zev::sim {

struct GeneratedLine {
  std::string text;  // the line, without its line feed
  // What a reader should take from it: the value of time (or ts), of level
  // exactly as written, of camera (or cam), and of msg; a line without msg
  // is its own message.
  std::optional<std::string> timestamp;
  std::optional<std::string> level;
  std::optional<std::string> camera;
  std::string message;
};

class LogLineGenerator {
 public:
  explicit LogLineGenerator(uint64_t seed);

  // One line for zevd.log, stamped with `epochMS` (milliseconds since 1970).
  GeneratedLine daemonLine(int64_t epochMS);
  // One free-text line for zevd.err.log.
  GeneratedLine errorLine(int64_t epochMS);

 private:
  std::mt19937_64 m_random;
  uint64_t m_segmentBytes = 0;
};

// "2026-11-21T01:23:45.678Z".
std::string formatTimestamp(int64_t epochMS);

// Writes exactly `bytes` bytes of zevd.log to `path` (replacing it): whole
// lines, the last one padded or cut so that the file ends with a line feed.
// Times start at `startMS` and advance a few hundred milliseconds a line.
// Throws std::system_error when the file cannot be written.
void generateLog(const std::filesystem::path& path, int64_t bytes, uint64_t seed,
                 int64_t startMS);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_LOG_GENERATOR_H_
