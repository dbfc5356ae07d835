// The loading rules on files of every shape; log_tail_loader_fuzzer holds the
// loader to a plain transcription of the same rules on arbitrary input.
#include "core/logs/log_tail_loader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
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
  static size_t openDescriptors() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
  }

  testing::ScratchDirectory scratch;
  const fs::path path = scratch.path() / "log";
};

TEST_F(LogTailLoaderTest, CutsTheTailIntoLinesWithinBothBudgets) {
  const struct {
    const char* name;
    std::string contents;
    int64_t maxBytes, maxLines;
    std::vector<std::string> lines;
    bool truncated;
  } cases[] = {
      {"exactly the byte budget keeps its first line", "a=1\nb=2\n", 8, 10, {"a=1", "b=2"}, false},
      {"one byte over drops the partial first line", "a=1\nb=2\n", 7, 10, {"b=2"}, true},
      {"a cut block without a line feed is kept whole", "0123456789", 4, 10, {"6789"}, true},
      {"more lines than the budget keeps the newest", "1\n2\n3\n4\n5\n", 100, 3,
       {"3", "4", "5"}, true},
      {"blank lines count for nothing", "\n\n1\n\n\n2\n\n", 100, 2, {"1", "2"}, false},
      {"CR LF is one character, not a line end", "a=1\r\nb=2\r\n", 100, 10, {"a=1\r\nb=2\r\n"},
       false},
      {"invalid UTF-8 becomes U+FFFD", "a=\xFF\xFE\nb=\xE2\x80\n", 100, 10,
       {"a=\uFFFD\uFFFD", "b=\uFFFD"}, false},
      {"a character cut by the read start disappears with the partial line",
       "\xC3\xA9t\xC3\xA9\n\xC3\xA9t\xC3\xA9\n", 11, 10, {"\xC3\xA9t\xC3\xA9"}, true},
      {"a one-byte budget", "abc\n", 1, 1, {}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const LogTailResult result = LogTailLoader::load(write(c.contents), c.maxBytes, c.maxLines);
    EXPECT_EQ(raws(result), c.lines);
    EXPECT_EQ(result.bytesRead, std::min<int64_t>(c.maxBytes, c.contents.size()));
    EXPECT_EQ(result.fileSize, c.contents.size());
    EXPECT_EQ(result.wasTruncated, c.truncated);
  }
}

TEST_F(LogTailLoaderTest, LinesOutliveTheResultTheyCameFrom) {
  std::string contents;
  for (int i = 0; i < 600; ++i) contents += "level=info msg=\"line " + std::to_string(i) + "\"\n";
  std::vector<LogLine> kept;
  {
    LogTailResult result = LogTailLoader::load(write(contents), 1 << 20, 5000);
    ASSERT_EQ(result.lines.size(), 600u);
    kept = {result.lines[3], result.lines[599]};
  }
  EXPECT_EQ(kept[0].message(), "line 3");
  EXPECT_EQ(kept[1].message(), "line 599");
}

TEST_F(LogTailLoaderTest, MissingOrUnreadableFileThrowsAndLeavesNothingOpen) {
  const size_t before = openDescriptors();
  // A directory opens but cannot be read: the error comes after the open.
  for (const auto& [file, error] : {std::pair{scratch.path() / "absent", std::errc::no_such_file_or_directory},
                                    std::pair{scratch.path(), std::errc::is_a_directory}}) {
    SCOPED_TRACE(file);
    try {
      (void)LogTailLoader::load(file, 100, 10);
      ADD_FAILURE() << "no error";
    } catch (const fs::filesystem_error& thrown) {
      EXPECT_EQ(thrown.code(), error);
      EXPECT_EQ(thrown.path1(), file);
    }
  }
  EXPECT_EQ(openDescriptors(), before);

  fs::permissions(write("secret\n"), fs::perms::none);
  // In a child that gives up root, if it has it: root may read anything.
  EXPECT_EXIT(
      {
        if (::geteuid() == 0 && ::setuid(65534) != 0) std::_Exit(3);
        try {
          (void)LogTailLoader::load(path, 100, 10);
        } catch (const fs::filesystem_error& error) {
          std::_Exit(error.code() == std::errc::permission_denied ? 0 : 2);
        }
        std::_Exit(1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTailLoaderTest, FileChangingBetweenSizeQueryAndReadIsReadAsFound) {
  const std::string original = "old-1\nold-2\nold-3\n";  // 18 bytes; read from 8 for 10
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"tiny\n", {}},                          // shrinks below the read offset
      {"old-1\nold-2\nol", {"ol"}},            // shrinks inside the block
      {original + "new-4\n", {"old-3"}},       // grows: only the queried bytes are read
      {"old-1\n\xE2\x80\x94\xE2\x80\x94\xE2\x80\x94", {"\uFFFD\u2014\u2014"}},  // cut character
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    const LogTailResult result = detail::loadLogTailForTesting(write(original), 10, 10, [&] {
      std::ofstream(path, std::ios::binary | std::ios::trunc) << c.first;
    });
    EXPECT_EQ(raws(result), c.second);
    EXPECT_EQ(result.bytesRead, 10);
    EXPECT_EQ(result.fileSize, original.size());
    EXPECT_TRUE(result.wasTruncated);
  }
}

TEST_F(LogTailLoaderTest, HugeSparseFileReadsOnlyTheTail) {
  constexpr uint64_t kSize = uint64_t{10} << 30;
  const std::string tail = "\nlevel=warn msg=\"last words\"\n";
  const int fd = ::open(write("").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(kSize - tail.size())),
            static_cast<ssize_t>(tail.size()));
  ::close(fd);
  const LogTailResult result = LogTailLoader::load(path, 1 << 20, 5000);
  EXPECT_EQ(result.fileSize, kSize);
  EXPECT_EQ(result.bytesRead, 1 << 20);
  ASSERT_EQ(result.lines.size(), 1u);
  EXPECT_EQ(result.lines[0].message(), "last words");
}

TEST_F(LogTailLoaderTest, BudgetBelowOneStopsTheProcess) {
  write("a\n");
  EXPECT_DEATH((void)LogTailLoader::load(path, 0, 10), "budgets must be at least 1");
  EXPECT_DEATH((void)LogTailLoader::load(path, 10, 0), "budgets must be at least 1");
}

}  // namespace
}  // namespace zev
