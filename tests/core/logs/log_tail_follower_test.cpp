#include "core/logs/log_tail_follower.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace zev {
namespace {

namespace fs = std::filesystem;

class LogTailFollowerTest : public testing::Test {
 protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() /
            ("zev-follow-" + std::to_string(::getpid()) + "-" +
             testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(m_dir);
    fs::create_directories(m_dir);
    m_path = m_dir / "zevd.log";
  }
  void TearDown() override { fs::remove_all(m_dir); }

  void append(const std::string& text) {
    std::ofstream(m_path, std::ios::binary | std::ios::app) << text;
  }
  void replaceWith(const std::string& text) {
    std::ofstream(m_path, std::ios::binary | std::ios::trunc) << text;
  }
  static std::vector<std::string> raws(const std::vector<LogLine>& lines) {
    std::vector<std::string> out;
    for (const LogLine& line : lines) out.emplace_back(line.raw());
    return out;
  }

  fs::path m_dir;
  fs::path m_path;
};

using Lines = std::vector<std::string>;

// Each case: the file's first contents (followed from its end), then one
// change, then what the next read must give.
TEST_F(LogTailFollowerTest, ReadsOnlyWhatIsNewAndComplete) {
  struct Case {
    const char* name;
    std::string initial;
    std::string appended;
    Lines expected;
    std::string pendingAfter;  // appended next; completes a held-back line
    Lines expectedAfter;
  };
  const Case cases[] = {
      {"nothing new", "a=1\n", "", {}, "", {}},
      {"two new lines", "a=1\n", "b=2\nc=3\n", {"b=2", "c=3"}, "", {}},
      {"blank lines give nothing", "a=1\n", "\n\nb=2\n\n", {"b=2"}, "", {}},
      {"a line still being written waits for its end", "a=1\n", "b=2\nc=", {"b=2"}, "3\n",
       {"c=3"}},
      {"CR LF does not end a line", "a=1\n", "b=2\r\nc=3\n", {"b=2\r\nc=3"}, "", {}},
      {"invalid UTF-8 is repaired", "a=1\n", "b=\xFF\n", {"b=\xEF\xBF\xBD"}, "", {}},
      {"the line budget keeps the newest", "a=1\n", "1\n2\n3\n4\n5\n", {"3", "4", "5"}, "", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    replaceWith(c.initial);
    auto [loaded, cursor] = LogTailFollower::loadAndStart(m_path, 1 << 20, 3);
    append(c.appended);
    LogFollowResult result = LogTailFollower::readAppended(m_path, cursor, 1 << 20, 3);
    EXPECT_EQ(raws(result.lines), c.expected);
    EXPECT_FALSE(result.restarted);
    EXPECT_FALSE(result.replaced);
    append(c.pendingAfter);
    result = LogTailFollower::readAppended(m_path, result.cursor, 1 << 20, 3);
    EXPECT_EQ(raws(result.lines), c.expectedAfter);
    // Everything complete is consumed: a third read finds nothing.
    EXPECT_TRUE(LogTailFollower::readAppended(m_path, result.cursor, 1 << 20, 3).lines.empty());
  }
}

TEST_F(LogTailFollowerTest, StartsOverAfterRotationOrTruncation) {
  struct Case {
    const char* name;
    void (*change)(const fs::path&);
    Lines expected;
  };
  const Case cases[] = {
      {"renamed away and recreated",
       [](const fs::path& p) {
         fs::rename(p, fs::path(p).concat(".1"));
         std::ofstream(p, std::ios::binary) << "new=1\n";
       },
       {"new=1"}},
      {"truncated in place, then written",
       [](const fs::path& p) {
         fs::resize_file(p, 0);
         std::ofstream(p, std::ios::binary | std::ios::app) << "new=1\nnew=2\n";
       },
       {"new=1", "new=2"}},
      {"copied over with shorter contents",
       [](const fs::path& p) { std::ofstream(p, std::ios::binary | std::ios::trunc) << "x\n"; },
       {"x"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    replaceWith("old=1\nold=2\nold=3 padding padding padding\n");
    auto [loaded, cursor] = LogTailFollower::loadAndStart(m_path, 1 << 20, 100);
    ASSERT_EQ(loaded.lines.size(), 3u);
    c.change(m_path);
    const LogFollowResult result = LogTailFollower::readAppended(m_path, cursor, 1 << 20, 100);
    EXPECT_TRUE(result.restarted);
    EXPECT_FALSE(result.replaced);
    EXPECT_EQ(raws(result.lines), c.expected);
    fs::remove(fs::path(m_path).concat(".1"));
  }
}

TEST_F(LogTailFollowerTest, MoreThanTheByteBudgetGivesTheNewestPartToShowAlone) {
  replaceWith("a=1\n");
  auto [loaded, cursor] = LogTailFollower::loadAndStart(m_path, 16, 100);
  append("first-line-long\nb=2\nc=3\n");  // 24 bytes; the budget reads the last 16
  const LogFollowResult result = LogTailFollower::readAppended(m_path, cursor, 16, 100);
  EXPECT_TRUE(result.replaced);
  EXPECT_EQ(raws(result.lines), (Lines{"b=2", "c=3"}));  // the partial first line is dropped
  EXPECT_EQ(result.cursor.offset, fs::file_size(m_path));
}

TEST_F(LogTailFollowerTest, AnEndlessLineIsTakenOnceItFillsTheBudget) {
  replaceWith("");
  auto [loaded, cursor] = LogTailFollower::loadAndStart(m_path, 8, 100);
  append("abcdefghij");
  const LogFollowResult result = LogTailFollower::readAppended(m_path, cursor, 8, 100);
  EXPECT_EQ(raws(result.lines), (Lines{"cdefghij"}));
}

TEST_F(LogTailFollowerTest, AMissingFileThrowsAndTheCursorCanBeKept) {
  replaceWith("a=1\n");
  auto [loaded, cursor] = LogTailFollower::loadAndStart(m_path, 1 << 20, 100);
  fs::remove(m_path);
  EXPECT_THROW(LogTailFollower::readAppended(m_path, cursor, 1 << 20, 100),
               fs::filesystem_error);
  replaceWith("b=1\n");  // recreated: a new file, read from its start
  const LogFollowResult result = LogTailFollower::readAppended(m_path, cursor, 1 << 20, 100);
  EXPECT_EQ(raws(result.lines), (Lines{"b=1"}));
}

}  // namespace
}  // namespace zev
