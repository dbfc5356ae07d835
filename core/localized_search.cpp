#include "core/localized_search.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/unicode_text.h"

namespace zev {

namespace detail {

bool foldsToStandaloneASCII(char32_t c) {
  // Generated from ICU 72 by walking every code point through the fold used
  // below (Turkic and default); localized_search_test checks it still holds.
  static constexpr std::array<char32_t, 16> kCodePoints = {
      0x00DF, 0x0130, 0x0149, 0x017F, 0x037E, 0x1E9A, 0x1E9E, 0x1FEF,
      0x212A, 0xFB00, 0xFB01, 0xFB02, 0xFB03, 0xFB04, 0xFB05, 0xFB06};
  return std::binary_search(kCodePoints.begin(), kCodePoints.end(), c);
}

}  // namespace detail

namespace {

bool isASCIILetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool isTurkic(const icu::Locale& locale) {
  const std::string_view language = locale.getLanguage();
  return language == "tr" || language == "az";
}

}  // namespace

struct LocalizedSearch::Unicode {
  icu::Locale locale;
  const icu::Normalizer2* nfd = nullptr;
  icu::UnicodeString needle;    // folded
  icu::UnicodeString haystack;  // scratch: the folded text under test
  std::unique_ptr<icu::BreakIterator> characters;

  // Case folding as the locale does it, then canonical decomposition, so that
  // é and e + U+0301 compare equal and diacritics survive as marks.
  icu::UnicodeString fold(icu::UnicodeString text, bool turkic) const {
    if (turkic) text.toLower(locale);  // I → ı, İ → i, I + U+0307 → i
    text.foldCase(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString decomposed = nfd->normalize(text, status);
    return U_SUCCESS(status) ? decomposed : text;
  }
};

LocalizedSearch::LocalizedSearch(std::string_view needle, std::string_view localeID)
    : m_needleUTF8(needle), m_empty(needle.empty()) {
  m_unicode = std::make_unique<Unicode>();
  m_unicode->locale = localeID.empty() ? icu::Locale::getDefault()
                                       : icu::Locale(std::string(localeID).c_str());
  m_turkic = isTurkic(m_unicode->locale);
  UErrorCode status = U_ZERO_ERROR;
  m_unicode->nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status)) m_unicode->nfd = nullptr;
  if (m_empty) return;

  if (detail::isASCII(needle)) {
    m_folded.resize(needle.size());
    std::transform(needle.begin(), needle.end(), m_folded.begin(), asciiLower);
  } else if (m_unicode->nfd != nullptr) {
    m_unicode->needle = m_unicode->fold(
        icu::UnicodeString::fromUTF8(icu::StringPiece(needle.data(), static_cast<int32_t>(needle.size()))),
        m_turkic);
    m_unicode->needle.toUTF8String(m_folded);
  }
  // In Turkish an ASCII "I" folds to "ı", so an "i" in the needle must not
  // meet ASCII text byte by byte.
  m_asciiMode = !m_folded.empty() && detail::isASCII(m_folded) &&
                !(m_turkic && m_folded.find('i') != std::string::npos);
  if (m_asciiMode) {
    m_caseMask.resize(m_folded.size());
    for (size_t i = 0; i < m_folded.size(); ++i) m_caseMask[i] = isASCIILetter(m_folded[i]) ? 0x20 : 0;
  }
}

LocalizedSearch::~LocalizedSearch() = default;

bool LocalizedSearch::isFoundIn(std::string_view text) {
  if (m_empty) return true;
  if (m_asciiMode) {
    if (findASCII(text)) return true;
    if (detail::isASCII(text)) return false;
    // Past the byte-wise search, only characters that fold into standalone
    // ASCII can still make a match.
    for (size_t i = 0; i < text.size();) {
      if (static_cast<unsigned char>(text[i]) < 0x80) {
        ++i;
        continue;
      }
      const detail::DecodedChar d = detail::decodeUTF8(text, i);
      if (d.valid && detail::foldsToStandaloneASCII(d.codePoint)) return findUnicode(text);
      i += d.size;
    }
    return false;
  }
  // Outside Turkish, ASCII text folds to ASCII, which cannot hold a needle
  // whose folded form is not ASCII.
  if (!m_turkic && detail::isASCII(text)) return false;
  return findUnicode(text);
}

bool LocalizedSearch::findASCII(std::string_view text) const {
  const size_t m = m_folded.size();
  const size_t n = text.size();
  if (n < m) return false;
  const char* const t = text.data();
  const char* const needle = m_folded.data();
  const char* const mask = m_caseMask.data();

  auto matchesAt = [&](size_t at) {
    for (size_t k = 0; k < m; ++k) {
      if (static_cast<char>(t[at + k] | mask[k]) != needle[k]) return false;
    }
    // Both ends must be character boundaries: no mark joins the last
    // character, no prepended character holds the first, CR LF stays whole.
    const size_t end = at + m;
    if (end < n) {
      const auto next = static_cast<unsigned char>(t[end]);
      if (next >= 0x80) {
        const detail::DecodedChar d = detail::decodeUTF8(text, end);
        if (d.valid && detail::graphemeClass(d.codePoint) == detail::GraphemeClass::extender) {
          return false;
        }
      } else if (next == '\n' && needle[m - 1] == '\r') {
        return false;
      }
    }
    if (at > 0) {
      const auto prev = static_cast<unsigned char>(t[at - 1]);
      if (prev >= 0x80) {
        const detail::DecodedChar d = detail::decodeUTF8Before(text, at);
        if (d.valid && detail::graphemeClass(d.codePoint) == detail::GraphemeClass::prepend) {
          return false;
        }
      } else if (prev == '\r' && needle[0] == '\n') {
        return false;
      }
    }
    return true;
  };

  size_t i = 0;
#if defined(__SSE2__)
  // Candidates are where both the first and the last needle byte match.
  const __m128i first = _mm_set1_epi8(needle[0]);
  const __m128i firstMask = _mm_set1_epi8(mask[0]);
  const __m128i last = _mm_set1_epi8(needle[m - 1]);
  const __m128i lastMask = _mm_set1_epi8(mask[m - 1]);
  for (; i + m - 1 + 16 <= n; i += 16) {
    const __m128i a =
        _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t + i)), firstMask);
    const __m128i b =
        _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t + i + m - 1)), lastMask);
    unsigned bits = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, last))));
    while (bits != 0) {
      if (matchesAt(i + static_cast<size_t>(__builtin_ctz(bits)))) return true;
      bits &= bits - 1;
    }
  }
#endif
  for (; i + m <= n; ++i) {
    if (static_cast<char>(t[i] | mask[0]) == needle[0] && matchesAt(i)) return true;
  }
  return false;
}

LocalizedSearch::Unicode& LocalizedSearch::unicode() { return *m_unicode; }

bool LocalizedSearch::findUnicode(std::string_view text) {
  Unicode& u = unicode();
  if (u.nfd == nullptr) return false;
  if (u.needle.isEmpty()) {  // an ASCII needle: folded only when first needed
    u.needle = u.fold(icu::UnicodeString::fromUTF8(icu::StringPiece(
                          m_needleUTF8.data(), static_cast<int32_t>(m_needleUTF8.size()))),
                      m_turkic);
    if (u.needle.isEmpty()) return false;
  }
  u.haystack = u.fold(
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size()))),
      m_turkic);
  const int32_t length = u.needle.length();
  int32_t from = 0;
  bool textSet = false;
  for (;;) {
    const int32_t at = u.haystack.indexOf(u.needle, from);
    if (at < 0) return false;
    if (!u.characters) {
      UErrorCode status = U_ZERO_ERROR;
      u.characters.reset(icu::BreakIterator::createCharacterInstance(u.locale, status));
      if (U_FAILURE(status)) u.characters.reset();
    }
    if (!u.characters) return true;  // no segmentation data: accept the code-point match
    if (!textSet) {
      u.characters->setText(u.haystack);
      textSet = true;
    }
    if (u.characters->isBoundary(at) && u.characters->isBoundary(at + length)) return true;
    from = at + 1;
  }
}

}  // namespace zev
