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
  fs::create_directories(scratch.path() / "apps");
  makeBundle(scratch.path() / "apps/ZEV.app", "A");
  makeBundle(scratch.path() / "elsewhere/ZEV.app", "B");
  SwapOutcome outcome;
  EXPECT_EQ(swapInBundle(scratch.path() / "apps/ZEV.app", scratch.path() / "elsewhere",
                         SwapMethod::twoRenames, outcome),
            "staging directory is not beside the bundle");
  EXPECT_EQ(versionAt(scratch.path() / "apps/ZEV.app"), "A");
}

// Each row is the disk as a two-rename swap leaves it when killed at one
// point; recovery must end with a whole bundle in place and no note.
TEST(RecoverInterruptedSwap, FinishesOrUndoesACutShortSwap) {
  struct Case {
    const char* name;
    bool installed, staged, previous;
    const char* note;
    const char* expected;
    std::optional<std::string> error;
  };
  const Case cases[] = {
      {"killed after the note", true, true, false, "", "A", std::nullopt},
      {"killed between the renames", false, true, true, "", "B", std::nullopt},
      {"killed after both renames", true, false, true, "", "B", std::nullopt},
      {"no note, nothing to do", true, true, false, nullptr, "A", std::nullopt},
      {"a note naming another place", false, false, true, "../../etc", "",
       "ignored a malformed swap note"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ScratchDirectory scratch;
    const fs::path installed = scratch.path() / "ZEV.app";
    const fs::path staging = scratch.path() / (std::string(stagingPrefix) + "abc123");
    fs::create_directory(staging);
    const bool killedAfterBoth = c.installed && !c.staged;
    if (c.installed) makeBundle(installed, killedAfterBoth ? "B" : "A");
    if (c.staged) makeBundle(staging / "ZEV.app", "B");
    if (c.previous) makeBundle(staging / previousBundleName, "A");
    if (c.note) {
      std::ofstream(scratch.path() / swapNoteName)
          << (*c.note ? c.note : staging.filename().c_str()) << "\n";
    }
    EXPECT_EQ(recoverInterruptedSwap(installed), c.error);
    EXPECT_EQ(versionAt(installed), c.expected);
    EXPECT_FALSE(fs::exists(scratch.path() / swapNoteName));
  }
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
