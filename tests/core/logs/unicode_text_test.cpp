#include "core/logs/unicode_text.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include <string>

namespace zev::detail {
namespace {

// UTF-8 repair is log_tail_loader_fuzzer's: it holds loads to ICU's converter
// (one U+FFFD per maximal subpart), from seeds that include cut, overlong,
// surrogate and out-of-range sequences (fuzz/corpus/log_tail_loader/invalid-utf8.bin).

TEST(UnicodeWhitespace, MatchesICUWhiteSpaceForEveryCodePoint) {
  for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
    ASSERT_EQ(isUnicodeWhitespace(static_cast<char32_t>(c)), u_isUWhiteSpace(c) != 0)
        << std::hex << c;
  }
  EXPECT_EQ(trimUnicodeWhitespace("\u3000\u00A0front door\u2028"), "front door");
  EXPECT_EQ(trimUnicodeWhitespace("\u200Bx\u200B"), "\u200Bx\u200B");
}

}  // namespace
}  // namespace zev::detail
