// Unpacks arbitrary bytes as an update archive into a fresh staging directory
// and traps when anything appears beside it: whatever the archive says,
// nothing may be written outside the staging directory. A success leaves
// exactly one ZEV.app with its Info.plist.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "platform/linux/update_archive_linux.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fs::path root = [] {
    std::string name = (fs::temp_directory_path() / "zev-unpack-fuzz-XXXXXX").string();
    if (!::mkdtemp(name.data())) __builtin_trap();
    return fs::path(name);
  }();
  const fs::path staging = root / "staging";
  fs::create_directory(staging);
  const zev::UnpackLimits limits{.maxTotalBytes = 16u << 20, .maxEntries = 2000};
  const auto error = zev::unpackUpdateArchiveBytes(std::span(data, size), staging, limits);
  if (std::distance(fs::directory_iterator(root), {}) != 1) __builtin_trap();
  const auto plist = fs::symlink_status(staging / "ZEV.app/Contents/Info.plist");
  const auto stagedEntries = std::distance(fs::directory_iterator(staging), {});
  if (!error && (!fs::is_regular_file(plist) || stagedEntries != 1)) __builtin_trap();
  fs::remove_all(staging);
  return 0;
}
