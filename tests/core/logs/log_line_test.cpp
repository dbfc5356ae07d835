#include "core/logs/log_line.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/logs/log_fields.h"
#include "core/logs/log_severity.h"

namespace zev {
namespace {

using Fields = std::map<std::string, std::string>;

// Both scanner paths must agree on every line; ASCII lines take the fast one.
Fields fieldsOf(std::string_view line) {
  const auto fast = detail::parseLogFields(line, detail::LogScanPath::automatic);
  const auto general = detail::parseLogFields(line, detail::LogScanPath::general);
  EXPECT_EQ(fast, general);
  return Fields(general.begin(), general.end());
}

TEST(LogSeverity, RawValuesRoundTripInPickerOrder) {
  const char* expected[] = {"all", "error", "warn", "info", "debug"};
  for (size_t i = 0; i < allLogSeverities.size(); ++i) {
    EXPECT_EQ(rawValue(allLogSeverities[i]), expected[i]);
    EXPECT_EQ(logSeverityFromRawValue(expected[i]), allLogSeverities[i]);
  }
  for (const char* other : {"warning", "WARN", "", "info "}) {
    EXPECT_EQ(logSeverityFromRawValue(other), std::nullopt) << other;
  }
}

TEST(LogFields, FollowTheGrammar) {
  const struct {
    const char* line;
    Fields expected;
  } cases[] = {
      {"", {}},
      {"   \t ", {}},
      {"a=1 b=2", {{"a", "1"}, {"b", "2"}}},
      {"bare words a=1 trailing", {{"a", "1"}}},
      {"a=1 a=2", {{"a", "2"}}},
      {"=5 b=6", {{"b", "6"}}},
      {"key= next=1", {{"key", ""}, {"next", "1"}}},
      {"key=", {{"key", ""}}},
      {"a=b=c", {{"a", "b=c"}}},
      {"k\"q=v\"x", {{"k\"q", "v\"x"}}},
      {R"(a="x"b=1)", {{"a", "x"}, {"b", "1"}}},
      {R"(m="say \"hi\" \\ ok")", {{"m", R"(say "hi" \ ok)"}}},
      {R"(m="\n\t\q")", {{"m", "ntq"}}},
      {R"(m="unterminated value)", {{"m", "unterminated value"}}},
      {R"(m="ends in backslash\)", {{"m", "ends in backslash"}}},
      {R"(m="ends in escaped backslash\\)", {{"m", "ends in escaped backslash\\"}}},
      {R"(m="  spaced  " n=1)", {{"m", "  spaced  "}, {"n", "1"}}},
      {R"(m="" n=1)", {{"m", ""}, {"n", "1"}}},
      {R"(m=a\"b n=1)", {{"m", "a\\\"b"}, {"n", "1"}}},  // no escapes outside quotes
      {"a=1\r\nb=2", {{"a", "1"}, {"b", "2"}}},
      {"a=\"x\\\r\ny\" b=\x01\x7f", {{"a", "x\r\ny"}, {"b", "\x01\x7f"}}},
      // Unicode whitespace separates fields.
      {"a=1\u00A0b=2\u2028c=3\u3000d=4\u0085e=5", {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}, {"e", "5"}}},
      {"a=1\u200Bb=2", {{"a", "1\u200Bb=2"}}},  // zero-width space is not whitespace
      // A delimiter carrying a combining mark is a different character.
      {"a=\"x\"\u0301 y\" b=1", {{"a", "x\"\u0301 y"}, {"b", "1"}}},
      {"a=\"\u0301x b=1", {{"a", "\"\u0301x"}, {"b", "1"}}},
      {"a=\u0301x b=1", {{"b", "1"}}},  // "=" + U+0301 is no "=": a bare word
      {"a=\u0301", {}},
      {"a\u0301=1", {{"a\u0301", "1"}}},
      {"a=1 \u0301b=2", {{"a", "1 \u0301b=2"}}},
      {"a=\"x\\\u0301\"", {{"a", "x\\\u0301"}}},
      {"a=\"x\\e\u0301y\"", {{"a", "xe\u0301y"}}},
      // A prepended mark (U+0600) joins the "=" after it into one character.
      {"k\u0600=v a=1", {{"a", "1"}}},
      {"caf\u00E9=cr\u00E8me na\u00EFve=\"\u00FCber \u2014 \\\"ok\\\"\"",
       {{"caf\u00E9", "cr\u00E8me"}, {"na\u00EFve", "\u00FCber \u2014 \"ok\""}}},
      // Invalid bytes are ordinary characters.
      {"a=\xFF\xFE b=\"\xC3\"", {{"a", "\xFF\xFE"}, {"b", "\xC3"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(fieldsOf(c.line), c.expected);
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
      {"ts=b time=a", "a", std::nullopt, std::nullopt, "ts=b time=a"},
      {"time= ts=b", "", std::nullopt, std::nullopt, "time= ts=b"},
      {"cam=b camera=", std::nullopt, std::nullopt, "", "cam=b camera="},
      {"level=warning", std::nullopt, std::nullopt, std::nullopt, "level=warning"},
      {"level=Error", std::nullopt, LogSeverity::error, std::nullopt, "level=Error"},
      {"level=WARN level=debug", std::nullopt, LogSeverity::debug, std::nullopt,
       "level=WARN level=debug"},
      {"level=all", std::nullopt, LogSeverity::all, std::nullopt, "level=all"},
      {"level=\"In\\fo\"", std::nullopt, LogSeverity::info, std::nullopt, "level=\"In\\fo\""},
      {"level=\u0130nfo", std::nullopt, std::nullopt, std::nullopt, "level=\u0130nfo"},
      {"severity=error", std::nullopt, std::nullopt, std::nullopt, "severity=error"},
      {"panic: runtime error: index out of range", std::nullopt, std::nullopt, std::nullopt,
       "panic: runtime error: index out of range"},
      {"msg=", std::nullopt, std::nullopt, std::nullopt, ""},
      {"msg=\"a \\\"quoted\\\" \\\\ word\" camera=\"Front \\\"2\\\"\" time=\"12:00\"", "12:00",
       std::nullopt, "Front \"2\"", "a \"quoted\" \\ word"},
      {"", std::nullopt, std::nullopt, std::nullopt, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.raw);
    const LogLine line = LogLine::parse(c.raw);
    EXPECT_EQ(line.raw(), c.raw);
    EXPECT_EQ(line.timestamp(), c.timestamp);
    EXPECT_EQ(line.severity(), c.severity);
    EXPECT_EQ(line.camera(), c.camera);
    EXPECT_EQ(line.message(), c.message);
    EXPECT_EQ(line.id(), stableID(c.raw));
  }
}

TEST(StableID, IsFNV1aInBareLowerCaseHex) {
  const struct {
    std::string_view text;
    const char* id;
  } cases[] = {
      {"", "cbf29ce484222325"},
      {"a", "af63dc4c8601ec8c"},
      {"foobar", "85944171f73967e8"},
      {std::string_view("\0\0\0\0\0\0\0\0", 8), "a8c7f832281a39c5"},
      {"10", "7f89207b4ba08a4"},  // 15 digits: no leading zero
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_EQ(stableID(c.text), c.id);
  }
  EXPECT_EQ(LogLine::parse("").id(), "cbf29ce484222325");
}

TEST(LogLine, EqualityComparesEveryField_AndCopiesOutliveTheOriginal) {
  const LogLine built("id", "raw", std::nullopt, LogSeverity::info, "cam", "message");
  EXPECT_NE(built, LogLine("id", "raw", "", LogSeverity::info, "cam", "message"));
  EXPECT_NE(built, LogLine("id", "raw", std::nullopt, std::nullopt, "cam", "message"));
  EXPECT_NE(built, LogLine("id", "raw", std::nullopt, LogSeverity::info, std::nullopt, "message"));
  EXPECT_EQ(built, LogLine("id", "raw", std::nullopt, LogSeverity::info, "cam", "message"));

  LogLine original = LogLine::parse("camera=\"a\\\"b\" msg=\"x\\\\y\"");
  const LogLine copy = original;
  LogLine moved = std::move(original);
  moved = LogLine::parse("other");  // drops one holder of the shared text
  EXPECT_EQ(copy.camera(), "a\"b");
  EXPECT_EQ(copy.message(), "x\\y");
  EXPECT_EQ(original.raw(), "");  // NOLINT(bugprone-use-after-move): documented state
  original = copy;
  EXPECT_EQ(original, copy);
}

}  // namespace
}  // namespace zev
