// log_tail_loader_fuzzer holds loads from a long-lived arena (blocks holding
// earlier inputs' bytes) to loads from fresh memory; here, what it keeps.
#include "core/logs/log_load_arena.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "core/logs/log_tail_loader.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

TEST(LogLoadArena, ReusesWhatALoadLetGoKeepsNoMoreThanItsLimitAndIsOutlivedByItsLines) {
  testing::ScratchDirectory scratch;
  const auto path = scratch.path() / "zevd.log";
  const auto write = [&](const char* tag) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (int i = 0; i < 2000; ++i) {
      out << "time=T" << i << " level=info camera=c msg=\"" << tag << " \\\"" << i << "\\\"\"\n";
    }
  };
  const auto load = [&](LogLoadArena& arena) {
    return LogTailLoader::load(path, 1 << 20, 5000, arena);
  };
  write("first");
  auto arena = std::make_unique<LogLoadArena>(size_t{8} << 20);
  EXPECT_EQ(arena->keptBytes(), 0u);
  LogTailResult kept = load(*arena);
  // The read buffer and working arrays are back; the lines still hold theirs.
  const size_t afterFirst = arena->keptBytes();
  EXPECT_GT(afterFirst, 0u);
  kept = {};
  EXPECT_GT(arena->keptBytes(), afterFirst);
  write("other");  // the same sizes, other bytes
  kept = load(*arena);
  EXPECT_EQ(arena->keptBytes(), afterFirst);  // taken again, nothing new
  EXPECT_EQ(kept, LogTailLoader::load(path, 1 << 20, 5000));
  arena.reset();
  ASSERT_EQ(kept.lines.size(), 2000u);
  EXPECT_EQ(kept.lines[1999].message(), "other \"1999\"");

  LogLoadArena keepsNothing(0);
  kept = load(keepsNothing);
  kept = {};
  EXPECT_EQ(keepsNothing.keptBytes(), 0u);
}

}  // namespace
}  // namespace zev
