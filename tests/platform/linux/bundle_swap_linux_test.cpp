#include "platform/linux/bundle_swap_linux.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

void makeBundle(const fs::path& bundle, const std::string& version) {
  fs::create_directories(bundle / "Contents/Linux");
  std::ofstream(bundle / "Contents/Info.plist") << version;
}

// The version of the bundle at `bundle`, or "" when none is there whole.
std::string versionAt(const fs::path& bundle) {
  std::ifstream in(bundle / "Contents/Info.plist");
  std::string version;
  std::getline(in, version);
  return version;
}

// Both ways of swapping, and a two-rename swap whose process is killed by
// SIGKILL right after each of its steps: after recovery the installed path
// holds a whole bundle, the new one as soon as the old one was moved aside.
TEST(SwapInBundle, LeavesAWholeBundleInPlaceEvenWhenKilled) {
  struct Case {
    SwapMethod method;
    int killAfter;  // 0: never
    const char* expected;
  };
  const Case cases[] = {{SwapMethod::exchangeWhereSupported, 0, "B"},
                        {SwapMethod::twoRenames, 0, "B"},
                        {SwapMethod::twoRenames, 1, "A"},
                        {SwapMethod::twoRenames, 2, "B"},
                        {SwapMethod::twoRenames, 3, "B"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(int(c.method)) + " killed after " + std::to_string(c.killAfter));
    testing::ScratchDirectory scratch;
    const fs::path installed = scratch.path() / "ZEV.app";
    makeBundle(installed, "A");
    const fs::path staging = makeStagingDirectory(installed);
    makeBundle(staging / "ZEV.app", "B");
    SwapOutcome outcome;
    if (c.killAfter == 0) {
      ASSERT_EQ(swapInBundle(installed, staging, c.method, outcome), std::nullopt);
      EXPECT_EQ(versionAt(outcome.oldBundle), "A");
      EXPECT_EQ(outcome.oldBundle.parent_path(), staging);
    } else {
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        swapInBundle(installed, staging, c.method, outcome, [&](int done) {
          if (done == c.killAfter) ::kill(::getpid(), SIGKILL);
        });
        ::_exit(0);
      }
      int status = 0;
      ::waitpid(child, &status, 0);
      ASSERT_TRUE(WIFSIGNALED(status));
      EXPECT_TRUE(fs::exists(scratch.path() / swapNoteName));
      EXPECT_EQ(recoverInterruptedSwap(installed), std::nullopt);
    }
    EXPECT_EQ(versionAt(installed), c.expected);
    EXPECT_FALSE(fs::exists(scratch.path() / swapNoteName));
  }
}

// The note is read back from disk: one naming anything but a staging
// directory beside the bundle moves nothing and goes.
TEST(RecoverInterruptedSwap, IgnoresAMalformedNote) {
  testing::ScratchDirectory scratch;
  makeBundle(scratch.path() / "etc/ZEV.app", "B");
  fs::create_directory(scratch.path() / "apps");
  std::ofstream(scratch.path() / "apps" / swapNoteName) << "../etc\n";
  EXPECT_EQ(recoverInterruptedSwap(scratch.path() / "apps/ZEV.app"),
            "ignored a malformed swap note");
  EXPECT_FALSE(fs::exists(scratch.path() / "apps/ZEV.app"));
  EXPECT_FALSE(fs::exists(scratch.path() / "apps" / swapNoteName));
}

}  // namespace
}  // namespace zev
