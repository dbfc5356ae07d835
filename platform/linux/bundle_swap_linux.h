// Puts a staged bundle in place of the installed one, so that at every
// moment, even if the process is killed, the installed path holds a bundle
// that starts.
//
// The staged bundle lives in a staging directory beside the installed one
// (same file system): <parent>/.ZEV.app.staging-XXXXXX/ZEV.app. Where the
// file system allows, both are exchanged in one step (renameat2 with
// RENAME_EXCHANGE); the old bundle is then in the staging directory's place
// of the new one. Elsewhere two renames are needed, and a recovery note
// (<parent>/.ZEV.app.swap) is written durably first, naming the staging
// directory; recoverInterruptedSwap finishes the swap from it.
//
// Blocking file-system calls; any thread. Never throws.
#ifndef ZEV_PLATFORM_LINUX_BUNDLE_SWAP_LINUX_H_
#define ZEV_PLATFORM_LINUX_BUNDLE_SWAP_LINUX_H_

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zev {

inline constexpr std::string_view stagingPrefix = ".ZEV.app.staging-";
inline constexpr std::string_view swapNoteName = ".ZEV.app.swap";
inline constexpr std::string_view previousBundleName = "ZEV.app.previous";

enum class SwapMethod { exchangeWhereSupported, twoRenames };

struct SwapOutcome {
  bool exchanged = false;            // one renameat2 step; else two renames
  std::filesystem::path oldBundle;   // where the replaced bundle is now
};

// A new, empty staging directory beside `installed`. Throws
// std::filesystem::filesystem_error when it cannot be made.
std::filesystem::path makeStagingDirectory(const std::filesystem::path& installed);

// Swaps <staging>/ZEV.app into `installed`. On failure nothing has moved
// (or the note lets recoverInterruptedSwap finish it) and the error is one line.
// `afterStepForTesting`, when set, is called after each durable step of a
// two-rename swap (1: note written, 2: old bundle moved aside, 3: new bundle
// in place), so tests can kill the process exactly there.
std::optional<std::string> swapInBundle(const std::filesystem::path& installed,
                                        const std::filesystem::path& staging,
                                        SwapMethod method, SwapOutcome& outcome,
                                        const std::function<void(int)>& afterStepForTesting = {});

// Finishes a two-rename swap that was cut short: when the installed path is
// missing, the staged bundle (else the previous one) is moved into place.
// Removes the note. Nothing when there was nothing to do or it worked.
std::optional<std::string> recoverInterruptedSwap(const std::filesystem::path& installed);

// True when the bundle and its directory belong to the user running us and
// are writable: only then does the updater replace it. A bundle installed by
// the system (a package manager) is left to whoever installed it.
bool bundleIsUsersOwn(const std::filesystem::path& installed);

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_BUNDLE_SWAP_LINUX_H_
