#include "core/log_fields.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "core/unicode_text.h"

namespace zev::detail {

namespace {

enum : uint8_t {
  kSpace = 1,       // ASCII whitespace
  kEquals = 2,
  kQuote = 4,
  kBackslash = 8,
  kHigh = 16,       // a byte of a non-ASCII sequence
};

constexpr std::array<uint8_t, 256> makeByteClasses() {
  std::array<uint8_t, 256> table{};
  for (int b = 0x09; b <= 0x0D; ++b) table[b] = kSpace;
  table[' '] = kSpace;
  table['='] = kEquals;
  table['"'] = kQuote;
  table['\\'] = kBackslash;
  for (int b = 0x80; b < 0x100; ++b) table[b] = kHigh;
  return table;
}

constexpr std::array<uint8_t, 256> kByteClass = makeByteClasses();

uint8_t byteClass(char c) { return kByteClass[static_cast<unsigned char>(c)]; }

// Whether a grapheme cluster boundary lies before `at`, where the code point
// at `at` is a delimiter of class `current` (other, cr, lf or control). For
// such code points only the previous code point matters.
bool boundaryBefore(std::string_view line, size_t at, GraphemeClass current) {
  if (at == 0) return true;
  const auto prev = static_cast<unsigned char>(line[at - 1]);
  if (prev < 0x80) return !(prev == '\r' && current == GraphemeClass::lf);
  if (current != GraphemeClass::other) return true;  // controls always break
  const DecodedChar d = decodeUTF8Before(line, at);
  return !d.valid || graphemeClass(d.codePoint) != GraphemeClass::prepend;
}

// Whether the code point at `at` joins the character before it.
bool joinsPrevious(std::string_view line, size_t at) {
  if (at >= line.size() || static_cast<unsigned char>(line[at]) < 0x80) return false;
  const DecodedChar d = decodeUTF8(line, at);
  return d.valid && graphemeClass(d.codePoint) == GraphemeClass::extender;
}

size_t sequenceSize(std::string_view line, size_t at) {
  return static_cast<unsigned char>(line[at]) < 0x80 ? 1 : decodeUTF8(line, at).size;
}

}  // namespace

// The size of the whitespace character starting at `at`, or 0 when the
// character there is not whitespace (or `at` is inside another character).
size_t LogFieldScanner::whitespaceAt(size_t at) const {
  const auto b = static_cast<unsigned char>(m_line[at]);
  if (b < 0x80) {
    if (!(kByteClass[b] & kSpace)) return 0;
    if (b == '\r') {
      if (!boundaryBefore(m_line, at, GraphemeClass::cr)) return 0;
      return at + 1 < m_line.size() && m_line[at + 1] == '\n' ? 2 : 1;
    }
    if (b == ' ') {
      if (!boundaryBefore(m_line, at, GraphemeClass::other)) return 0;
      return joinsPrevious(m_line, at + 1) ? 0 : 1;
    }
    // Tab, line feed, vertical tab, form feed: controls, never extended.
    const GraphemeClass cls = b == '\n' ? GraphemeClass::lf : GraphemeClass::control;
    return boundaryBefore(m_line, at, cls) ? 1 : 0;
  }
  const DecodedChar d = decodeUTF8(m_line, at);
  if (!d.valid || !isUnicodeWhitespace(d.codePoint)) return 0;
  const GraphemeClass cls = graphemeClass(d.codePoint);
  if (!boundaryBefore(m_line, at, cls)) return 0;
  if (cls == GraphemeClass::other && joinsPrevious(m_line, at + d.size)) return 0;
  return d.size;
}

// Whether the ASCII delimiter at `at` is a character of its own.
bool LogFieldScanner::standsAlone(size_t at) const {
  return boundaryBefore(m_line, at, GraphemeClass::other) && !joinsPrevious(m_line, at + 1);
}

size_t LogFieldScanner::skipWhitespace(size_t at) const {
  while (at < m_line.size()) {
    const size_t w = whitespaceAt(at);
    if (w == 0) break;
    at += w;
  }
  return at;
}

// The end of a run of characters that are neither whitespace nor (when asked)
// a lone "=".
size_t LogFieldScanner::endOfToken(size_t at, bool stopAtEquals) const {
  const uint8_t stops = kSpace | kHigh | (stopAtEquals ? kEquals : 0);
  const size_t n = m_line.size();
  while (at < n) {
    const uint8_t cls = byteClass(m_line[at]);
    if (!(cls & stops)) {
      ++at;
      continue;
    }
    if (cls & kEquals) {
      if (standsAlone(at)) return at;
      ++at;
    } else if (whitespaceAt(at) != 0) {
      return at;
    } else {
      at += sequenceSize(m_line, at);
    }
  }
  return n;
}

bool LogFieldScanner::next(LogField& field) {
  const size_t n = m_line.size();
  for (;;) {
    const size_t start = skipWhitespace(m_pos);
    if (start >= n) {
      m_pos = n;
      return false;
    }
    const size_t keyEnd = endOfToken(start, /*stopAtEquals=*/true);
    if (keyEnd >= n || m_line[keyEnd] != '=') {
      m_pos = keyEnd;  // a bare word
      continue;
    }

    const size_t valueStart = keyEnd + 1;
    std::string_view value;
    bool escaped = false;
    if (valueStart >= n) {
      m_pos = n;
    } else if (m_line[valueStart] == '"' && standsAlone(valueStart)) {
      size_t at = valueStart + 1;
      size_t close = n;
      while (at < n) {
        const uint8_t cls = byteClass(m_line[at]);
        if ((cls & kBackslash) && standsAlone(at)) {
          escaped = true;
          // The next character is literal whatever it is; a following code
          // point that joins it is taken by the next step as plain text.
          at = at + 1 < n ? at + 1 + sequenceSize(m_line, at + 1) : n;
        } else if ((cls & kQuote) && standsAlone(at)) {
          close = at;
          break;
        } else {
          ++at;
        }
      }
      value = m_line.substr(valueStart + 1, (close < n ? close : n) - valueStart - 1);
      m_pos = close < n ? close + 1 : n;
    } else {
      const size_t valueEnd = endOfToken(valueStart, /*stopAtEquals=*/false);
      value = m_line.substr(valueStart, valueEnd - valueStart);
      m_pos = valueEnd;
    }

    if (keyEnd == start) continue;  // "=value": no key, dropped
    field.key = m_line.substr(start, keyEnd - start);
    field.value = value;
    field.escaped = escaped;
    return true;
  }
}

size_t unescapeLogValue(std::string_view line, std::string_view value, char* out) {
  const size_t begin = static_cast<size_t>(value.data() - line.data());
  const size_t end = begin + value.size();
  char* const first = out;
  size_t copied = begin;
  size_t at = begin;
  auto flush = [&](size_t upTo) {
    std::memcpy(out, line.data() + copied, upTo - copied);
    out += upTo - copied;
  };
  while (at < end) {
    if (line[at] == '\\' && boundaryBefore(line, at, GraphemeClass::other) &&
        !joinsPrevious(line, at + 1)) {
      flush(at);
      if (at + 1 >= end) {
        copied = end;  // a backslash that ends the line is dropped
        break;
      }
      // The escaped character is copied with the text after it: only the
      // backslash goes.
      copied = at + 1;
      at += 1 + std::min(sequenceSize(line, at + 1), end - at - 1);
    } else {
      ++at;
    }
  }
  if (copied < end) flush(end);
  return static_cast<size_t>(out - first);
}

std::unordered_map<std::string, std::string> parseLogFields(std::string_view line) {
  std::unordered_map<std::string, std::string> fields;
  LogFieldScanner scanner(line);
  LogField field;
  while (scanner.next(field)) {
    std::string value(field.value);
    if (field.escaped) value.resize(unescapeLogValue(line, field.value, value.data()));
    fields.insert_or_assign(std::string(field.key), std::move(value));
  }
  return fields;
}

}  // namespace zev::detail
