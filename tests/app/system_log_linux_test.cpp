#include "platform/linux/system_log_linux.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace zev {
namespace {

TEST(JournalSystemLog, WritesCategoryPrefixedLinesToStandardError_WithoutAJournal) {
  JournalSystemLog log("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  ASSERT_FALSE(log.writesToJournal());

  ::testing::internal::CaptureStderr();
  log.info("daemon present at /opt/ZEV.app/Contents/Helpers/zevd");
  log.error("missing daemon at /x — with an em dash");
  log.info("");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[launcher] daemon present at /opt/ZEV.app/Contents/Helpers/zevd\n"
            "[launcher] missing daemon at /x — with an em dash\n"
            "[launcher] \n");
}

TEST(JournalSystemLog, KeepsLinesWholeWhenThreadsLogAtOnce) {
  JournalSystemLog log("com.zev.zevd", "statusitem", "/nonexistent/journal/socket");
  const std::string payload(200, 'x');
  ::testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) log.info(payload);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string captured = ::testing::internal::GetCapturedStderr();

  const std::string line = "[statusitem] " + payload + "\n";
  ASSERT_EQ(captured.size(), 200 * line.size());
  for (std::size_t at = 0; at < captured.size(); at += line.size()) {
    ASSERT_EQ(captured.compare(at, line.size(), line), 0) << "torn line at " << at;
  }
}

}  // namespace
}  // namespace zev
