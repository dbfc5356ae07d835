#include "core/logs/log_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zev {
namespace {

constexpr size_t kDistinct = 8;
constexpr size_t kCopies = 40;  // more lines than the search takes in one chunk

// kDistinct lines, kCopies times over.
const std::vector<LogLine> kLines = [] {
  std::vector<LogLine> out;
  for (size_t copy = 0; copy < kCopies; ++copy) {
    for (const char* raw : {
             "level=info camera=front msg=\"motion started\"",        // 0
             "level=WARN camera=Front msg=\"disk slow\"",             // 1
             "level=error camera=front2 msg=\"stream lost\"",         // 2
             "level=warn msg=\"no camera here\"",                     // 3
             "level=all camera=front msg=\"odd level\"",              // 4
             "panic: goroutine 7 [running] at front.go:12",           // 5
             "level=debug camera=front msg=\"motion started\"",       // 6
             "level=info camera= msg=\"empty camera\"",               // 7
         }) {
      out.push_back(LogLine::parse(raw));
    }
  }
  return out;
}();

TEST(LogFilterApply, KeepsLinesPassingAllThreeTestsInInputOrder) {
  const struct {
    const char* name;
    LogFilter filter;
    std::vector<size_t> kept;  // of each copy of the distinct lines
  } cases[] = {
      {"blank search is no search", {" \t\u3000 ", LogSeverity::all, ""}, {0, 1, 2, 3, 4, 5, 6, 7}},
      {"severity is equality, not a threshold", {"", LogSeverity::warn, ""}, {1, 3}},
      {"error is one severity among others", {"", LogSeverity::error, ""}, {2}},
      {"a line whose level is all passes only all", {"", LogSeverity::info, ""}, {0, 7}},
      {"camera is exact and case-sensitive", {"", LogSeverity::all, "front"}, {0, 4, 6}},
      {"search is trimmed and ignores case", {"\u00A0 Front\n", LogSeverity::all, ""},
       {0, 1, 2, 4, 5, 6}},
      {"search runs over the raw line, keys included", {"CAMERA=", LogSeverity::all, ""},
       {0, 1, 2, 4, 6, 7}},
      {"search with the other tests", {"motion", LogSeverity::debug, "front"}, {6}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<const LogLine*> expected;
    for (size_t copy = 0; copy < kCopies; ++copy) {
      for (const size_t i : c.kept) expected.push_back(&kLines[copy * kDistinct + i]);
    }
    EXPECT_EQ(c.filter.apply(kLines, "en_US"), expected);
  }
}

TEST(LogFilterAvailableCameras, DistinctNonEmptyInCodePointOrder) {
  std::vector<LogLine> lines;
  for (const char* raw : {"camera=b", "camera=a", "camera=b", "msg=none", "camera=", "camera=A",
                          "cam=\u00C4ussen", "cam=Zoo"}) {
    lines.push_back(LogLine::parse(raw));
  }
  EXPECT_EQ(LogFilter::availableCameras(lines),
            (std::vector<std::string>{"A", "Zoo", "a", "b", "\u00C4ussen"}));
}

}  // namespace
}  // namespace zev
