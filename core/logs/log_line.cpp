#include "core/logs/log_line.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "core/logs/log_fields.h"
#include "core/logs/log_load_arena.h"

namespace zev {

namespace {

constexpr uint64_t kFNVOffsetBasis = 0xcbf29ce484222325ULL;
constexpr uint64_t kFNVPrime = 0x100000001b3ULL;

// Writes `hash` in lower-case hexadecimal without leading zeros; returns the
// number of digits (1 to 16).
size_t formatHex(uint64_t hash, char* out) {
  static constexpr char kDigits[] = "0123456789abcdef";
  char buffer[16];
  size_t count = 0;
  do {
    buffer[15 - count++] = kDigits[hash & 0xF];
    hash >>= 4;
  } while (hash != 0);
  std::memcpy(out, buffer + 16 - count, count);
  return count;
}

uint32_t checkedSize(size_t size) {
  // Spans are 32-bit; a 4 GiB line is not a log line.
  if (size >= std::numeric_limits<uint32_t>::max()) {
    throw std::length_error("log line longer than 4 GiB");
  }
  return static_cast<uint32_t>(size);
}

// Lower-cases ASCII letters and compares with a severity's raw value. Only
// ASCII can lower-case into one of the raw values (no other character's lower
// case is a plain ASCII letter of them), so ASCII rules are exact here.
std::optional<LogSeverity> severityFromLevel(std::string_view level) {
  if (level.size() < 3 || level.size() > 5) return std::nullopt;
  char lower[5];
  for (size_t i = 0; i < level.size(); ++i) {
    const char c = level[i];
    lower[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c;
  }
  return logSeverityFromRawValue(std::string_view(lower, level.size()));
}

}  // namespace

uint64_t stableHash(std::string_view text) {
  uint64_t hash = kFNVOffsetBasis;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= kFNVPrime;
  }
  return hash;
}

void stableHashes(const std::string_view* texts, size_t count, uint64_t* hashes) {
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const std::string_view t0 = texts[i], t1 = texts[i + 1], t2 = texts[i + 2], t3 = texts[i + 3];
    uint64_t h0 = kFNVOffsetBasis, h1 = kFNVOffsetBasis, h2 = kFNVOffsetBasis,
             h3 = kFNVOffsetBasis;
    size_t common = t0.size();
    if (t1.size() < common) common = t1.size();
    if (t2.size() < common) common = t2.size();
    if (t3.size() < common) common = t3.size();
    const auto* p0 = reinterpret_cast<const unsigned char*>(t0.data());
    const auto* p1 = reinterpret_cast<const unsigned char*>(t1.data());
    const auto* p2 = reinterpret_cast<const unsigned char*>(t2.data());
    const auto* p3 = reinterpret_cast<const unsigned char*>(t3.data());
    for (size_t k = 0; k < common; ++k) {
      h0 = (h0 ^ p0[k]) * kFNVPrime;
      h1 = (h1 ^ p1[k]) * kFNVPrime;
      h2 = (h2 ^ p2[k]) * kFNVPrime;
      h3 = (h3 ^ p3[k]) * kFNVPrime;
    }
    for (size_t k = common; k < t0.size(); ++k) h0 = (h0 ^ p0[k]) * kFNVPrime;
    for (size_t k = common; k < t1.size(); ++k) h1 = (h1 ^ p1[k]) * kFNVPrime;
    for (size_t k = common; k < t2.size(); ++k) h2 = (h2 ^ p2[k]) * kFNVPrime;
    for (size_t k = common; k < t3.size(); ++k) h3 = (h3 ^ p3[k]) * kFNVPrime;
    hashes[i] = h0;
    hashes[i + 1] = h1;
    hashes[i + 2] = h2;
    hashes[i + 3] = h3;
  }
  for (; i < count; ++i) hashes[i] = stableHash(texts[i]);
}

std::string stableID(std::string_view text) {
  char digits[16];
  return std::string(digits, formatHex(stableHash(text), digits));
}

// Parsing in two steps: measure finds the fields of a line and how many bytes
// its texts need; place writes them into a block and builds the line. Bulk
// parsing measures many lines, allocates once, then places them all.
struct LogLineBuilder {
  struct Field {
    std::string_view value;
    bool present = false;
    bool escaped = false;
  };
  struct Layout {
    std::string_view raw;
    uint64_t hash = 0;
    Field timestamp;
    Field camera;
    Field message;
    uint8_t severity = LogLine::kNoSeverity;
    size_t textSize = 0;  // an upper bound: escapes only shrink a value
  };

  static Layout measure(std::string_view raw, uint64_t hash) {
    // One pass over the fields, remembering the last occurrence of each key
    // of interest.
    Field time, ts, level, camera, cam, msg;
    detail::LogFieldScanner scanner(raw);
    detail::LogField field;
    while (scanner.next(field)) {
      Field* slot = nullptr;
      switch (field.key.size()) {
        case 2:
          if (field.key == "ts") slot = &ts;
          break;
        case 3:
          if (field.key == "msg") {
            slot = &msg;
          } else if (field.key == "cam") {
            slot = &cam;
          }
          break;
        case 4:
          if (field.key == "time") slot = &time;
          break;
        case 5:
          if (field.key == "level") slot = &level;
          break;
        case 6:
          if (field.key == "camera") slot = &camera;
          break;
        default:
          break;
      }
      if (slot != nullptr) *slot = {field.value, true, field.escaped};
    }

    Layout layout;
    layout.raw = raw;
    layout.hash = hash;
    layout.timestamp = time.present ? time : ts;
    layout.camera = camera.present ? camera : cam;
    layout.message = msg;
    if (level.present) {
      std::optional<LogSeverity> severity;
      if (level.escaped) {
        std::string unescaped(level.value);
        unescaped.resize(detail::unescapeLogValue(raw, level.value, unescaped.data()));
        severity = severityFromLevel(unescaped);
      } else {
        severity = severityFromLevel(level.value);
      }
      if (severity) layout.severity = static_cast<uint8_t>(*severity);
    }
    size_t size = 16 + raw.size();
    for (const Field* f : {&layout.timestamp, &layout.camera, &layout.message}) {
      if (f->present && f->escaped) size += f->value.size();
    }
    layout.textSize = size;
    return layout;
  }

  // Builds the line with its texts at `at` inside `block` (which has at
  // least layout.textSize bytes from there) and advances `at` past them.
  static LogLine place(const Layout& layout, const std::shared_ptr<char[]>& block, size_t& at) {
    LogLine line;
    char* const text = block.get() + at;
    const std::string_view raw = layout.raw;
    const auto idSize = static_cast<uint32_t>(formatHex(layout.hash, text));
    if (!raw.empty()) std::memcpy(text + idSize, raw.data(), raw.size());
    line.m_id = {0, idSize};
    line.m_raw = {idSize, checkedSize(raw.size())};

    uint32_t used = idSize + line.m_raw.size;
    auto spanOf = [&](const Field& f) -> LogLine::Span {
      if (!f.present) return {0, LogLine::kAbsent};
      if (!f.escaped) {
        const auto offset = static_cast<uint32_t>(f.value.data() - raw.data());
        return {idSize + offset, static_cast<uint32_t>(f.value.size())};
      }
      const auto size = static_cast<uint32_t>(detail::unescapeLogValue(raw, f.value, text + used));
      const LogLine::Span span{used, size};
      used += size;
      return span;
    };
    line.m_timestamp = spanOf(layout.timestamp);
    line.m_camera = spanOf(layout.camera);
    line.m_message = layout.message.present ? spanOf(layout.message) : line.m_raw;
    line.m_severity = layout.severity;
    line.m_text = std::shared_ptr<const char[]>(block, text);
    at += used;
    return line;
  }
};

LogLine::LogLine(std::string_view id, std::string_view raw,
                 std::optional<std::string_view> timestamp, std::optional<LogSeverity> severity,
                 std::optional<std::string_view> camera, std::string_view message) {
  const size_t tsSize = timestamp ? timestamp->size() : 0;
  const size_t cameraSize = camera ? camera->size() : 0;
  const uint32_t total =
      checkedSize(id.size() + raw.size() + tsSize + cameraSize + message.size());
  auto block = std::make_shared_for_overwrite<char[]>(total == 0 ? 1 : total);
  uint32_t at = 0;
  auto place = [&](std::string_view text) {
    if (!text.empty()) std::memcpy(block.get() + at, text.data(), text.size());
    const Span span{at, static_cast<uint32_t>(text.size())};
    at += span.size;
    return span;
  };
  m_id = place(id);
  m_raw = place(raw);
  m_timestamp = timestamp ? place(*timestamp) : Span{0, kAbsent};
  m_camera = camera ? place(*camera) : Span{0, kAbsent};
  m_message = place(message);
  m_severity = severity ? static_cast<uint8_t>(*severity) : kNoSeverity;
  m_text = std::move(block);
}

LogLine::LogLine(LogLine&& other) noexcept
    : m_text(std::move(other.m_text)),
      m_id(std::exchange(other.m_id, {})),
      m_raw(std::exchange(other.m_raw, {})),
      m_timestamp(std::exchange(other.m_timestamp, {0, kAbsent})),
      m_camera(std::exchange(other.m_camera, {0, kAbsent})),
      m_message(std::exchange(other.m_message, {})),
      m_severity(std::exchange(other.m_severity, kNoSeverity)) {}

LogLine& LogLine::operator=(LogLine&& other) noexcept {
  if (this != &other) {
    m_text = std::move(other.m_text);
    m_id = std::exchange(other.m_id, {});
    m_raw = std::exchange(other.m_raw, {});
    m_timestamp = std::exchange(other.m_timestamp, {0, kAbsent});
    m_camera = std::exchange(other.m_camera, {0, kAbsent});
    m_message = std::exchange(other.m_message, {});
    m_severity = std::exchange(other.m_severity, kNoSeverity);
  }
  return *this;
}

bool operator==(const LogLine& a, const LogLine& b) {
  return a.m_severity == b.m_severity && a.id() == b.id() && a.raw() == b.raw() &&
         a.timestamp() == b.timestamp() && a.camera() == b.camera() &&
         a.message() == b.message();
}

LogLine LogLine::parse(std::string_view raw) {
  const LogLineBuilder::Layout layout = LogLineBuilder::measure(raw, stableHash(raw));
  checkedSize(layout.textSize);
  const auto block = std::make_shared_for_overwrite<char[]>(layout.textSize);
  size_t at = 0;
  return LogLineBuilder::place(layout, block, at);
}

void parseLogLines(const std::string_view* raws, size_t count, std::vector<LogLine>& out,
                   LogLoadArena* arena) {
  // Lines go in blocks: few allocations, a kept line holds on to a small part
  // of a load only, and each block's text (about 15 KB of log) stays in the
  // first-level cache while it is hashed, scanned and copied.
  constexpr size_t kLinesPerBlock = 128;
  std::vector<LogLineBuilder::Layout> layouts;
  layouts.reserve(std::min(count, kLinesPerBlock));
  uint64_t hashes[kLinesPerBlock];
  out.reserve(out.size() + count);
  for (size_t first = 0; first < count; first += kLinesPerBlock) {
    const size_t size = std::min(count - first, kLinesPerBlock);
    stableHashes(raws + first, size, hashes);
    layouts.clear();
    size_t total = 0;
    for (size_t i = 0; i < size; ++i) {
      layouts.push_back(LogLineBuilder::measure(raws[first + i], hashes[i]));
      checkedSize(layouts.back().textSize);
      total += layouts.back().textSize;
    }
    const std::shared_ptr<char[]> block =
        arena != nullptr ? arena->block(total) : std::make_shared_for_overwrite<char[]>(total);
    size_t at = 0;
    for (const LogLineBuilder::Layout& layout : layouts) {
      out.push_back(LogLineBuilder::place(layout, block, at));
    }
  }
}

}  // namespace zev
