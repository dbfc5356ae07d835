#include "core/logs/log_tail_follower.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

Lines raws(const std::vector<LogLine>& lines) {
  Lines out;
  for (const LogLine& line : lines) out.emplace_back(line.raw());
  return out;
}

class LogTailFollowerTest : public ::testing::Test {
 protected:
  void write(const std::string& text, std::ios::openmode mode = std::ios::app) {
    std::ofstream(path, std::ios::binary | mode) << text;
  }
  testing::ScratchDirectory scratch;
  const fs::path path = scratch.path() / "zevd.log";
};

// Each case starts from a file holding "a=1\n", followed from its end; the
// file then changes, and the next read must give `expected`. Whatever it left
// unread comes once `later` is appended, and a last read finds nothing.
TEST_F(LogTailFollowerTest, ReadsWhatIsNewAndCompleteAndStartsOverOnANewFile) {
  enum class Change { append, rewrite, rotate };
  const struct {
    const char* name;
    Change change;
    std::string text;
    int64_t maxBytes;
    Lines expected;
    bool restarted = false, replaced = false;
    std::string later = {};
    Lines expectedLater = {};
  } cases[] = {
      {"blank lines give nothing", Change::append, "\n\nb=2\n\nc=3\n", 64, {"b=2", "c=3"}},
      {"a line still being written waits for its end", Change::append, "b=2\nc=", 64, {"b=2"},
       false, false, "3\n", {"c=3"}},
      {"CR LF does not end a line", Change::append, "b=2\r\nc=3\n", 64, {"b=2\r\nc=3"}},
      {"invalid UTF-8 is repaired", Change::append, "b=\xFF\n", 64, {"b=\xEF\xBF\xBD"}},
      {"the line budget keeps the newest", Change::append, "1\n2\n3\n4\n", 64, {"2", "3", "4"}},
      {"past the byte budget: the newest part alone, its cut first line dropped", Change::append,
       "first-line-long\nb=2\nc=3\n", 16, {"b=2", "c=3"}, false, true},
      {"an endless line is taken once it fills the budget", Change::append, "abcdefghij", 8,
       {"cdefghij"}, false, true},
      {"truncated in place to less", Change::rewrite, "x\n", 64, {"x"}, true},
      {"rewritten in place, longer", Change::rewrite, "new=1\nnew=2\n", 64, {"new=1", "new=2"},
       true},
      // Same first bytes, longer: only the inode tells the new file apart.
      {"renamed away, recreated", Change::rotate, "a=1\nb=2\n", 64, {"a=1", "b=2"}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write("a=1\n", std::ios::trunc);
    const LogFollowCursor start = LogTailFollower::loadAndStart(path, c.maxBytes, 3).second;
    if (c.change == Change::rotate) fs::rename(path, fs::path(path).concat(".1"));
    write(c.text, c.change == Change::append ? std::ios::app : std::ios::trunc);
    LogFollowResult result = LogTailFollower::readAppended(path, start, c.maxBytes, 3);
    EXPECT_EQ(raws(result.lines), c.expected);
    EXPECT_EQ(result.restarted, c.restarted);
    EXPECT_EQ(result.replaced, c.replaced);
    write(c.later);
    result = LogTailFollower::readAppended(path, result.cursor, c.maxBytes, 3);
    EXPECT_EQ(raws(result.lines), c.expectedLater);
    EXPECT_TRUE(LogTailFollower::readAppended(path, result.cursor, c.maxBytes, 3).lines.empty());
  }
}

TEST_F(LogTailFollowerTest, AMissingFileThrowsAndTheCursorCanBeKept) {
  write("a=1\n");
  const LogFollowCursor cursor = LogTailFollower::loadAndStart(path, 1 << 20, 100).second;
  fs::remove(path);
  EXPECT_THROW(LogTailFollower::readAppended(path, cursor, 1 << 20, 100), fs::filesystem_error);
  write("b=1\n");  // recreated: a new file, read from its start
  EXPECT_EQ(raws(LogTailFollower::readAppended(path, cursor, 1 << 20, 100).lines), Lines{"b=1"});
}

}  // namespace
}  // namespace zev
