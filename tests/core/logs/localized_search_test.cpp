#include "core/logs/localized_search.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <string>

namespace zev {
namespace {

TEST(LocalizedSearch, FoldsCaseButKeepsDiacritics) {
  const struct {
    const char* locale;
    const char* needle;
    const char* text;
    bool found;
  } cases[] = {
      {"en_US", "Front", "camera=front", true},
      {"en_US", "front", "CAMERA=FRONT", true},
      {"en_US", "door", "front", false},
      {"en_US", "cafe", "caf\u00E9", false},
      {"en_US", "cafe", "cafe\u0301", false},
      {"en_US", "caf\u00E9", "CAF\u00C9", true},
      {"en_US", "caf\u00E9", "CAFE\u0301", true},  // canonically equivalent spellings
      {"en_US", "u\u0308", "K\u00DCCHE", true},
      {"en_US", "strasse", "Stra\u00DFe", true},
      {"en_US", "STRA\u00DFE", "strasse", true},
      {"en_US", "kelvin", "\u212Aelvin", true},
      {"en_US", "\u0451\u0436", "\u0401\u0416", true},
      {"en_US", "i", "INFO", true},
      {"en_US", "i", "\u0130", false},  // İ folds to i + U+0307: the i carries a mark
      {"tr_TR", "i", "INFO", false},    // Turkish: I pairs with ı
      {"tr_TR", "\u0131", "INFO", true},
      {"tr_TR", "i", "\u0130zmir", true},
      {"tr_TR", "info", "\u0130NFO", true},
      {"tr_TR", "front", "FRONT", true},  // no i: ASCII rules still hold
      {"az_AZ", "i", "INFO", false},      // Azerbaijani pairs them as Turkish does
      {"en_US", "x", "\u0600x", false},   // a prepended mark holds the x
      {"en_US", "\x01", "\u0600\x01\u0301", true},  // controls stand alone (found by fuzzing)
      {"en_US", "a\r", "a\r\u0301", true},
      {"en_US", "a\r", "a\r\n", false},
      {"en_US", "\uFFFD", "a\xFF" "b", true},  // invalid bytes read as U+FFFD
      {"en_US", "\u00E9", "plain ascii", false},
      {"en_US", "", "anything", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.locale) + " '" + c.needle + "' in '" + c.text + "'");
    LocalizedSearch search(c.needle, c.locale);
    EXPECT_EQ(search.isFoundIn(c.text), c.found);
  }
}

// Mixed text against the plain ICU rule is localized_search_fuzzer's job.

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
        if (s.char32At(i) >= 0x80) continue;
        const int32_t next = s.moveIndex32(i, 1);
        const bool marked =
            next < s.length() && (u_getIntPropertyValue(s.char32At(next), UCHAR_GRAPHEME_CLUSTER_BREAK) ==
                                      U_GCB_EXTEND ||
                                  u_getIntPropertyValue(s.char32At(next), UCHAR_GRAPHEME_CLUSTER_BREAK) ==
                                      U_GCB_SPACING_MARK);
        if (!marked) expected = true;
      }
    }
    ASSERT_EQ(detail::foldsToStandaloneASCII(static_cast<char32_t>(c)), expected) << std::hex << c;
  }
}

}  // namespace
}  // namespace zev
