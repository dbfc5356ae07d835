// LocalizedSearch against a plain ICU implementation of the same rule, so the
// byte-wise shortcuts can never give a different answer. Input: needle, a NUL,
// then the text; the first byte picks the locale (English, Turkish or
// Azerbaijani). The seeds mix ASCII with the characters that make folding
// interesting (ß, K, ſ, İ, ı, é, U+0301, ﬀ, U+0600, ŉ, invalid bytes), long
// enough for the vector scans' windows.
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/logs/localized_search.h"

namespace {

// The rule computed with ICU alone: fold both sides as the locale does
// (Turkish i rules included), decompose, and accept a match only on
// user-perceived character boundaries.
icu::UnicodeString referenceFold(std::string_view utf8, const icu::Locale& locale, bool turkic) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(
      icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
  if (turkic) s.toLower(locale);
  s.foldCase(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT);
  UErrorCode status = U_ZERO_ERROR;
  return icu::Normalizer2::getNFDInstance(status)->normalize(s, status);
}

bool referenceFind(std::string_view needle, std::string_view text, const char* localeID) {
  const icu::Locale locale(localeID);
  // Languages whose I lower-cases to dotless ı fold as Turkish does.
  const bool turkic = icu::UnicodeString(u"I").toLower(locale) == icu::UnicodeString(u"\u0131");
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const char* localeID = (data[0] & 1) ? ((data[0] & 2) ? "az_AZ" : "tr_TR") : "en_US";
  const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t split = rest.find('\0');
  if (split == std::string_view::npos) return 0;
  const std::string_view needle = rest.substr(0, split);
  const std::string_view text = rest.substr(split + 1);

  zev::LocalizedSearch search(needle, localeID);
  if (search.isFoundIn(text) != referenceFind(needle, text, localeID)) __builtin_trap();
  if (!needle.empty() && !search.isFoundIn(needle)) __builtin_trap();

  // The batch search, with and without the wide vector scan, over the text's
  // lines (a log filter's view of it).
  std::vector<std::string_view> lines;
  for (size_t from = 0; from <= text.size();) {
    const size_t end = std::min(text.find('\n', from), text.size());
    lines.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  zev::LocalizedSearch narrow(needle, localeID);
  narrow.disableAVX2ForTesting();
  for (zev::LocalizedSearch* batch : {&search, &narrow}) {
    const auto found = std::make_unique<bool[]>(lines.size());
    batch->findEach(lines, found.get());
    for (size_t i = 0; i < lines.size(); ++i) {
      const bool expected = referenceFind(needle, lines[i], localeID);
      if (found[i] != expected || batch->isFoundIn(lines[i]) != expected) __builtin_trap();
    }
  }
  return 0;
}
