#include "core/logs/unicode_text.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <string>

namespace zev::detail {
namespace {

TEST(UnicodeWhitespace, MatchesICUWhiteSpaceForEveryCodePoint) {
  for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
    ASSERT_EQ(isUnicodeWhitespace(static_cast<char32_t>(c)), u_isUWhiteSpace(c) != 0)
        << std::hex << c;
  }
  EXPECT_EQ(trimUnicodeWhitespace("\u3000\u00A0front door\u2028"), "front door");
  EXPECT_EQ(trimUnicodeWhitespace("\u200Bx\u200B"), "\u200Bx\u200B");
}

// ICU's converter substitutes one U+FFFD per maximal subpart too; it is the
// reference here and, on arbitrary input, in log_tail_loader_fuzzer.
TEST(Utf8Repair, AgreesWithICUOnCutAndInvalidInput) {
  const std::string samples[] = {
      "caf\xC3\xA9", "\xE2\x80\x94\xE2", "\xF0\x9F\x93", "\xED\xA0\x80", "\xC0\xAF",
      "\xF4\x90\x80\x80", "\x80\x80x", "\xE0\x80\x80", "\xF8\x88\x80\x80\x80",
  };
  for (const std::string& s : samples) {
    SCOPED_TRACE(s);
    std::string ours, icu;
    appendReplacingInvalidUTF8(s, ours);
    icu::UnicodeString::fromUTF8(s).toUTF8String(icu);
    EXPECT_EQ(ours, icu);
    EXPECT_EQ(isValidUTF8(s), ours == s);
  }
}

TEST(Utf8Decode, BackwardsFindsTheSameUnitsAsForwards) {
  const std::string text = "a\xC3\xA9\xE2\x80\x94\xF0\x9F\x93\xB7\x80z";
  std::vector<std::pair<char32_t, size_t>> forward, backward;
  for (size_t i = 0; i < text.size(); i += forward.back().second) {
    const DecodedChar d = decodeUTF8(text, i);
    forward.emplace_back(d.codePoint, d.size);
  }
  for (size_t end = text.size(); end > 0; end -= backward.front().second) {
    const DecodedChar d = decodeUTF8Before(text, end);
    backward.emplace(backward.begin(), d.codePoint, d.size);
  }
  EXPECT_EQ(forward, backward);
}

}  // namespace
}  // namespace zev::detail
