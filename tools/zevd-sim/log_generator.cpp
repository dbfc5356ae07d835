#include "log_generator.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace zev::sim {
namespace {

enum class Severity { error, warn, info, debug };

struct Field {
  std::string key;
  std::string value;
};

struct Event {
  Severity severity;
  std::optional<std::string> camera;
  std::string message;
  std::vector<Field> extras;
};

constexpr std::array<std::string_view, 4> kCameraIDs = {"front-door", "driveway", "garage",
                                                        "backyard"};
constexpr std::array<std::string_view, 4> kZones = {"gate", "porch", "path", "bins"};

// Free text the daemon writes into its own log now and then: start-up
// banners and the lines of a crash trace. None of them holds a "=", so a
// reader finds no fields in them.
constexpr std::array<std::string_view, 6> kDaemonFreeText = {
    "zevd starting: 4 cameras configured, recordings in /var/lib/zevd/rec",
    "panic: segment index out of range [5] with length 5",
    "    at zevd::SegmentWriter::flush (segment_writer.cpp:212)",
    "    at zevd::Recorder::run (recorder.cpp:88)",
    "WARNING: system clock jumped backwards by 1.2 s; segment times may overlap",
    "\tthread 'thumbnailer' stack dumped to /tmp/zevd-crash.txt",
};

constexpr std::array<std::string_view, 7> kErrorText = {
    "[rtsp @ 0x5581a2c0] method SETUP failed: 454 Session Not Found",
    "[h264 @ 0x7f3a1c004a40] error while decoding MB 12 33, bytestream -7",
    "thumbnailer: queue full (16 frames), dropping the oldest",
    "segment_writer: fsync of /var/lib/zevd/rec took 812 ms",
    "[rtsp @ 0x5581a2c0] RTP: missed 37 packets",
    "onvif: GetProfiles answered \"401 Unauthorized\"; retrying with digest auth",
    "zevd: caught SIGTERM, closing open segments",
};

bool needsQuotes(std::string_view value) {
  if (value.empty()) return true;
  for (const char c : value) {
    if (c == ' ' || c == '\t' || c == '"' || c == '\\') return true;
  }
  return false;
}

void appendValue(std::string& out, std::string_view value) {
  if (!needsQuotes(value)) {
    out += value;
    return;
  }
  out += '"';
  for (const char c : value) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

void appendField(std::string& out, std::string_view key, std::string_view value) {
  if (!out.empty()) out += ' ';
  out += key;
  out += '=';
  appendValue(out, value);
}

template <typename Random>
int64_t between(Random& random, int64_t low, int64_t high) {
  return std::uniform_int_distribution<int64_t>(low, high)(random);
}

template <typename Random, typename T, std::size_t N>
const T& pick(Random& random, const std::array<T, N>& items) {
  return items[static_cast<std::size_t>(between(random, 0, N - 1))];
}

std::string upperCase(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return out;
}

}  // namespace

std::string formatTimestamp(int64_t epochMS) {
  const std::time_t seconds = static_cast<std::time_t>(epochMS / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[80];  // roomy enough for any year the formatter can produce
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(epochMS % 1000));
  return text;
}

LogLineGenerator::LogLineGenerator(uint64_t seed) : m_random(seed) {}

GeneratedLine LogLineGenerator::daemonLine(int64_t epochMS) {
  auto& random = m_random;
  const int64_t roll = between(random, 0, 99);
  if (roll < 3) {
    const std::string text(pick(random, kDaemonFreeText));
    return {text, std::nullopt, std::nullopt, std::nullopt, text};
  }

  const std::string camera(pick(random, kCameraIDs));
  Event event;
  const int64_t kind = between(random, 0, 15);
  switch (kind) {
    case 0:
    case 1:
    case 2: {
      m_segmentBytes = static_cast<uint64_t>(between(random, 1200000, 2900000));
      event = {Severity::info, camera, "segment closed",
               {{"stream", "main"},
                {"dur_ms", "4000"},
                {"bytes", std::to_string(m_segmentBytes)},
                {"path", "/var/lib/zevd/rec/" + camera + "/" +
                             formatTimestamp(epochMS).substr(0, 19) + ".mp4"}}};
      break;
    }
    case 3:
      event = {Severity::info, camera, "motion started",
               {{"zone", std::string(pick(random, kZones))},
                {"score", "0." + std::to_string(between(random, 40, 99))}}};
      break;
    case 4:
      event = {Severity::info, camera, "motion ended",
               {{"dur_ms", std::to_string(between(random, 800, 30000))}}};
      break;
    case 5:
      event = {Severity::info, camera, "reconnected", {{"after_ms", std::to_string(between(random, 300, 9000))}}};
      break;
    case 6:
      event = {Severity::info, camera, "motion in zone \u00abEinfahrt\u00bb", {}};
      break;
    case 7:
      event = {Severity::info, std::nullopt, "retention sweep",
               {{"deleted", std::to_string(between(random, 0, 40))},
                {"freed_bytes", std::to_string(between(random, 0, 90000000))}}};
      break;
    case 8:
      event = {Severity::info, std::nullopt, "auth realm \"zev\\cams\" accepted", {}};
      break;
    case 9:
      event = {Severity::debug, camera, "frame decoded",
               {{"stream", "sub"}, {"pts", std::to_string(between(random, 0, 1 << 30))}}};
      break;
    case 10:
      event = {Severity::debug, std::nullopt, "health served",
               {{"remote", "127.0.0.1:" + std::to_string(between(random, 40000, 60999))},
                {"dur_us", std::to_string(between(random, 80, 900))}}};
      break;
    case 11:
      event = {Severity::warn, camera, "rtsp keepalive late",
               {{"late_ms", std::to_string(between(random, 100, 4000))}}};
      break;
    case 12:
      event = {Severity::warn, camera, "thumbnail dropped: encoder queue full", {{"queue", "16"}}};
      break;
    case 13:
      event = {Severity::warn, std::nullopt, "disk usage high",
               {{"path", "/var/lib/zevd"}, {"used_pct", std::to_string(between(random, 85, 97))}}};
      break;
    case 14:
      event = {Severity::error, camera, "camera answered \"454 Session Not Found\"",
               {{"stream", "main"}, {"retry_in", "5s"}}};
      break;
    default:
      event = {Severity::error, camera, "reconnect failed",
               {{"err", "dial tcp 10.0.0." + std::to_string(between(random, 20, 60)) +
                            ":554: connect: connection refused"}}};
      break;
  }

  GeneratedLine line;
  std::string& text = line.text;

  // Mostly RFC 3339 under "time"; some writers use "ts" with epoch seconds.
  if (between(random, 0, 9) == 0) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%lld.%03lld",
                  static_cast<long long>(epochMS / 1000), static_cast<long long>(epochMS % 1000));
    line.timestamp = seconds;
    appendField(text, "ts", seconds);
  } else {
    line.timestamp = formatTimestamp(epochMS);
    appendField(text, "time", *line.timestamp);
  }

  // Level: mostly lower case, some upper or capitalised, and now and then a
  // word no reader maps to a severity.
  static constexpr std::array<std::string_view, 4> kLevels = {"error", "warn", "info", "debug"};
  static constexpr std::array<std::string_view, 4> kOddLevels = {"fatal", "warning", "notice",
                                                                 "trace"};
  const auto severityIndex = static_cast<std::size_t>(event.severity);
  const int64_t spelling = between(random, 0, 99);
  std::string level;
  if (spelling < 4) {
    level = std::string(kOddLevels[severityIndex]);
  } else if (spelling < 72) {
    level = std::string(kLevels[severityIndex]);
  } else if (spelling < 88) {
    level = upperCase(kLevels[severityIndex]);
  } else {
    level = std::string(kLevels[severityIndex]);
    level[0] = static_cast<char>(level[0] - 'a' + 'A');
  }
  line.level = level;
  appendField(text, "level", level);

  if (event.camera) {
    line.camera = event.camera;
    appendField(text, between(random, 0, 4) == 0 ? "cam" : "camera", *event.camera);
  }
  // Most lines put msg before the extras; some writers put it last.
  const bool messageLast = between(random, 0, 9) == 0;
  if (!messageLast) appendField(text, "msg", event.message);
  for (const Field& field : event.extras) appendField(text, field.key, field.value);
  if (messageLast) appendField(text, "msg", event.message);
  line.message = event.message;
  return line;
}

GeneratedLine LogLineGenerator::errorLine(int64_t epochMS) {
  std::string text(pick(m_random, kErrorText));
  if (between(m_random, 0, 2) == 0) {
    // Some lines carry a time stamp of the writer's own making: still free text.
    text = formatTimestamp(epochMS).substr(0, 19) + " " + text;
  }
  return {text, std::nullopt, std::nullopt, std::nullopt, text};
}

void generateLog(const std::filesystem::path& path, int64_t bytes, uint64_t seed,
                 int64_t startMS) {
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "wb"));
  const auto fail = [&](int error) {
    throw std::system_error(error, std::generic_category(), path.string());
  };
  if (!file) fail(errno);

  LogLineGenerator generator(seed);
  std::mt19937_64 pace(seed ^ 0x9e3779b97f4a7c15ULL);
  std::string buffer;
  buffer.reserve(1 << 20);
  int64_t written = 0;
  int64_t now = startMS;
  const auto flush = [&] {
    if (!buffer.empty() && std::fwrite(buffer.data(), 1, buffer.size(), file.get()) != buffer.size()) {
      fail(errno);
    }
    buffer.clear();
  };
  while (written < bytes) {
    now += between(pace, 5, 400);
    std::string text = generator.daemonLine(now).text;
    const int64_t left = bytes - written;
    if (static_cast<int64_t>(text.size()) + 1 > left) {
      // The last line: fill the remaining bytes exactly with plain ASCII
      // free text, so no multi-byte character is cut.
      text.assign(static_cast<std::size_t>(left - 1), '-');
    }
    buffer += text;
    buffer += '\n';
    written += static_cast<int64_t>(text.size()) + 1;
    if (buffer.size() >= (1 << 20)) flush();
  }
  flush();
  if (std::fflush(file.get()) != 0) fail(errno);
  std::FILE* raw = file.release();
  if (std::fclose(raw) != 0) fail(errno);
}

}  // namespace zev::sim
