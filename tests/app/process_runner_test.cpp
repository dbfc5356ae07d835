#include "app/process_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "app/fakes/qt_test_main.h"

namespace zev {
namespace {

using ::testing::HasSubstr;

TEST(RunInheritingOutput, ReturnsForExitZero_AndRaisesReliabilityErrorOtherwise) {
  struct Case {
    const char* script;
    int code;  // 0: no error expected
  };
  const Case cases[] = {
      {"exit 0", 0},
      {"exit 3", 3},
      {"exit 255", 255},
      {"kill -TERM $$", 15},  // the signal's number, as the system reports it
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    if (c.code == 0) {
      EXPECT_NO_THROW(runInheritingOutput("/bin/sh", {"-c", c.script}));
      continue;
    }
    try {
      runInheritingOutput("/bin/sh", {"-c", c.script});
      ADD_FAILURE() << "no error raised";
    } catch (const ReliabilityError& error) {
      EXPECT_EQ(ReliabilityError::domain, "ZEVUpdateReliability");
      EXPECT_EQ(error.code(), c.code);
      EXPECT_EQ(error.localizedDescription(), "/bin/sh exited " + std::to_string(c.code));
    }
  }
}

TEST(RunInheritingOutput, RaisesLaunchErrorForMissingOrNonExecutableFile) {
  for (const char* path : {"/nonexistent/tool", "/etc/hostname"}) {
    SCOPED_TRACE(path);
    EXPECT_THROW(runInheritingOutput(path, {}), ProcessLaunchError);
  }
}

TEST(RunInheritingOutput, PassesArgumentsVerbatim) {
  // Spaces, quotes and an empty argument arrive as they were given.
  EXPECT_NO_THROW(runInheritingOutput(
      "/bin/sh", {"-c", R"(test "$1" = 'a b' && test "$2" = '"q"' && test -z "$3")", "sh", "a b",
                  "\"q\"", ""}));
}

TEST(RunCapturingOutput, MergesBothStreams_AndReturnsTheExitStatus) {
  const CapturedRun run =
      runCapturingOutput("/bin/sh", {"-c", "echo one; echo two >&2; echo three; exit 4"});
  EXPECT_EQ(run.exitStatus, 4);
  EXPECT_EQ(run.output, "one\ntwo\nthree\n");
}

TEST(RunCapturingOutput, DecodesUtf8_AndGivesEmptyTextForInvalidBytes) {
  struct Case {
    const char* printf;
    const char* expected;
  };
  const Case cases[] = {
      {R"(ZEV \342\200\224 ok)", "ZEV — ok"},
      {R"(cut \342\200)", ""},  // a multi-byte character cut short
      {R"(latin \351)", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.printf);
    EXPECT_EQ(runCapturingOutput("/bin/sh", {"-c", std::string("printf '") + c.printf + "'"}).output,
              c.expected);
  }
}

TEST(RunCapturingOutput, ReadsOutputLargerThanAPipeBuffer) {
  const CapturedRun run = runCapturingOutput("/bin/sh", {"-c", "head -c 300000 /dev/zero | tr '\\0' x"});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.output.size(), 300000u);
}

TEST(RunCapturingOutput, GivesTheChildNoInputToWaitFor) {
  const CapturedRun run = runCapturingOutput(
      "/bin/sh", {"-c", "if read answer; then echo got; else echo eof; fi"},
      std::chrono::seconds(20));
  EXPECT_EQ(run.output, "eof\n");
}

TEST(RunCapturingOutput, KillsAChildThatOutlivesTheTimeout) {
  try {
    runCapturingOutput("/bin/sh", {"-c", "sleep 30"}, std::chrono::milliseconds(200));
    ADD_FAILURE() << "no error raised";
  } catch (const ProcessLaunchError& error) {
    EXPECT_THAT(error.what(), HasSubstr("did not exit within 200 ms"));
  }
}

}  // namespace
}  // namespace zev
