#include "core/logs/log_line.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>

#include "core/logs/log_fields.h"

namespace zev {
namespace {

using Fields = std::map<std::string, std::string>;

// log_line_fuzzer holds the fast and general scanner paths to each other and
// the parsed line to the fields (time or ts, camera or cam, msg, the level's
// severity); this table holds the fields to the grammar.
TEST(LogFields, FollowTheGrammar) {
  const struct {
    const char* line;
    Fields expected;
  } cases[] = {
      {"   \t ", {}},
      {"bare words a=1 trailing a=2", {{"a", "2"}}},
      {"=5 key= next=1", {{"key", ""}, {"next", "1"}}},
      {"a=b=c", {{"a", "b=c"}}},
      {R"(a="x"b=1)", {{"a", "x"}, {"b", "1"}}},
      {R"(m="say \"hi\" \\ ok \n\q")", {{"m", R"(say "hi" \ ok nq)"}}},
      {R"(m="ends in backslash\)", {{"m", "ends in backslash"}}},
      {R"(m="  spaced  " n=1)", {{"m", "  spaced  "}, {"n", "1"}}},
      {R"(m=a\"b n=1)", {{"m", "a\\\"b"}, {"n", "1"}}},  // no escapes outside quotes
      {"a=\"x\\\r\ny\" b=\x01\x7f", {{"a", "x\r\ny"}, {"b", "\x01\x7f"}}},
      {"a=1\u00A0b=2\u2028c=3\u3000d=4\u0085e=5", {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}, {"e", "5"}}},
      {"a=1\u200Bb=2", {{"a", "1\u200Bb=2"}}},  // zero-width space is not whitespace
      // A delimiter carrying a combining mark is a different character.
      {"a=\"x\"\u0301 y\" b=1", {{"a", "x\"\u0301 y"}, {"b", "1"}}},
      {"a=\u0301x b=1", {{"b", "1"}}},  // "=" + U+0301 is no "=": a bare word
      {"a=1 \u0301b=2", {{"a", "1 \u0301b=2"}}},
      {"k\u0600=v a=1", {{"a", "1"}}},  // a prepended mark joins the "=" after it
      {"a=\xFF\xFE b=\"\xC3\"", {{"a", "\xFF\xFE"}, {"b", "\xC3"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const auto fields = detail::parseLogFields(c.line, detail::LogScanPath::automatic);
    EXPECT_EQ(Fields(fields.begin(), fields.end()), c.expected);
  }
}

TEST(StableID, IsFNV1aInBareLowerCaseHex) {
  EXPECT_EQ(stableID(""), "cbf29ce484222325");
  EXPECT_EQ(stableID(std::string_view("\0\0\0\0\0\0\0\0", 8)), "a8c7f832281a39c5");
  EXPECT_EQ(stableID("10"), "7f89207b4ba08a4");  // 15 digits: no leading zero
}

}  // namespace
}  // namespace zev
