#include "core/logs/log_line.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "core/logs/log_fields.h"
#include "core/logs/log_severity.h"

namespace zev {
namespace {

using Fields = std::map<std::string, std::string>;

// log_line_fuzzer holds the fast and general scanner paths to each other;
// this table holds them to the grammar.
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

TEST(LogLineParse, PicksTheFieldsOfInterest) {
  const struct {
    const char* raw;
    std::optional<std::string> timestamp;
    std::optional<LogSeverity> severity;
    std::optional<std::string> camera;
    std::string message;
  } cases[] = {
      {"time=2024-01-02T03:04:05Z level=INFO camera=front msg=\"motion started\"",
       "2024-01-02T03:04:05Z", LogSeverity::info, "front", "motion started"},
      {"ts=1 lvl=warn cam=back msg=x", "1", std::nullopt, "back", "x"},
      {"ts=b time=a cam=b camera=", "a", std::nullopt, "", "ts=b time=a cam=b camera="},
      {"level=warning", std::nullopt, std::nullopt, std::nullopt, "level=warning"},
      {"level=WARN level=Error", std::nullopt, LogSeverity::error, std::nullopt,
       "level=WARN level=Error"},
      {"level=\"In\\fo\"", std::nullopt, LogSeverity::info, std::nullopt, "level=\"In\\fo\""},
      {"level=\u0130nfo", std::nullopt, std::nullopt, std::nullopt, "level=\u0130nfo"},
      {"msg=", std::nullopt, std::nullopt, std::nullopt, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.raw);
    const LogLine line = LogLine::parse(c.raw);
    EXPECT_EQ(line.timestamp(), c.timestamp);
    EXPECT_EQ(line.severity(), c.severity);
    EXPECT_EQ(line.camera(), c.camera);
    EXPECT_EQ(line.message(), c.message);
  }
  EXPECT_EQ(logSeverityFromRawValue("warn"), LogSeverity::warn);
  EXPECT_EQ(logSeverityFromRawValue("WARN"), std::nullopt);
}

TEST(StableID, IsFNV1aInBareLowerCaseHex) {
  EXPECT_EQ(stableID(""), "cbf29ce484222325");
  EXPECT_EQ(stableID("foobar"), "85944171f73967e8");
  EXPECT_EQ(stableID(std::string_view("\0\0\0\0\0\0\0\0", 8)), "a8c7f832281a39c5");
  EXPECT_EQ(stableID("10"), "7f89207b4ba08a4");  // 15 digits: no leading zero
}

TEST(LogLine, CopiesOutliveTheOriginal) {
  LogLine original = LogLine::parse("camera=\"a\\\"b\" msg=\"x\\\\y\"");
  const LogLine copy = original;
  original = LogLine::parse("other");  // drops one holder of the shared text
  EXPECT_EQ(copy.camera(), "a\"b");
  EXPECT_EQ(copy.message(), "x\\y");
  EXPECT_NE(original, copy);
}

}  // namespace
}  // namespace zev
