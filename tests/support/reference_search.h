// The search rule computed with ICU alone: fold both sides as the locale does
// (Turkish i rules included), decompose, and accept a match only on
// user-perceived character boundaries. The fast search's tests and fuzzer hold
// it to this answer.
#ifndef ZEV_TESTS_SUPPORT_REFERENCE_SEARCH_H_
#define ZEV_TESTS_SUPPORT_REFERENCE_SEARCH_H_

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <memory>
#include <string_view>

namespace zev::testing_support {

inline icu::UnicodeString referenceFold(std::string_view utf8, const icu::Locale& locale,
                                        bool turkic) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(
      icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
  if (turkic) s.toLower(locale);
  s.foldCase(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
  UErrorCode status = U_ZERO_ERROR;
  return icu::Normalizer2::getNFDInstance(status)->normalize(s, status);
}

inline bool referenceFind(std::string_view needle, std::string_view text, const char* localeID) {
  const icu::Locale locale(localeID);
  const bool turkic = std::string_view(locale.getLanguage()) == "tr";
  const icu::UnicodeString n = referenceFold(needle, locale, turkic);
  const icu::UnicodeString h = referenceFold(text, locale, turkic);
  if (n.isEmpty()) return true;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(locale, status));
  characters->setText(h);
  for (int32_t at = h.indexOf(n); at >= 0; at = h.indexOf(n, at + 1)) {
    if (characters->isBoundary(at) && characters->isBoundary(at + n.length())) return true;
  }
  return false;
}

}  // namespace zev::testing_support

#endif  // ZEV_TESTS_SUPPORT_REFERENCE_SEARCH_H_
