// LocalizedSearch against a plain ICU implementation of the same rule, so the
// byte-wise shortcuts can never give a different answer. Input: needle, a NUL,
// then the text; the first byte picks the locale.
#include <unicode/locid.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/localized_search.h"
#include "tests/support/reference_search.h"

using zev::testing_support::referenceFind;

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
