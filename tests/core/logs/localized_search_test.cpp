#include "core/logs/localized_search.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <string>

namespace zev {
namespace {

// What the search finds is localized_search_fuzzer's: it holds the search to
// an ICU-only rule, from seeds that pin the cases of interest (fuzz/corpus/
// localized_search/pinned-*: case folding, kept diacritics, canonical
// equivalence, the Turkic i, prepended marks, invalid bytes).

// Folding or decomposing each of these leaves an ASCII character free of any
// combining mark, so it can take part in a match with an ASCII needle.
TEST(LocalizedSearch, StandaloneASCIIFoldingTableMatchesICU) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  ASSERT_TRUE(U_SUCCESS(status));
  const icu::Locale turkish("tr");
  for (UChar32 c = 0x80; c <= 0x10FFFF; ++c) {
    if (U_IS_SURROGATE(c)) continue;
    bool expected = false;
    for (const bool turkic : {false, true}) {
      icu::UnicodeString s(c);
      if (turkic) s.toLower(turkish);
      s.foldCase(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
      s = nfd->normalize(s, status);
      for (int32_t i = 0; i < s.length(); i = s.moveIndex32(i, 1)) {
        const int32_t next = s.moveIndex32(i, 1);
        const int mark = next < s.length()
                             ? u_getIntPropertyValue(s.char32At(next), UCHAR_GRAPHEME_CLUSTER_BREAK)
                             : U_GCB_OTHER;
        expected |= s.char32At(i) < 0x80 && mark != U_GCB_EXTEND && mark != U_GCB_SPACING_MARK;
      }
    }
    ASSERT_EQ(detail::foldsToStandaloneASCII(static_cast<char32_t>(c)), expected) << std::hex << c;
  }
}

}  // namespace
}  // namespace zev
