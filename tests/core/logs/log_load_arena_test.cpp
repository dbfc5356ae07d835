#include "core/logs/log_load_arena.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/logs/log_tail_loader.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

class LogLoadArenaTest : public testing::Test {
 protected:
  void SetUp() override {
    m_path = fs::temp_directory_path() / ("zev-arena-" + std::to_string(::getpid()));
  }
  void TearDown() override { fs::remove(m_path); }
  const fs::path& write(const std::string& text) {
    std::ofstream(m_path, std::ios::binary | std::ios::trunc) << text;
    return m_path;
  }
  fs::path m_path;
};

std::string manyLines(int count, const char* tag) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += "time=T" + std::to_string(i) + " level=info camera=c msg=\"" + tag + " \\\"" +
            std::to_string(i) + "\\\"\"\n";
  }
  return text;
}

// The arena's blocks come back holding an earlier load's bytes; a load from
// them must still equal a load from fresh memory.
TEST_F(LogLoadArenaTest, LoadsFromReusedBlocksEqualLoadsFromFreshMemory) {
  struct Case {
    const char* name;
    std::string text;
    int64_t maxBytes;
    int64_t maxLines;
  };
  const Case cases[] = {
      {"many lines, every block reused", manyLines(3000, "first"), 1 << 20, 5000},
      {"the same sizes, other bytes", manyLines(3000, "secnd"), 1 << 20, 5000},
      {"cut by both budgets", manyLines(3000, "third"), 20000, 100},
      {"invalid UTF-8 and CR LF", "a=\xFF\xFE\r\nb=2\n\xC3\n", 1 << 20, 5000},
      {"one byte", "x", 1, 1},
      {"empty", "", 1 << 20, 5000},
  };
  LogLoadArena arena;
  for (int round = 0; round < 2; ++round) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + (round ? ", again" : ""));
      write(c.text);
      const LogTailResult fresh = LogTailLoader::load(m_path, c.maxBytes, c.maxLines);
      EXPECT_EQ(LogTailLoader::load(m_path, c.maxBytes, c.maxLines, arena), fresh);
    }
  }
}

TEST_F(LogLoadArenaTest, ReusesWhatALoadLetGoAndKeepsNoMoreThanItsLimit) {
  write(manyLines(2000, "x"));
  LogLoadArena arena(size_t{8} << 20);
  EXPECT_EQ(arena.keptBytes(), 0u);
  LogTailResult kept = LogTailLoader::load(m_path, 1 << 20, 5000, arena);
  // The read buffer and working arrays are back; the lines still hold theirs.
  const size_t afterFirst = arena.keptBytes();
  EXPECT_GT(afterFirst, 0u);
  kept = {};
  const size_t allBack = arena.keptBytes();
  EXPECT_GT(allBack, afterFirst);
  LogTailResult second = LogTailLoader::load(m_path, 1 << 20, 5000, arena);
  EXPECT_EQ(arena.keptBytes(), afterFirst);  // taken again, nothing new

  LogLoadArena keepsNothing(0);
  const LogTailResult other = LogTailLoader::load(m_path, 1 << 20, 5000, keepsNothing);
  EXPECT_EQ(keepsNothing.keptBytes(), 0u);
}

TEST_F(LogLoadArenaTest, LinesOutliveTheirArena) {
  write(manyLines(50, "outlive"));
  LogTailResult result;
  {
    LogLoadArena arena;
    result = LogTailLoader::load(m_path, 1 << 20, 5000, arena);
  }
  ASSERT_EQ(result.lines.size(), 50u);
  EXPECT_EQ(result.lines[49].message(), "outlive \"49\"");
}

}  // namespace
}  // namespace zev
