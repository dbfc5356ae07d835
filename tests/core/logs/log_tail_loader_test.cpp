// The byte budget, files changing under the loader, errors and huge files;
// log_tail_loader_fuzzer holds the loader to a plain transcription of the
// loading rules on arbitrary input, from seeds of every shape (CR LF, blank
// lines, cut characters, blocks without a line feed, invalid UTF-8).
#include "core/logs/log_tail_loader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

class LogTailLoaderTest : public ::testing::Test {
 protected:
  fs::path write(const std::string& contents) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
    return path;
  }
  static std::vector<std::string> raws(const LogTailResult& result) {
    std::vector<std::string> out;
    for (const LogLine& line : result.lines) out.emplace_back(line.raw());
    return out;
  }

  testing::ScratchDirectory scratch;
  const fs::path path = scratch.path() / "log";
};

TEST_F(LogTailLoaderTest, CutsTheTailIntoLinesWithinBothBudgets) {
  const std::string old = "old-1\nold-2\nold-3\n";  // 18 bytes; with 10 read from 8
  const struct {
    const char* name;
    std::string contents;
    int64_t maxBytes, maxLines;
    std::vector<std::string> lines;
    bool truncated;
    std::optional<std::string> changedTo = {};  // between the size query and the read
  } cases[] = {
      {"exactly both budgets keep everything", "a=1\nb=2\n", 8, 2, {"a=1", "b=2"}, false},
      {"one byte over drops the partial first line", "a=1\nb=2\n", 7, 10, {"b=2"}, true},
      {"a file shrunk below the read offset", old, 10, 10, {}, true, "tiny\n"},
      {"a file shrunk inside the block", old, 10, 10, {"ol"}, true, "old-1\nold-2\nol"},
      {"a file grown: only the queried bytes are read", old, 10, 10, {"old-3"}, true,
       old + "new-4\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const LogTailResult result =
        detail::loadLogTailForTesting(write(c.contents), c.maxBytes, c.maxLines, [&] {
          if (c.changedTo) write(*c.changedTo);
        });
    EXPECT_EQ(raws(result), c.lines);
    EXPECT_EQ(result.bytesRead, std::min<int64_t>(c.maxBytes, c.contents.size()));
    EXPECT_EQ(result.fileSize, c.contents.size());
    EXPECT_EQ(result.wasTruncated, c.truncated);
  }
}

TEST_F(LogTailLoaderTest, MissingOrUnreadableFileThrowsAndLeavesNothingOpen) {
  const auto openDescriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = openDescriptors();
  // A directory opens but cannot be read: the error comes after the open.
  for (const auto& [file, error] : {std::pair{path, std::errc::no_such_file_or_directory},
                                    std::pair{scratch.path(), std::errc::is_a_directory}}) {
    SCOPED_TRACE(file);
    try {
      (void)LogTailLoader::load(file, 100, 10);
      ADD_FAILURE() << "no error";
    } catch (const fs::filesystem_error& thrown) {
      EXPECT_EQ(thrown.code(), error);
    }
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_DEATH((void)LogTailLoader::load(write("a\n"), 0, 10), "budgets must be at least 1");
}

// Past 4 GiB, and sparse: only the tail is read.
TEST_F(LogTailLoaderTest, HugeSparseFileReadsOnlyTheTail) {
  constexpr uint64_t kSize = uint64_t{10} << 30;
  const std::string tail = "\nlevel=warn msg=\"last words\"\n";
  fs::resize_file(write(""), kSize - tail.size());
  std::ofstream(path, std::ios::binary | std::ios::app) << tail;
  const LogTailResult result = LogTailLoader::load(path, 1 << 20, 5000);
  EXPECT_EQ(result.fileSize, kSize);
  EXPECT_EQ(result.bytesRead, 1 << 20);
  ASSERT_EQ(result.lines.size(), 1u);
  EXPECT_EQ(result.lines[0].message(), "last words");
}

}  // namespace
}  // namespace zev
