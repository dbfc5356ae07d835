#include "core/logs/unicode_text.h"

#include <unicode/uchar.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zev::detail {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isContinuation(unsigned char b) { return (b & 0xC0) == 0x80; }

}  // namespace

DecodedChar decodeUTF8(std::string_view text, size_t at) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data()) + at;
  const size_t left = text.size() - at;
  const unsigned char b0 = p[0];
  if (b0 < 0x80) return {b0, 1, true};

  // Well-formed sequences (Unicode table 3-7): the lead byte fixes the length
  // and the allowed range of the second byte; later bytes are 80..BF.
  size_t need;
  unsigned char lo = 0x80;
  unsigned char hi = 0xBF;
  char32_t cp;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    need = 2;
    cp = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    need = 3;
    cp = b0 & 0x0F;
    if (b0 == 0xE0) lo = 0xA0;
    if (b0 == 0xED) hi = 0x9F;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    need = 4;
    cp = b0 & 0x07;
    if (b0 == 0xF0) lo = 0x90;
    if (b0 == 0xF4) hi = 0x8F;
  } else {
    return {kReplacement, 1, false};
  }
  size_t i = 1;
  for (; i < need; ++i) {
    if (i >= left) return {kReplacement, static_cast<uint8_t>(i), false};
    const unsigned char b = p[i];
    if (i == 1 ? (b < lo || b > hi) : !isContinuation(b)) {
      return {kReplacement, static_cast<uint8_t>(i), false};
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  return {cp, static_cast<uint8_t>(need), true};
}

DecodedChar decodeUTF8Before(std::string_view text, size_t end) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  if (p[end - 1] < 0x80) return {p[end - 1], 1, true};
  // Walk back over at most three continuation bytes to a lead byte and check
  // that the sequence it starts ends exactly at `end`.
  size_t start = end - 1;
  while (start > 0 && end - start < 4 && isContinuation(p[start])) --start;
  const DecodedChar d = decodeUTF8(text.substr(0, end), start);
  if (d.valid && start + d.size == end) return d;
  return {kReplacement, 1, false};
}

GraphemeClass graphemeClass(char32_t c) {
  if (c < 0x80) {
    if (c == '\r') return GraphemeClass::cr;
    if (c == '\n') return GraphemeClass::lf;
    if (c < 0x20 || c == 0x7F) return GraphemeClass::control;
    return GraphemeClass::other;
  }
  switch (u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_CONTROL:
      return GraphemeClass::control;
    case U_GCB_EXTEND:
    case U_GCB_ZWJ:
    case U_GCB_SPACING_MARK:
      return GraphemeClass::extender;
    case U_GCB_PREPEND:
      return GraphemeClass::prepend;
    default:
      return GraphemeClass::other;
  }
}

bool isValidUTF8(std::string_view text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
#if defined(__SSE2__)
    // Skip ASCII sixteen bytes at a time, up to the first byte with its high
    // bit set.
    while (i + 16 <= n) {
      const int high = _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)));
      if (high != 0) {
        i += static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(high)));
        break;
      }
      i += 16;
    }
    if (i >= n) break;
#endif
    if (p[i] < 0x80) {
      ++i;
      continue;
    }
    const DecodedChar d = decodeUTF8(text, i);
    if (!d.valid) return false;
    i += d.size;
  }
  return true;
}

void appendReplacingInvalidUTF8(std::string_view text, std::string& out) {
  size_t i = 0;
  const size_t n = text.size();
  while (i < n) {
    // Copy the longest valid run in one go.
    size_t run = i;
    while (run < n) {
      if (static_cast<unsigned char>(text[run]) < 0x80) {
        ++run;
        continue;
      }
      const DecodedChar d = decodeUTF8(text, run);
      if (!d.valid) break;
      run += d.size;
    }
    out.append(text.data() + i, run - i);
    if (run == n) return;
    const DecodedChar bad = decodeUTF8(text, run);
    out.append("\xEF\xBF\xBD");
    i = run + bad.size;
  }
}

std::string_view trimUnicodeWhitespace(std::string_view text) {
  size_t begin = 0;
  while (begin < text.size()) {
    const DecodedChar d = decodeUTF8(text, begin);
    if (!d.valid || !isUnicodeWhitespace(d.codePoint)) break;
    begin += d.size;
  }
  size_t end = text.size();
  while (end > begin) {
    const DecodedChar d = decodeUTF8Before(text, end);
    if (!d.valid || !isUnicodeWhitespace(d.codePoint)) break;
    end -= d.size;
  }
  return text.substr(begin, end - begin);
}

}  // namespace zev::detail
