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
}

// ICU's converter substitutes one U+FFFD per maximal subpart too; it is the
// reference here and, on arbitrary input, in log_tail_loader_fuzzer.
std::string repairedByICU(const std::string& bytes) {
  std::string out;
  icu::UnicodeString::fromUTF8(bytes).toUTF8String(out);
  return out;
}

TEST(Utf8Repair, AgreesWithICUOnCutAndInvalidInput) {
  const std::string samples[] = {
      "plain",         "caf\xC3\xA9",   "\xC3",          "\xE2\x80",   "\xE2\x80\x94\xE2",
      "\xF0\x9F\x93\xB7", "\xF0\x9F\x93", "\xED\xA0\x80", "\xC0\xAF",  "\xF4\x90\x80\x80",
      "\x80\x80x",     "\xE0\x80\x80",  "\xF8\x88\x80\x80\x80",
  };
  for (const std::string& s : samples) {
    SCOPED_TRACE(s);
    std::string ours;
    appendReplacingInvalidUTF8(s, ours);
    EXPECT_EQ(ours, repairedByICU(s));
    EXPECT_EQ(isValidUTF8(s), ours == s);
  }
  EXPECT_TRUE(isValidUTF8("0123456789abcdef caf\xC3\xA9 \xF0\x9F\x93\xB7"));
  EXPECT_FALSE(isValidUTF8("0123456789abcdef caf\xC3"));
}

TEST(Utf8Decode, BackwardsFindsTheSameUnitsAsForwards) {
  const std::string text = "a\xC3\xA9\xE2\x80\x94\xF0\x9F\x93\xB7\x80z";
  std::vector<DecodedChar> forward;
  for (size_t i = 0; i < text.size(); i += forward.back().size) forward.push_back(decodeUTF8(text, i));
  std::vector<DecodedChar> backward;
  for (size_t end = text.size(); end > 0; end -= backward.back().size) {
    backward.push_back(decodeUTF8Before(text, end));
  }
  ASSERT_EQ(forward.size(), backward.size());
  for (size_t i = 0; i < forward.size(); ++i) {
    const DecodedChar& f = forward[i];
    const DecodedChar& b = backward[backward.size() - 1 - i];
    EXPECT_EQ(f.codePoint, b.codePoint) << i;
    EXPECT_EQ(f.size, b.size) << i;
  }
}

TEST(UnicodeTrim, RemovesUnicodeWhitespaceOnly) {
  EXPECT_EQ(trimUnicodeWhitespace("  \t front \r\n"), "front");
  EXPECT_EQ(trimUnicodeWhitespace("\u3000\u00A0front door\u2028"), "front door");
  EXPECT_EQ(trimUnicodeWhitespace("\u200Bx\u200B"), "\u200Bx\u200B");
  EXPECT_EQ(trimUnicodeWhitespace(" \xFF "), "\xFF");
  EXPECT_EQ(trimUnicodeWhitespace(" \u2003 "), "");
}

TEST(GraphemeClass, SortsTheCodePointsThatMatterNextToDelimiters) {
  const struct {
    char32_t c;
    GraphemeClass expected;
  } cases[] = {
      {'a', GraphemeClass::other},       {'\r', GraphemeClass::cr},
      {'\n', GraphemeClass::lf},         {'\t', GraphemeClass::control},
      {0x0301, GraphemeClass::extender}, {0x200D, GraphemeClass::extender},
      {0x0903, GraphemeClass::extender}, {0x0600, GraphemeClass::prepend},
      {0x2028, GraphemeClass::control},  {0x00A0, GraphemeClass::other},
      {0x1F4F7, GraphemeClass::other},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<uint32_t>(c.c));
    EXPECT_EQ(graphemeClass(c.c), c.expected);
  }
}

}  // namespace
}  // namespace zev::detail
