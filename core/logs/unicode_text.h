// Small Unicode primitives shared by the log parser, the tail loader and the
// log search: UTF-8 decoding with U+FFFD substitution, the Unicode whitespace
// set, and the grapheme-cluster classes that decide whether a delimiter stands
// on its own as a user-perceived character.
//
// ASCII is answered inline; anything else asks ICU's character properties.
// Pure functions, safe on any thread.
#ifndef ZEV_CORE_UNICODE_TEXT_H_
#define ZEV_CORE_UNICODE_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zev::detail {

// One decoded UTF-8 sequence. An invalid or incomplete sequence decodes to
// U+FFFD with `valid` false and `size` covering its maximal subpart (the
// W3C/Unicode substitution practice), so that every byte of the input belongs
// to exactly one decoded unit.
struct DecodedChar {
  char32_t codePoint;
  uint8_t size;
  bool valid;
};

// Decodes the sequence starting at `at` (< text.size()).
DecodedChar decodeUTF8(std::string_view text, size_t at);

// Decodes the unit that ends right before `end` (> 0). A byte that is not the
// end of a well-formed sequence decodes as an invalid unit of size 1.
DecodedChar decodeUTF8Before(std::string_view text, size_t end);

// True for every code point with the Unicode White_Space property: the ASCII
// blanks and line breaks, U+0085, U+00A0, U+1680, U+2000..U+200A, U+2028,
// U+2029, U+202F, U+205F and U+3000. Zero-width characters are not whitespace.
constexpr bool isUnicodeWhitespace(char32_t c) {
  if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// The grapheme-cluster-break classes that matter next to a delimiter.
// `extender` is Extend, ZWJ or SpacingMark: a code point that joins the
// character before it. `prepend` joins the character after it. Hangul jamo,
// regional indicators and pictographs count as `other`: none of them can glue
// themselves to an ASCII delimiter or a whitespace character.
enum class GraphemeClass : uint8_t { other, cr, lf, control, extender, prepend };

GraphemeClass graphemeClass(char32_t c);

inline bool isASCII(std::string_view text) {
  // Eight bytes at a time; the compiler vectorises the loop.
  uint64_t high = 0;
  size_t i = 0;
  const size_t n = text.size();
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  for (; i + 8 <= n; i += 8) {
    uint64_t word;
    __builtin_memcpy(&word, p + i, 8);
    high |= word;
  }
  for (; i < n; ++i) high |= p[i];
  return (high & 0x8080808080808080ULL) == 0;
}

// Whether `text` is well-formed UTF-8. ASCII runs are skipped sixteen bytes
// at a time.
bool isValidUTF8(std::string_view text);

// Appends `text` to `out` with every invalid or incomplete UTF-8 sequence
// replaced by U+FFFD.
void appendReplacingInvalidUTF8(std::string_view text, std::string& out);

// `text` without leading and trailing Unicode whitespace (by code point).
std::string_view trimUnicodeWhitespace(std::string_view text);

}  // namespace zev::detail

#endif  // ZEV_CORE_UNICODE_TEXT_H_
