#include "core/logs/log_tail_loader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace zev {
namespace {

namespace fs = std::filesystem;

class LogTailLoaderTest : public testing::Test {
 protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() /
            ("zev-tail-" + std::to_string(::getpid()) + "-" +
             testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(m_dir);
    fs::create_directories(m_dir);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::permissions(m_dir / "log", fs::perms::owner_all, ignored);
    fs::remove_all(m_dir, ignored);
  }

  fs::path write(const std::string& contents) {
    const fs::path path = m_dir / "log";
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

  fs::path m_dir;
};

TEST_F(LogTailLoaderTest, CutsTheTailIntoLinesWithinBothBudgets) {
  const struct {
    const char* name;
    std::string contents;
    int64_t maxBytes;
    int64_t maxLines;
    std::vector<std::string> lines;
    int64_t bytesRead;
    bool truncated;
  } cases[] = {
      {"smaller than the budget", "a=1\nb=2\n", 100, 10, {"a=1", "b=2"}, 8, false},
      {"exactly the byte budget keeps its first line", "a=1\nb=2\n", 8, 10, {"a=1", "b=2"}, 8,
       false},
      {"one byte over drops the partial first line", "a=1\nb=2\n", 7, 10, {"b=2"}, 7, true},
      {"a cut block without a line feed is kept whole", "0123456789", 4, 10, {"6789"}, 4, true},
      {"empty file", "", 100, 10, {}, 0, false},
      {"more lines than the budget keeps the newest", "1\n2\n3\n4\n5\n", 100, 3,
       {"3", "4", "5"}, 10, true},
      {"exactly the line budget", "1\n2\n3\n", 100, 3, {"1", "2", "3"}, 6, false},
      {"blank lines count for nothing", "\n\n1\n\n\n2\n\n", 100, 2, {"1", "2"}, 9, false},
      {"no final line feed", "1\n2", 100, 10, {"1", "2"}, 3, false},
      {"CR LF is one character, not a line end", "a=1\r\nb=2\r\n", 100, 10,
       {"a=1\r\nb=2\r\n"}, 10, false},
      {"a lone line feed after CR LF still splits", "a\r\n\nb\n", 100, 10, {"a\r\n", "b"}, 6,
       false},
      {"the dropped partial line may end in CR LF", "xx\r\nb\n", 5, 10, {"b"}, 5, true},
      {"invalid UTF-8 becomes U+FFFD", "a=\xFF\xFE\nb=\xE2\x80\n", 100, 10,
       {"a=\uFFFD\uFFFD", "b=\uFFFD"}, 10, false},
      {"a character cut by the read start disappears with the partial line",
       "\xC3\xA9t\xC3\xA9\n\xC3\xA9t\xC3\xA9\n", 11, 10, {"\xC3\xA9t\xC3\xA9"}, 11, true},
      {"a cut character shows as U+FFFD when no line feed follows", "\xE2\x80\x94zz", 4, 10,
       {"\uFFFD\uFFFDzz"}, 4, true},
      {"a one-byte budget", "abc\n", 1, 1, {}, 1, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path path = write(c.contents);
    const LogTailResult result = LogTailLoader::load(path, c.maxBytes, c.maxLines);
    EXPECT_EQ(raws(result), c.lines);
    EXPECT_EQ(result.bytesRead, c.bytesRead);
    EXPECT_EQ(result.fileSize, c.contents.size());
    EXPECT_EQ(result.wasTruncated, c.truncated);
  }
}

TEST_F(LogTailLoaderTest, ParsesEachLineAndIdenticalLinesShareAnId) {
  const fs::path path = write("level=info msg=same\nlevel=info msg=same\nlevel=ERROR camera=yard\n");
  const LogTailResult result = LogTailLoader::load(path, 1 << 20, 5000);
  ASSERT_EQ(result.lines.size(), 3u);
  EXPECT_EQ(result.lines[0], LogLine::parse("level=info msg=same"));
  EXPECT_EQ(result.lines[0].id(), result.lines[1].id());
  EXPECT_EQ(result.lines[2].severity(), LogSeverity::error);
  EXPECT_EQ(result.lines[2].camera(), "yard");
}

TEST_F(LogTailLoaderTest, LinesOutliveTheResultTheyCameFrom) {
  std::string contents;
  for (int i = 0; i < 600; ++i) contents += "level=info msg=\"line " + std::to_string(i) + "\"\n";
  const fs::path path = write(contents);
  std::vector<LogLine> kept;
  {
    LogTailResult result = LogTailLoader::load(path, 1 << 20, 5000);
    ASSERT_EQ(result.lines.size(), 600u);
    kept = {result.lines[3], result.lines[599]};
  }
  EXPECT_EQ(kept[0].message(), "line 3");
  EXPECT_EQ(kept[1].message(), "line 599");
}

TEST_F(LogTailLoaderTest, MissingFileThrowsNotFound) {
  try {
    (void)LogTailLoader::load(m_dir / "absent.log", 100, 10);
    FAIL() << "no error";
  } catch (const fs::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.path1(), m_dir / "absent.log");
  }
}

TEST_F(LogTailLoaderTest, ReadFailureThrowsAndLeavesNothingOpen) {
  const size_t before = openDescriptors();
  // A directory opens but cannot be read: the error comes after the open.
  try {
    (void)LogTailLoader::load(m_dir, 100, 10);
    FAIL() << "no error";
  } catch (const fs::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::is_a_directory);
  }
  EXPECT_EQ(openDescriptors(), before);

}

TEST_F(LogTailLoaderTest, FileWithoutReadPermissionThrowsPermissionDenied) {
  const fs::path path = write("secret\n");
  fs::permissions(path, fs::perms::none);
  // Run in a child that gives up root, if it has it: root may read anything.
  EXPECT_EXIT(
      {
        if (::geteuid() == 0 && ::setuid(65534) != 0) std::_Exit(3);
        const size_t before = openDescriptors();
        try {
          (void)LogTailLoader::load(path, 100, 10);
          std::_Exit(1);
        } catch (const fs::filesystem_error& error) {
          if (error.code() != std::errc::permission_denied) std::_Exit(2);
        }
        std::_Exit(openDescriptors() == before ? 0 : 4);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(LogTailLoaderTest, FileChangingBetweenSizeQueryAndReadIsReadAsFound) {
  const std::string original = "old-1\nold-2\nold-3\n";  // 18 bytes
  const struct {
    const char* name;
    std::string replacement;
    std::vector<std::string> lines;
  } cases[] = {
      // Read from offset 8 for 10 bytes.
      {"shrinks below the read offset", "tiny\n", {}},
      {"shrinks inside the block", "old-1\nold-2\nol", {"ol"}},
      {"grows: only the queried bytes are read", original + "new-4\n", {"old-3"}},
      {"is replaced by text cut inside a character",
       "old-1\n\xE2\x80\x94\xE2\x80\x94\xE2\x80\x94", {"\uFFFD\u2014\u2014"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path path = write(original);
    const LogTailResult result = detail::loadLogTailForTesting(
        path, 10, 10, [&] { std::ofstream(path, std::ios::binary | std::ios::trunc) << c.replacement; });
    EXPECT_EQ(raws(result), c.lines);
    EXPECT_EQ(result.bytesRead, 10);
    EXPECT_EQ(result.fileSize, original.size());
    EXPECT_TRUE(result.wasTruncated);
  }
}

TEST_F(LogTailLoaderTest, HugeSparseFileReadsOnlyTheTail) {
  const fs::path path = write("");
  constexpr uint64_t kSize = uint64_t{10} << 30;
  {
    const int fd = ::open(path.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    const std::string tail = "\nlevel=warn msg=\"last words\"\n";
    ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(kSize - tail.size())),
              static_cast<ssize_t>(tail.size()));
    ::close(fd);
  }
  const LogTailResult result = LogTailLoader::load(path, 1 << 20, 5000);
  EXPECT_EQ(result.fileSize, kSize);
  EXPECT_EQ(result.bytesRead, 1 << 20);
  EXPECT_TRUE(result.wasTruncated);
  ASSERT_EQ(result.lines.size(), 1u);
  EXPECT_EQ(result.lines[0].message(), "last words");
}

TEST_F(LogTailLoaderTest, BudgetBelowOneStopsTheProcess) {
  const fs::path path = write("a\n");
  EXPECT_DEATH((void)LogTailLoader::load(path, 0, 10), "budgets must be at least 1");
  EXPECT_DEATH((void)LogTailLoader::load(path, 10, 0), "budgets must be at least 1");
  EXPECT_DEATH((void)LogTailLoader::load(path, -1, -1), "budgets must be at least 1");
}

}  // namespace
}  // namespace zev
