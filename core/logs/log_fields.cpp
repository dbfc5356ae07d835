#include "core/logs/log_fields.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/logs/unicode_text.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zev::detail {

namespace {

bool isASCIIWhitespace(unsigned char b) { return b == ' ' || (b >= 0x09 && b <= 0x0D); }

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

bool isASCIIAt(std::string_view line, size_t at) {
  return static_cast<unsigned char>(line[at]) < 0x80;
}

// What may end the run being scanned.
enum class Run {
  key,     // whitespace or "="
  value,   // whitespace
  quoted,  // a quote or a backslash
};

// The first position from `at` whose byte could end a run of `kind`: for keys
// and values any byte up to 0x20 or of a non-ASCII sequence (it might be
// whitespace) and, for keys, "="; for quoted text a quote or a backslash.
// The caller decides whether the candidate really ends the run.
template <Run kind>
size_t findCandidate(std::string_view line, size_t at) {
  const size_t n = line.size();
  const char* const p = line.data();
#if defined(__SSE2__)
  const __m128i limit = _mm_set1_epi8(0x21);  // signed: bytes >= 0x80 are below it
  const __m128i equals = _mm_set1_epi8('=');
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  for (; at + 16 <= n; at += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + at));
    __m128i hits;
    if constexpr (kind == Run::quoted) {
      hits = _mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash));
    } else {
      hits = _mm_cmplt_epi8(v, limit);
      if constexpr (kind == Run::key) hits = _mm_or_si128(hits, _mm_cmpeq_epi8(v, equals));
    }
    const int bits = _mm_movemask_epi8(hits);
    if (bits != 0) return at + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(bits)));
  }
#endif
  for (; at < n; ++at) {
    const auto b = static_cast<unsigned char>(p[at]);
    if constexpr (kind == Run::quoted) {
      if (b == '"' || b == '\\') return at;
    } else {
      if (b <= 0x20 || b >= 0x80) return at;
      if (kind == Run::key && b == '=') return at;
    }
  }
  return n;
}

}  // namespace

// The size of the whitespace character starting at `at`, or 0 when the
// character there is not whitespace (or `at` is inside another character).
size_t LogFieldScanner::whitespaceAt(size_t at) const {
  const auto b = static_cast<unsigned char>(m_line[at]);
  if (b < 0x80) {
    if (!isASCIIWhitespace(b)) return 0;
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

// Whether the ASCII delimiter at `at` is a character of its own. Between
// ASCII neighbours it always is.
bool LogFieldScanner::standsAlone(size_t at) const {
  if ((at == 0 || isASCIIAt(m_line, at - 1)) &&
      (at + 1 >= m_line.size() || isASCIIAt(m_line, at + 1))) {
    return true;
  }
  return boundaryBefore(m_line, at, GraphemeClass::other) && !joinsPrevious(m_line, at + 1);
}

size_t LogFieldScanner::skipWhitespace(size_t at) const {
  const size_t n = m_line.size();
  while (at < n) {
    // The usual separator: one space between ASCII characters.
    if (m_line[at] == ' ' && (at == 0 || isASCIIAt(m_line, at - 1)) &&
        (at + 1 >= n || isASCIIAt(m_line, at + 1))) {
      ++at;
      continue;
    }
    const size_t w = whitespaceAt(at);
    if (w == 0) break;
    at += w;
  }
  return at;
}

// The end of a run of characters that are neither whitespace nor (when asked)
// a lone "=".
size_t LogFieldScanner::endOfToken(size_t at, bool stopAtEquals) const {
  const size_t n = m_line.size();
  for (;;) {
    at = stopAtEquals ? findCandidate<Run::key>(m_line, at) : findCandidate<Run::value>(m_line, at);
    if (at >= n) return n;
    const auto b = static_cast<unsigned char>(m_line[at]);
    if (b == '=') {
      if (standsAlone(at)) return at;
      ++at;
    } else if (b < 0x80 && !isASCIIWhitespace(b)) {
      ++at;  // a control character that is not whitespace
    } else if (b == ' ' && (at + 1 >= n || isASCIIAt(m_line, at + 1)) &&
               (at == 0 || isASCIIAt(m_line, at - 1))) {
      return at;  // the usual separator
    } else if (whitespaceAt(at) != 0) {
      return at;
    } else {
      at += sequenceSize(m_line, at);
    }
  }
}

LogFieldScanner::LogFieldScanner(std::string_view line, LogScanPath path) : m_line(line) {
  const size_t n = line.size();
  if (path != LogScanPath::automatic || n > kASCIIPathMaxBytes) return;
  uint64_t high = 0;
  // Four 16-byte blocks make one 64-bit mask word.
  for (size_t w = 0; w * 64 < n; ++w) {
    uint64_t space = 0, spaceOrEquals = 0, quoted = 0;
    for (size_t k = 0; k < 4 && w * 64 + k * 16 < n; ++k) {
      const size_t at = w * 64 + k * 16;
      // Full blocks are read in place; the last, short one from a zeroed
      // copy (a zero byte belongs to no class).
      alignas(16) char chunk[16] = {};
      const char* block = line.data() + at;
      if (n - at < 16) {
        for (size_t i = 0; i < n - at; ++i) chunk[i] = block[i];
        block = chunk;
      }
      uint64_t blockSpace = 0, blockEquals = 0, blockQuoted = 0, blockHigh = 0;
#if defined(__SSE2__)
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
      const __m128i blank = _mm_or_si128(
          _mm_cmpeq_epi8(v, _mm_set1_epi8(' ')),
          _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(0x08)), _mm_cmplt_epi8(v, _mm_set1_epi8(0x0E))));
      blockSpace = static_cast<uint16_t>(_mm_movemask_epi8(blank));
      blockEquals = static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('='))));
      blockQuoted = static_cast<uint16_t>(_mm_movemask_epi8(_mm_or_si128(
          _mm_cmpeq_epi8(v, _mm_set1_epi8('"')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\\')))));
      blockHigh = static_cast<uint16_t>(_mm_movemask_epi8(v));
#else
      for (size_t i = 0; i < 16; ++i) {
        const auto c = static_cast<unsigned char>(block[i]);
        blockSpace |= uint64_t{isASCIIWhitespace(c)} << i;
        blockEquals |= uint64_t{c == '='} << i;
        blockQuoted |= uint64_t{c == '"' || c == '\\'} << i;
        blockHigh |= uint64_t{c >= 0x80} << i;
      }
#endif
      const unsigned shift = static_cast<unsigned>(k) * 16;
      space |= blockSpace << shift;
      spaceOrEquals |= (blockSpace | blockEquals) << shift;
      quoted |= blockQuoted << shift;
      high |= blockHigh;
    }
    m_space[w] = space;
    m_spaceOrEquals[w] = spaceOrEquals;
    m_quoteOrBackslash[w] = quoted;
  }
  m_ascii = high == 0;
}

bool LogFieldScanner::nextGeneral(LogField& field) {
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
      for (;;) {
        at = findCandidate<Run::quoted>(m_line, at);
        if (at >= n) break;
        if (!standsAlone(at)) {
          ++at;
        } else if (m_line[at] == '"') {
          close = at;
          break;
        } else {
          escaped = true;
          // The next character is literal whatever it is; a following code
          // point that joins it is taken by the next step as plain text.
          at = at + 1 < n ? at + 1 + sequenceSize(m_line, at + 1) : n;
        }
      }
      value = m_line.substr(valueStart + 1, close - valueStart - 1);
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

std::unordered_map<std::string, std::string> parseLogFields(std::string_view line,
                                                           LogScanPath path) {
  std::unordered_map<std::string, std::string> fields;
  LogFieldScanner scanner(line, path);
  LogField field;
  while (scanner.next(field)) {
    std::string value(field.value);
    if (field.escaped) value.resize(unescapeLogValue(line, field.value, value.data()));
    fields.insert_or_assign(std::string(field.key), std::move(value));
  }
  return fields;
}

}  // namespace zev::detail
