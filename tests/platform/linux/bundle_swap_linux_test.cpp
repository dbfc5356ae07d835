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

TEST(SwapInBundle, ReplacesTheInstalledBundleEitherWay) {
  for (const SwapMethod method : {SwapMethod::exchangeWhereSupported, SwapMethod::twoRenames}) {
    SCOPED_TRACE(method == SwapMethod::twoRenames ? "two renames" : "exchange");
    testing::ScratchDirectory scratch;
    const fs::path installed = scratch.path() / "ZEV.app";
    makeBundle(installed, "A");
    const fs::path staging = makeStagingDirectory(installed);
    EXPECT_EQ(staging.parent_path(), scratch.path());
    makeBundle(staging / "ZEV.app", "B");

    SwapOutcome outcome;
    ASSERT_EQ(swapInBundle(installed, staging, method, outcome), std::nullopt);
    EXPECT_EQ(versionAt(installed), "B");
    EXPECT_EQ(versionAt(outcome.oldBundle), "A");
    EXPECT_EQ(outcome.oldBundle.parent_path(), staging);
    EXPECT_FALSE(fs::exists(scratch.path() / swapNoteName));
    if (method == SwapMethod::twoRenames) EXPECT_FALSE(outcome.exchanged);
  }
}

TEST(SwapInBundle, RefusesAStagingDirectoryElsewhereAndMovesNothing) {
  testing::ScratchDirectory scratch;
  makeBundle(scratch.path() / "apps/ZEV.app", "A");
  makeBundle(scratch.path() / "elsewhere/ZEV.app", "B");
  SwapOutcome outcome;
  EXPECT_EQ(swapInBundle(scratch.path() / "apps/ZEV.app", scratch.path() / "elsewhere",
                         SwapMethod::twoRenames, outcome),
            "staging directory is not beside the bundle");
  EXPECT_EQ(versionAt(scratch.path() / "apps/ZEV.app"), "A");
}

// The note is read back from disk: one naming anything but a staging
// directory beside the bundle moves nothing and goes.
TEST(RecoverInterruptedSwap, IgnoresAMalformedNote) {
  testing::ScratchDirectory scratch;
  makeBundle(scratch.path() / "etc/ZEV.app", "B");
  fs::create_directory(scratch.path() / "apps");
  std::ofstream(scratch.path() / "apps" / swapNoteName) << "../etc\n";
  EXPECT_EQ(recoverInterruptedSwap(scratch.path() / "apps/ZEV.app"), "ignored a malformed swap note");
  EXPECT_FALSE(fs::exists(scratch.path() / "apps/ZEV.app"));
  EXPECT_FALSE(fs::exists(scratch.path() / "apps" / swapNoteName));
}

// A child is killed by SIGKILL right after each step of a two-rename swap;
// after recovery the installed path holds a whole bundle, the new one as soon
// as the old one was moved aside.
TEST(SwapInBundle, KilledAfterEachStepOfTwoRenamesRecoversToAWholeBundle) {
  const std::pair<int, const char*> cases[] = {{1, "A"}, {2, "B"}, {3, "B"}};
  for (const auto& [stepToKill, expected] : cases) {
    const int killAfter = stepToKill;
    SCOPED_TRACE(killAfter);
    testing::ScratchDirectory scratch;
    const fs::path installed = scratch.path() / "ZEV.app";
    makeBundle(installed, "A");
    const fs::path staging = makeStagingDirectory(installed);
    makeBundle(staging / "ZEV.app", "B");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      SwapOutcome outcome;
      swapInBundle(installed, staging, SwapMethod::twoRenames, outcome, [&](int done) {
        if (done == killAfter) ::kill(::getpid(), SIGKILL);
      });
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(fs::exists(scratch.path() / swapNoteName));
    EXPECT_EQ(recoverInterruptedSwap(installed), std::nullopt);
    EXPECT_EQ(versionAt(installed), expected);
    EXPECT_FALSE(fs::exists(scratch.path() / swapNoteName));
  }
}

}  // namespace
}  // namespace zev
