// The key=value scanner under LogLine::parse. Internal to the log code; tests
// reach it through detail::parseLogFields.
//
// A line is read as a sequence of user-perceived characters (grapheme
// clusters). Delimiters are "=", the double quote, the backslash and
// whitespace; a delimiter followed by a combining mark (or any other code
// point that joins it into one character) is not that delimiter any more, so
// `"` followed by U+0301 does not close a value and a space carrying an accent
// is a visible character, not a separator. A carriage return and the line feed
// after it form one whitespace character. Whitespace is every code point with
// the Unicode White_Space property.
//
// Pure ASCII is decided byte by byte; ICU's character properties are asked
// only where a non-ASCII byte sits next to a delimiter or could itself be
// whitespace.
#ifndef ZEV_CORE_LOG_FIELDS_H_
#define ZEV_CORE_LOG_FIELDS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace zev::detail {

// One field, as views into the scanned line.
struct LogField {
  std::string_view key;
  // Unquoted: the value itself. Quoted: the text between the quotes with its
  // backslash escapes still in place when `escaped` is set (resolve them with
  // unescapeLogValue), else the value itself.
  std::string_view value;
  bool escaped = false;
};

enum class LogScanPath {
  // Pure-ASCII lines of up to kASCIIPathMaxBytes take a path that classifies
  // every byte in one vector pass and then walks bit masks; others take the
  // general path.
  automatic,
  // Always the general, character-by-character path (tests compare the two).
  general,
};

// Yields the fields of one line in order, duplicates included; bare words and
// pairs with an empty key are skipped. Never allocates.
class LogFieldScanner {
 public:
  static constexpr size_t kASCIIPathMaxBytes = 512;

  explicit LogFieldScanner(std::string_view line, LogScanPath path = LogScanPath::automatic);

  // Fills `field` with the next field; false once the line is exhausted.
  bool next(LogField& field);

 private:
  static constexpr size_t kMaskWords = kASCIIPathMaxBytes / 64;

  bool nextASCII(LogField& field);
  bool nextGeneral(LogField& field);
  size_t whitespaceAt(size_t at) const;
  bool standsAlone(size_t at) const;
  size_t skipWhitespace(size_t at) const;
  size_t endOfToken(size_t at, bool stopAtEquals) const;

  std::string_view m_line;
  size_t m_pos = 0;
  bool m_ascii = false;
  // ASCII path: one bit per byte of the line.
  uint64_t m_space[kMaskWords];
  uint64_t m_spaceOrEquals[kMaskWords];
  uint64_t m_quoteOrBackslash[kMaskWords];
};

// The first index from `from` whose bit is set (or, with `invert`, clear) in
// `mask`, or `n` when there is none before it.
template <bool invert>
inline size_t findBit(const uint64_t* mask, size_t words, size_t from, size_t n) {
  size_t w = from / 64;
  if (w >= words) return n;
  uint64_t bits = (invert ? ~mask[w] : mask[w]) & (~uint64_t{0} << (from % 64));
  while (bits == 0) {
    if (++w >= words) return n;
    bits = invert ? ~mask[w] : mask[w];
  }
  return std::min(n, w * 64 + static_cast<size_t>(__builtin_ctzll(bits)));
}


// next() and the ASCII walk are inline: they run once per field of every
// line of a tail load.
inline bool LogFieldScanner::next(LogField& field) {
  return m_ascii ? nextASCII(field) : nextGeneral(field);
}

// The grammar for ASCII text, where every byte is a character of its own and
// CR LF is two whitespace bytes, which come to the same thing.
inline bool LogFieldScanner::nextASCII(LogField& field) {
  const size_t n = m_line.size();
  const size_t words = (n + 63) / 64;
  for (;;) {
    const size_t start = detail::findBit<true>(m_space, words, m_pos, n);
    if (start >= n) {
      m_pos = n;
      return false;
    }
    const size_t keyEnd = detail::findBit<false>(m_spaceOrEquals, words, start, n);
    if (keyEnd >= n || m_line[keyEnd] != '=') {
      m_pos = keyEnd;  // a bare word
      continue;
    }
    const size_t valueStart = keyEnd + 1;
    std::string_view value;
    bool escaped = false;
    if (valueStart >= n) {
      m_pos = n;
    } else if (m_line[valueStart] == '"') {
      size_t at = valueStart + 1;
      size_t close = n;
      for (;;) {
        at = detail::findBit<false>(m_quoteOrBackslash, words, at, n);
        if (at >= n) break;
        if (m_line[at] == '"') {
          close = at;
          break;
        }
        escaped = true;
        at = std::min(n, at + 2);  // the escaped byte is literal
      }
      value = m_line.substr(valueStart + 1, close - valueStart - 1);
      m_pos = close < n ? close + 1 : n;
    } else {
      const size_t valueEnd = detail::findBit<false>(m_space, words, valueStart, n);
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

// Writes a quoted value (a LogField::value from `line`) with its escapes
// resolved to `out`, which has room for value.size() bytes, and returns the
// number of bytes written: a backslash makes the next character literal, and
// a backslash that ends the line is dropped. No escape becomes a control
// character: \n is the letter n.
size_t unescapeLogValue(std::string_view line, std::string_view value, char* out);

// The field map of a line: the last occurrence of a key wins.
std::unordered_map<std::string, std::string> parseLogFields(
    std::string_view line, LogScanPath path = LogScanPath::automatic);

}  // namespace zev::detail

#endif  // ZEV_CORE_LOG_FIELDS_H_
