// One line of the daemon's log, parsed from its `key=value` form.
//
// The daemon writes whitespace-separated fields with optionally double-quoted
// values: time=2024-01-02T03:04:05Z level=INFO camera=front msg="motion started".
// LogLine::parse picks out the timestamp, severity, camera and message; a
// line that does not follow the form (a crash trace on stderr) still parses,
// with the optional fields absent and the whole line as its message.
//
// A LogLine is an immutable value. Its texts live in an immutable heap block
// that copies share (a copy costs a reference count, not the text); lines
// parsed together by parseLogLines share one block, so a tail load allocates a
// handful of blocks rather than one per line, and one line kept alive keeps
// its block alive. The accessors return views into the block, valid while any
// line holding it lives. Safe to share between threads once built.
#ifndef ZEV_CORE_LOG_LINE_H_
#define ZEV_CORE_LOG_LINE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/logs/log_severity.h"

namespace zev {

class LogLine {
 public:
  // Memberwise construction, fields in their canonical order. Throws
  // std::length_error when the texts together exceed 4 GiB.
  LogLine(std::string_view id, std::string_view raw, std::optional<std::string_view> timestamp,
          std::optional<LogSeverity> severity, std::optional<std::string_view> camera,
          std::string_view message);

  // Parses one line (without its terminator). Never fails: malformed input
  // only yields fewer fields. Expects UTF-8; an invalid byte is kept as it is
  // and counts as an ordinary visible character.
  //  - timestamp: the `time` field, else `ts`; camera: `camera`, else `cam`.
  //    A present but empty field counts as present.
  //  - severity: the `level` field lower-cased, then matched exactly against
  //    the raw values; `warning`, `err` and the like give none.
  //  - message: the `msg` field, else the whole line.
  //  - id: stableID(raw).
  static LogLine parse(std::string_view raw);

  LogLine(const LogLine& other) = default;
  LogLine& operator=(const LogLine& other) = default;
  // A moved-from line is empty: every text empty, optionals absent.
  LogLine(LogLine&& other) noexcept;
  LogLine& operator=(LogLine&& other) noexcept;
  ~LogLine() = default;

  // Identifies the text, not the line: identical lines share an id, so lists
  // must not use it as a unique key.
  std::string_view id() const { return view(m_id); }
  // The line exactly as read, without its terminator.
  std::string_view raw() const { return view(m_raw); }
  std::optional<std::string_view> timestamp() const { return optionalView(m_timestamp); }
  std::optional<LogSeverity> severity() const {
    if (m_severity == kNoSeverity) return std::nullopt;
    return static_cast<LogSeverity>(m_severity);
  }
  std::optional<std::string_view> camera() const { return optionalView(m_camera); }
  std::string_view message() const { return view(m_message); }

  // Field-by-field equality of all six fields.
  friend bool operator==(const LogLine& a, const LogLine& b);

 private:
  // A text inside m_text; an absent optional has size kAbsent.
  struct Span {
    uint32_t offset = 0;
    uint32_t size = 0;
  };
  static constexpr uint32_t kAbsent = UINT32_MAX;
  static constexpr uint8_t kNoSeverity = 0xFF;

  friend struct LogLineBuilder;

  LogLine() = default;

  std::string_view view(Span span) const { return {m_text.get() + span.offset, span.size}; }
  std::optional<std::string_view> optionalView(Span span) const {
    if (span.size == kAbsent) return std::nullopt;
    return view(span);
  }
  // Points at this line's first byte inside a block shared with others.
  std::shared_ptr<const char[]> m_text;
  Span m_id;
  Span m_raw;
  Span m_timestamp{0, kAbsent};
  Span m_camera{0, kAbsent};
  Span m_message;
  uint8_t m_severity = kNoSeverity;
};

// 64-bit FNV-1a of the UTF-8 bytes, written in lower-case hexadecimal without
// leading zeros: the empty text gives "cbf29ce484222325".
std::string stableID(std::string_view text);
uint64_t stableHash(std::string_view text);

class LogLoadArena;

// Parses `count` lines into `out`, as LogLine::parse would, placing their
// texts in a few shared blocks (taken from `arena` when one is given).
void parseLogLines(const std::string_view* raws, size_t count, std::vector<LogLine>& out,
                   LogLoadArena* arena = nullptr);

// stableHash of each text, computed several at a time: the hash is one long
// dependency chain per text, so interleaving texts keeps the multiplier busy.
void stableHashes(const std::string_view* texts, size_t count, uint64_t* hashes);

}  // namespace zev

#endif  // ZEV_CORE_LOG_LINE_H_
