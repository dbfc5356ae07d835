#include "core/log_line.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "core/log_fields.h"

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

// Where a field of interest was last seen.
struct FoundField {
  bool present = false;
  detail::LogField field;
};

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

LogLine::LogLine(std::string_view id, std::string_view raw,
                 std::optional<std::string_view> timestamp, std::optional<LogSeverity> severity,
                 std::optional<std::string_view> camera, std::string_view message) {
  const size_t tsSize = timestamp ? timestamp->size() : 0;
  const size_t cameraSize = camera ? camera->size() : 0;
  const uint32_t total =
      checkedSize(id.size() + raw.size() + tsSize + cameraSize + message.size());
  m_text = std::make_unique_for_overwrite<char[]>(total == 0 ? 1 : total);
  uint32_t at = 0;
  auto place = [&](std::string_view text) {
    std::memcpy(m_text.get() + at, text.data(), text.size());
    const Span span{at, static_cast<uint32_t>(text.size())};
    at += span.size;
    return span;
  };
  m_id = place(id);
  m_raw = place(raw);
  m_timestamp = timestamp ? place(*timestamp) : Span{0, kAbsent};
  m_camera = camera ? place(*camera) : Span{0, kAbsent};
  m_message = place(message);
  m_extraSize = static_cast<uint32_t>(tsSize + cameraSize + message.size());
  m_severity = severity ? static_cast<uint8_t>(*severity) : kNoSeverity;
}

uint32_t LogLine::textSize() const { return m_raw.offset + m_raw.size + m_extraSize; }

LogLine::LogLine(const LogLine& other)
    : m_id(other.m_id),
      m_raw(other.m_raw),
      m_timestamp(other.m_timestamp),
      m_camera(other.m_camera),
      m_message(other.m_message),
      m_extraSize(other.m_extraSize),
      m_severity(other.m_severity) {
  const uint32_t size = other.textSize();
  m_text = std::make_unique_for_overwrite<char[]>(size == 0 ? 1 : size);
  if (other.m_text) std::memcpy(m_text.get(), other.m_text.get(), size);
}

LogLine::LogLine(LogLine&& other) noexcept
    : m_text(std::move(other.m_text)),
      m_id(std::exchange(other.m_id, {})),
      m_raw(std::exchange(other.m_raw, {})),
      m_timestamp(std::exchange(other.m_timestamp, {0, kAbsent})),
      m_camera(std::exchange(other.m_camera, {0, kAbsent})),
      m_message(std::exchange(other.m_message, {})),
      m_extraSize(std::exchange(other.m_extraSize, 0)),
      m_severity(std::exchange(other.m_severity, kNoSeverity)) {}

LogLine& LogLine::operator=(LogLine&& other) noexcept {
  if (this != &other) {
    m_text = std::move(other.m_text);
    m_id = std::exchange(other.m_id, {});
    m_raw = std::exchange(other.m_raw, {});
    m_timestamp = std::exchange(other.m_timestamp, {0, kAbsent});
    m_camera = std::exchange(other.m_camera, {0, kAbsent});
    m_message = std::exchange(other.m_message, {});
    m_extraSize = std::exchange(other.m_extraSize, 0);
    m_severity = std::exchange(other.m_severity, kNoSeverity);
  }
  return *this;
}

LogLine& LogLine::operator=(const LogLine& other) {
  if (this != &other) *this = LogLine(other);
  return *this;
}

bool operator==(const LogLine& a, const LogLine& b) {
  return a.m_severity == b.m_severity && a.id() == b.id() && a.raw() == b.raw() &&
         a.timestamp() == b.timestamp() && a.camera() == b.camera() &&
         a.message() == b.message();
}

LogLine LogLine::parse(std::string_view raw) { return parseWithHash(raw, stableHash(raw)); }

LogLine parseLogLineWithHash(std::string_view raw, uint64_t rawHash) {
  return LogLine::parseWithHash(raw, rawHash);
}

LogLine LogLine::parseWithHash(std::string_view raw, uint64_t rawHash) {
  // One pass over the fields, remembering the last occurrence of each key of
  // interest; texts are copied once, at the end.
  FoundField time, ts, level, camera, cam, msg;
  detail::LogFieldScanner scanner(raw);
  detail::LogField field;
  size_t escapedBytes = 0;
  while (scanner.next(field)) {
    FoundField* slot = nullptr;
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
    if (slot != nullptr) {
      slot->present = true;
      slot->field = field;
    }
  }
  const FoundField& timestamp = time.present ? time : ts;
  const FoundField& cameraField = camera.present ? camera : cam;
  for (const FoundField* f : {&timestamp, &cameraField, static_cast<const FoundField*>(&msg)}) {
    if (f->present && f->field.escaped) escapedBytes += f->field.value.size();
  }

  LogLine line;
  char digits[16];
  const size_t idSize = formatHex(rawHash, digits);
  const uint32_t capacity = checkedSize(idSize + raw.size() + escapedBytes);
  line.m_text = std::make_unique_for_overwrite<char[]>(capacity == 0 ? 1 : capacity);
  char* const text = line.m_text.get();
  std::memcpy(text, digits, idSize);
  if (!raw.empty()) std::memcpy(text + idSize, raw.data(), raw.size());
  line.m_id = {0, static_cast<uint32_t>(idSize)};
  line.m_raw = {static_cast<uint32_t>(idSize), static_cast<uint32_t>(raw.size())};

  uint32_t extra = line.m_raw.offset + line.m_raw.size;
  auto spanOf = [&](const FoundField& f) -> Span {
    if (!f.present) return {0, kAbsent};
    if (!f.field.escaped) {
      const auto offset = static_cast<size_t>(f.field.value.data() - raw.data());
      return {static_cast<uint32_t>(line.m_raw.offset + offset),
              static_cast<uint32_t>(f.field.value.size())};
    }
    const size_t size = detail::unescapeLogValue(raw, f.field.value, text + extra);
    const Span span{extra, static_cast<uint32_t>(size)};
    extra += span.size;
    return span;
  };
  line.m_timestamp = spanOf(timestamp);
  line.m_camera = spanOf(cameraField);
  line.m_message = msg.present ? spanOf(msg) : line.m_raw;
  line.m_extraSize = extra - (line.m_raw.offset + line.m_raw.size);

  if (level.present) {
    std::optional<LogSeverity> severity;
    if (level.field.escaped) {
      std::string unescaped(level.field.value);
      unescaped.resize(detail::unescapeLogValue(raw, level.field.value, unescaped.data()));
      severity = severityFromLevel(unescaped);
    } else {
      severity = severityFromLevel(level.field.value);
    }
    if (severity) line.m_severity = static_cast<uint8_t>(*severity);
  }
  return line;
}

}  // namespace zev
