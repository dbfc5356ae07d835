#include "app/shell/process_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "app/fakes/qt_test_main.h"

namespace zev {
namespace {

TEST(RunInheritingOutput, RaisesTheExitStatusInTheReliabilityDomain) {
  // The script, and the code raised (0: no error).
  const std::pair<const char*, int> cases[] = {
      {"exit 0", 0}, {"exit 3", 3}, {"exit 255", 255}, {"kill -TERM $$", 15}};
  for (const auto& [script, code] : cases) {
    SCOPED_TRACE(script);
    try {
      runInheritingOutput("/bin/sh", {"-c", script});
      EXPECT_EQ(code, 0) << "no error raised";
    } catch (const ReliabilityError& error) {
      EXPECT_EQ(error.code(), code);
      EXPECT_EQ(error.localizedDescription(), "/bin/sh exited " + std::to_string(code));
    }
  }
  EXPECT_THROW(runInheritingOutput("/etc/hostname", {}), ProcessLaunchError);
}

// Merged output and output that is not UTF-8: the launch's kickstart checks
// (app_delegate_test).
TEST(RunCapturingOutput, ReturnsStatusAndOutput) {
  const std::tuple<const char*, int, std::string> cases[] = {
      // script, status, output
      {R"(printf 'ZEV \342\200\224 ok'; exit 4)", 4, "ZEV — ok"},
      // More than a pipe holds: read while waiting, not only at the end.
      {"head -c 300000 /dev/zero | tr '\\0' x", 0, std::string(300000, 'x')},
      // Nothing to read on standard input: end-of-file, not a hang.
      {"if read answer; then echo got; else echo eof; fi", 0, "eof\n"},
  };
  for (const auto& [script, status, output] : cases) {
    SCOPED_TRACE(script);
    const CapturedRun run = runCapturingOutput("/bin/sh", {"-c", script}, std::chrono::seconds(20));
    EXPECT_EQ(run.exitStatus, status);
    EXPECT_EQ(run.output, output);
  }
}

TEST(RunCapturingOutput, KillsAChildThatOutlivesTheTimeout) {
  try {
    runCapturingOutput("/bin/sh", {"-c", "sleep 30"}, std::chrono::milliseconds(200));
    ADD_FAILURE() << "no error raised";
  } catch (const ProcessLaunchError& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr("did not exit within 200 ms"));
  }
}

}  // namespace
}  // namespace zev
