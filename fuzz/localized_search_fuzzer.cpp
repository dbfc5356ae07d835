// LocalizedSearch against a plain ICU implementation of the same rule, so the
// byte-wise shortcuts can never give a different answer. Input: needle, a NUL,
// then the text; the first byte picks the locale.
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/localized_search.h"

namespace {

icu::UnicodeString fold(std::string_view utf8, const icu::Locale& locale, bool turkic) {
  icu::UnicodeString s =
      icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
  if (turkic) s.toLower(locale);
  s.foldCase(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
  UErrorCode status = U_ZERO_ERROR;
  return icu::Normalizer2::getNFDInstance(status)->normalize(s, status);
}

bool referenceFind(std::string_view needle, std::string_view text, const char* localeID) {
  const icu::Locale locale(localeID);
  const bool turkic = std::string_view(locale.getLanguage()) == "tr";
  const icu::UnicodeString n = fold(needle, locale, turkic);
  const icu::UnicodeString h = fold(text, locale, turkic);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const char* localeID = (data[0] & 1) ? "tr_TR" : "en_US";
  const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t split = rest.find('\0');
  if (split == std::string_view::npos) return 0;
  const std::string_view needle = rest.substr(0, split);
  const std::string_view text = rest.substr(split + 1);

  zev::LocalizedSearch search(needle, localeID);
  if (search.isFoundIn(text) != referenceFind(needle, text, localeID)) __builtin_trap();
  if (!needle.empty() && !search.isFoundIn(needle)) __builtin_trap();
  return 0;
}
