#include "core/logs/localized_search.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "core/logs/unicode_text.h"

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

bool isASCIIControl(char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }

bool isASCIILetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// A rough rank of how often a (lower-case) byte occurs in daemon log lines:
// blanks, "=", digits and the letters of English and of common keys are
// frequent; the rest is rare.
int logByteFrequency(char c) {
  switch (c) {
    case ' ': case '=': return 250;
    case 'e': case 't': case 'a': case 'i': case 'o': case 'n': case 's': case 'r': return 200;
    case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8':
    case '9': return 190;
    case 'l': case 'm': case 'c': case 'd': case '-': case ':': case '"': case '.': return 150;
    case 'u': case 'g': case 'p': case 'h': case 'f': case 'b': case '_': return 100;
    case 'y': case 'w': case 'v': case 'k': case '/': case ',': return 60;
    default: return 20;
  }
}

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
#if defined(__x86_64__)
  m_useAVX2 = __builtin_cpu_supports("avx2");
#endif
  UErrorCode status = U_ZERO_ERROR;
  m_unicode->nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status)) m_unicode->nfd = nullptr;
  if (m_empty) return;

  // ASCII folds to its lower case, except that in Turkish "I" folds to "ı".
  if (detail::isASCII(needle) && !(m_turkic && needle.find('I') != std::string_view::npos)) {
    m_folded.resize(needle.size());
    std::transform(needle.begin(), needle.end(), m_folded.begin(), asciiLower);
  } else if (m_unicode->nfd != nullptr) {
    m_unicode->needle = m_unicode->fold(
        icu::UnicodeString::fromUTF8(icu::StringPiece(needle.data(), static_cast<int32_t>(needle.size()))),
        m_turkic);
    m_unicode->needle.toUTF8String(m_folded);
  }
  m_asciiMode = !m_folded.empty() && detail::isASCII(m_folded);
  if (m_asciiMode) {
    // Letters match either case, but in Turkish an "i" only matches "i": the
    // text's "I" folds to "ı".
    m_caseMask.resize(m_folded.size());
    for (size_t i = 0; i < m_folded.size(); ++i) {
      const char c = m_folded[i];
      m_caseMask[i] = isASCIILetter(c) && !(m_turkic && c == 'i') ? 0x20 : 0;
    }
    // Anchor the vector search on the two bytes least likely in a log line.
    size_t rarest = 0;
    for (size_t i = 1; i < m_folded.size(); ++i) {
      if (logByteFrequency(m_folded[i]) < logByteFrequency(m_folded[rarest])) rarest = i;
    }
    size_t runnerUp = rarest == 0 ? m_folded.size() - 1 : 0;
    for (size_t i = 0; i < m_folded.size(); ++i) {
      if (i != rarest && logByteFrequency(m_folded[i]) < logByteFrequency(m_folded[runnerUp])) {
        runnerUp = i;
      }
    }
    m_anchor1 = std::min(rarest, runnerUp);
    m_anchor2 = std::max(rarest, runnerUp);
  } else if (m_turkic) {
    // "ı" is U+0131, C4 B1 in UTF-8.
    std::string rest = m_folded;
    for (size_t at; (at = rest.find("\xC4\xB1")) != std::string::npos;) rest.erase(at, 2);
    m_asciiTextCanMatch = detail::isASCII(rest);
  }
}

LocalizedSearch::~LocalizedSearch() = default;

bool LocalizedSearch::isFoundIn(std::string_view text) {
  if (m_empty) return true;
  if (m_asciiMode) {
    bool sawNonASCII = false;
    if (findASCII(text, sawNonASCII)) return true;
    return sawNonASCII && mayFoldIntoMatch(text);
  }
  // ASCII text folds to ASCII (and, in Turkish, "ı"), which cannot hold a
  // needle whose folded form has anything else.
  if (!m_asciiTextCanMatch && detail::isASCII(text)) return false;
  return findUnicode(text);
}

bool LocalizedSearch::mayFoldIntoMatch(std::string_view text) {
  // Past the byte-wise search, only characters that fold into standalone
  // ASCII can still make a match.
  const size_t n = text.size();
  for (size_t i = 0; i < n;) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      // Skip ASCII a word at a time.
      ++i;
      for (uint64_t word; i + 8 <= n; i += 8) {
        std::memcpy(&word, text.data() + i, 8);
        if ((word & 0x8080808080808080ULL) != 0) break;
      }
      continue;
    }
    const detail::DecodedChar d = detail::decodeUTF8(text, i);
    if (d.valid && detail::foldsToStandaloneASCII(d.codePoint)) return findUnicode(text);
    i += d.size;
  }
  return false;
}

namespace {

// How many texts ahead a search over many asks for the text to be cached.
constexpr size_t kPrefetchDistance = 8;

// Asks for the first 128 bytes of `text` to be cached.
inline void prefetchText(std::string_view text) {
  __builtin_prefetch(text.data());
  __builtin_prefetch(text.data() + 64);
}

// The folded ASCII needle as the byte-wise search reads it.
struct ASCIINeedle {
  const char* bytes;
  const char* mask;  // per byte: 0x20 for letters that match either case
  size_t size;
  size_t anchor1;  // offsets of the two bytes the vector scan tests
  size_t anchor2;
};

// Whether the needle matches `text` at `at` as whole characters.
bool matchesAt(const ASCIINeedle& s, std::string_view text, size_t at) {
  const size_t m = s.size;
  const size_t n = text.size();
  const char* const t = text.data();
  for (size_t k = 0; k < m; ++k) {
    if (static_cast<char>(t[at + k] | s.mask[k]) != s.bytes[k]) return false;
  }
  // Both ends must be character boundaries: no mark joins the last
  // character, no prepended character holds the first, CR LF stays whole.
  // Control characters (CR and LF among them) take no marks and are held
  // by nothing but each other.
  const size_t end = at + m;
  const char last = s.bytes[m - 1];
  if (end < n) {
    const auto next = static_cast<unsigned char>(t[end]);
    if (last == '\r') {
      if (next == '\n') return false;
    } else if (!isASCIIControl(last) && next >= 0x80) {
      const detail::DecodedChar d = detail::decodeUTF8(text, end);
      if (d.valid && detail::graphemeClass(d.codePoint) == detail::GraphemeClass::extender) {
        return false;
      }
    }
  }
  const char first = s.bytes[0];
  if (at > 0) {
    const auto prev = static_cast<unsigned char>(t[at - 1]);
    if (first == '\n') {
      if (prev == '\r') return false;
    } else if (!isASCIIControl(first) && prev >= 0x80) {
      const detail::DecodedChar d = detail::decodeUTF8Before(text, at);
      if (d.valid && detail::graphemeClass(d.codePoint) == detail::GraphemeClass::prepend) {
        return false;
      }
    }
  }
  return true;
}

// What the byte-wise search says about one text.
enum class Outcome : uint8_t {
  notFound,
  found,
  unsettled,  // no byte-wise match, but the text has non-ASCII that could fold into one
  candidate,  // the anchors match at the position noted: verify from there
};

// The first start from 0 whose anchor bytes match, byte by byte; the
// outcome for texts too short for a vector window.
inline Outcome firstCandidate(const ASCIINeedle& s, std::string_view text, size_t& at) {
  const size_t m = s.size;
  const size_t n = text.size();
  const char* const t = text.data();
  const char first = s.bytes[s.anchor1];
  const char firstMask = s.mask[s.anchor1];
  const char second = s.bytes[s.anchor2];
  const char secondMask = s.mask[s.anchor2];
  for (size_t i = 0; i + m <= n; ++i) {
    if (static_cast<char>(t[i + s.anchor1] | firstMask) == first &&
        static_cast<char>(t[i + s.anchor2] | secondMask) == second) {
      at = i;
      return Outcome::candidate;
    }
  }
  return detail::isASCII(text) ? Outcome::notFound : Outcome::unsettled;
}

// The vector scans look for the first start in each text whose anchor bytes
// match, with windows of 16 or 32 bytes (the last one overlapping the one
// before), and note on the way whether the text holds a non-ASCII byte.
// They call nothing, so the vector registers stay put across the loop;
// candidates are verified afterwards. The needle's bytes are copied into
// locals first: stores to `outcomes` could alias them otherwise.
#if defined(__SSE2__)
void scanEachWithSSE2(const ASCIINeedle& needle, const std::string_view* texts, size_t count,
                      Outcome* outcomes, size_t* candidates) {
  const size_t reach = needle.size - 1;
  const size_t anchor1 = needle.anchor1;
  const size_t anchor2 = needle.anchor2;
  const __m128i first = _mm_set1_epi8(needle.bytes[anchor1]);
  const __m128i firstMask = _mm_set1_epi8(needle.mask[anchor1]);
  const __m128i second = _mm_set1_epi8(needle.bytes[anchor2]);
  const __m128i secondMask = _mm_set1_epi8(needle.mask[anchor2]);
  for (size_t i = 0; i < count; ++i) {
    if (i + kPrefetchDistance < count) prefetchText(texts[i + kPrefetchDistance]);
    const std::string_view text = texts[i];
    const char* const t = text.data();
    const size_t n = text.size();
    if (reach + 16 > n) {
      outcomes[i] = firstCandidate(needle, text, candidates[i]);
      continue;
    }
    Outcome outcome = Outcome::notFound;
    __m128i high = _mm_setzero_si128();
    const size_t last = n - reach - 16;
    for (size_t at = 0;; at = std::min(at + 16, last)) {
      high = _mm_or_si128(high, _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + at)));
      const __m128i x = _mm_or_si128(
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + at + anchor1)), firstMask);
      const __m128i y = _mm_or_si128(
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + at + anchor2)), secondMask);
      const auto bits = static_cast<unsigned>(
          _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(x, first), _mm_cmpeq_epi8(y, second))));
      if (bits != 0) {
        outcome = Outcome::candidate;
        candidates[i] = at + static_cast<size_t>(__builtin_ctz(bits));
        break;
      }
      if (at == last) break;
    }
    if (outcome == Outcome::notFound) {
      // The last needle size - 1 bytes start no match but may be non-ASCII.
      high = _mm_or_si128(high, _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + n - 16)));
      if (_mm_movemask_epi8(high) != 0) outcome = Outcome::unsettled;
    }
    outcomes[i] = outcome;
  }
}
#endif

#if defined(__x86_64__)
__attribute__((target("avx2"))) void scanEachWithAVX2(const ASCIINeedle& needle,
                                                      const std::string_view* texts, size_t count,
                                                      Outcome* outcomes, size_t* candidates) {
  const size_t reach = needle.size - 1;
  const size_t anchor1 = needle.anchor1;
  const size_t anchor2 = needle.anchor2;
  const __m256i first = _mm256_set1_epi8(needle.bytes[anchor1]);
  const __m256i firstMask = _mm256_set1_epi8(needle.mask[anchor1]);
  const __m256i second = _mm256_set1_epi8(needle.bytes[anchor2]);
  const __m256i secondMask = _mm256_set1_epi8(needle.mask[anchor2]);
  for (size_t i = 0; i < count; ++i) {
    if (i + kPrefetchDistance < count) prefetchText(texts[i + kPrefetchDistance]);
    const std::string_view text = texts[i];
    const char* const t = text.data();
    const size_t n = text.size();
    if (reach + 32 > n) {
      outcomes[i] = firstCandidate(needle, text, candidates[i]);
      continue;
    }
    Outcome outcome = Outcome::notFound;
    __m256i high = _mm256_setzero_si256();
    const size_t last = n - reach - 32;
    for (size_t at = 0;; at = std::min(at + 32, last)) {
      high = _mm256_or_si256(high, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + at)));
      const __m256i x = _mm256_or_si256(
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + at + anchor1)), firstMask);
      const __m256i y = _mm256_or_si256(
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + at + anchor2)), secondMask);
      const auto bits = static_cast<unsigned>(_mm256_movemask_epi8(
          _mm256_and_si256(_mm256_cmpeq_epi8(x, first), _mm256_cmpeq_epi8(y, second))));
      if (bits != 0) {
        outcome = Outcome::candidate;
        candidates[i] = at + static_cast<size_t>(__builtin_ctz(bits));
        break;
      }
      if (at == last) break;
    }
    if (outcome == Outcome::notFound) {
      high = _mm256_or_si256(high, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + n - 32)));
      if (_mm256_movemask_epi8(high) != 0) outcome = Outcome::unsettled;
    }
    outcomes[i] = outcome;
  }
}
#endif

// Fills `outcomes` (and, for candidates, `candidates`) for each text; never
// answers `found`.
void scanEach(bool useAVX2, const ASCIINeedle& needle, const std::string_view* texts,
              size_t count, Outcome* outcomes, size_t* candidates) {
#if defined(__x86_64__)
  if (useAVX2) return scanEachWithAVX2(needle, texts, count, outcomes, candidates);
#endif
#if defined(__SSE2__)
  scanEachWithSSE2(needle, texts, count, outcomes, candidates);
#else
  static_cast<void>(useAVX2);
  for (size_t i = 0; i < count; ++i) {
    if (i + kPrefetchDistance < count) prefetchText(texts[i + kPrefetchDistance]);
    outcomes[i] = firstCandidate(needle, texts[i], candidates[i]);
  }
#endif
}

// Settles a candidate at `at`: verifies it, then each later candidate.
Outcome settle(bool useAVX2, const ASCIINeedle& needle, std::string_view text, size_t at) {
  for (;;) {
    if (matchesAt(needle, text, at)) return Outcome::found;
    // The rest of the text is scanned as a text of its own; matches are
    // verified against the whole one.
    const size_t from = at + 1;
    const std::string_view rest = text.substr(from);
    size_t next = 0;
    Outcome outcome;
    scanEach(useAVX2, needle, &rest, 1, &outcome, &next);
    if (outcome != Outcome::candidate) break;
    at = from + next;
  }
  return detail::isASCII(text) ? Outcome::notFound : Outcome::unsettled;
}

}  // namespace

void LocalizedSearch::findEach(std::span<const std::string_view> texts, bool* found) {
  const size_t count = texts.size();
  if (!m_asciiMode) {
    for (size_t i = 0; i < count; ++i) found[i] = isFoundIn(texts[i]);
    return;
  }
  const ASCIINeedle needle{m_folded.data(), m_caseMask.data(), m_folded.size(), m_anchor1,
                           m_anchor2};
  constexpr size_t kBatch = 256;
  Outcome outcomes[kBatch];
  size_t candidates[kBatch];
  for (size_t first = 0; first < count; first += kBatch) {
    const size_t size = std::min(kBatch, count - first);
    scanEach(m_useAVX2, needle, texts.data() + first, size, outcomes, candidates);
    for (size_t i = 0; i < size; ++i) {
      const std::string_view text = texts[first + i];
      Outcome outcome = outcomes[i];
      if (outcome == Outcome::candidate) outcome = settle(m_useAVX2, needle, text, candidates[i]);
      // Texts with non-ASCII bytes and no byte-wise match take the full
      // test; they are rare in a log.
      found[first + i] = outcome == Outcome::found ||
                         (outcome == Outcome::unsettled && mayFoldIntoMatch(text));
    }
  }
}

bool LocalizedSearch::findASCII(std::string_view text, bool& sawNonASCII) const {
  const ASCIINeedle needle{m_folded.data(), m_caseMask.data(), m_folded.size(), m_anchor1,
                           m_anchor2};
  Outcome outcome;
  size_t candidate = 0;
  scanEach(m_useAVX2, needle, &text, 1, &outcome, &candidate);
  if (outcome == Outcome::candidate) outcome = settle(m_useAVX2, needle, text, candidate);
  sawNonASCII = outcome == Outcome::unsettled;
  return outcome == Outcome::found;
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
