#include "platform/linux/system_log_linux.h"

#include <gtest/gtest.h>

namespace zev {
namespace {

TEST(JournalSystemLog, WritesCategoryPrefixedLinesToStandardError_WithoutAJournal) {
  JournalSystemLog log("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  ASSERT_FALSE(log.writesToJournal());

  ::testing::internal::CaptureStderr();
  log.info("daemon present at /opt/ZEV.app/Contents/Helpers/zevd");
  log.error("missing daemon at /x — with an em dash");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[launcher] daemon present at /opt/ZEV.app/Contents/Helpers/zevd\n"
            "[launcher] missing daemon at /x — with an em dash\n");
}

}  // namespace
}  // namespace zev
