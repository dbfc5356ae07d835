#include "core/logs/log_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zev {
namespace {

const std::vector<LogLine>& sampleLines() {
  static const std::vector<LogLine> lines = [] {
    std::vector<LogLine> out;
    for (const char* raw : {
             "level=info camera=front msg=\"motion started\"",        // 0
             "level=WARN camera=Front msg=\"disk slow\"",             // 1
             "level=error camera=front2 msg=\"stream lost\"",         // 2
             "level=warn msg=\"no camera here\"",                     // 3
             "level=all camera=front msg=\"odd level\"",              // 4
             "panic: goroutine 7 [running] at front.go:12",           // 5
             "level=debug camera=front msg=\"motion started\"",       // 6
             "level=info camera=front msg=\"motion started\"",        // 7, same text as 0
             "level=info camera= msg=\"empty camera\"",               // 8
         }) {
      out.push_back(LogLine::parse(raw));
    }
    return out;
  }();
  return lines;
}

std::vector<size_t> indicesOf(const std::vector<const LogLine*>& kept) {
  std::vector<size_t> out;
  for (const LogLine* line : kept) out.push_back(static_cast<size_t>(line - sampleLines().data()));
  return out;
}

TEST(LogFilterApply, KeepsLinesPassingAllThreeTestsInInputOrder) {
  const struct {
    const char* name;
    LogFilter filter;
    std::vector<size_t> kept;
  } cases[] = {
      {"no restriction keeps everything", {"", LogSeverity::all, ""}, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"blank search is no search", {" \t\u3000 ", LogSeverity::all, ""}, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"severity is equality, not a threshold", {"", LogSeverity::warn, ""}, {1, 3}},
      {"a line whose level is all passes only all", {"", LogSeverity::info, ""}, {0, 7, 8}},
      {"camera is exact and case-sensitive", {"", LogSeverity::all, "front"}, {0, 4, 6, 7}},
      {"camera and severity together", {"", LogSeverity::info, "front"}, {0, 7}},
      {"search ignores case", {"Front", LogSeverity::all, ""}, {0, 1, 2, 4, 5, 6, 7}},
      {"search is trimmed of Unicode whitespace", {"\u00A0 front\n", LogSeverity::all, ""},
       {0, 1, 2, 4, 5, 6, 7}},
      {"search runs over the raw line, keys included", {"CAMERA=", LogSeverity::all, ""},
       {0, 1, 2, 4, 6, 7, 8}},
      {"search with the other tests", {"motion", LogSeverity::debug, "front"}, {6}},
      {"search that matches nothing", {"garage", LogSeverity::all, ""}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(indicesOf(c.filter.apply(sampleLines(), "en_US")), c.kept);
  }
}

// The search takes lines in chunks; results must stay in order across them,
// with the severity test applied before.
TEST(LogFilterApply, SearchOverManyLinesKeepsInputOrder) {
  std::vector<LogLine> lines;
  std::vector<const LogLine*> expected;
  for (int i = 0; i < 700; ++i) {
    lines.push_back(LogLine::parse(std::string(i % 5 == 0 ? "level=warn" : "level=info") +
                                   " seq=" + std::to_string(i) +
                                   (i % 3 == 0 ? " msg=\"Motion started\"" : " msg=idle")));
  }
  for (int i = 0; i < 700; ++i) {
    if (i % 3 == 0 && i % 5 != 0) expected.push_back(&lines[static_cast<size_t>(i)]);
  }
  EXPECT_EQ((LogFilter{"motion", LogSeverity::info, ""}.apply(lines, "en_US")), expected);
}

TEST(LogFilterAvailableCameras, DistinctNonEmptyInCodePointOrder) {
  std::vector<LogLine> lines;
  for (const char* raw : {"camera=b", "camera=a", "camera=b", "msg=none", "camera=", "camera=A",
                          "cam=\u00C4ussen", "cam=Zoo", "camera=\"a \""}) {
    lines.push_back(LogLine::parse(raw));
  }
  EXPECT_EQ(LogFilter::availableCameras(lines),
            (std::vector<std::string>{"A", "Zoo", "a", "a ", "b", "\u00C4ussen"}));
  EXPECT_TRUE(LogFilter::availableCameras({}).empty());
  const std::vector<LogLine> none;
  EXPECT_TRUE((LogFilter{"x", LogSeverity::error, "cam"}.apply(none)).empty());
}

}  // namespace
}  // namespace zev
