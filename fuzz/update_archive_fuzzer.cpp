// Unpacks arbitrary bytes as an update archive into a fresh staging directory
// and traps when anything appears beside it: whatever the archive says,
// nothing may be written outside the staging directory.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "platform/linux/update_archive_linux.h"

namespace {

namespace fs = std::filesystem;

const fs::path& scratchRoot() {
  static const fs::path root = [] {
    std::string name = (fs::temp_directory_path() / "zev-unpack-fuzz-XXXXXX").string();
    if (!::mkdtemp(name.data())) __builtin_trap();
    return fs::path(name);
  }();
  return root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path& root = scratchRoot();
  const fs::path staging = root / "staging";
  fs::create_directory(staging);
  zev::UnpackLimits limits;
  limits.maxTotalBytes = 16u << 20;
  limits.maxEntries = 2000;
  const auto error = zev::unpackUpdateArchiveBytes(std::span(data, size), staging, limits);
  for (const auto& entry : fs::directory_iterator(root)) {
    if (entry.path() != staging) __builtin_trap();
  }
  // A success always leaves exactly one ZEV.app with its Info.plist.
  if (!error) {
    for (const auto& entry : fs::directory_iterator(staging)) {
      if (entry.path().filename() != "ZEV.app") __builtin_trap();
    }
    if (!fs::is_regular_file(fs::symlink_status(staging / "ZEV.app/Contents/Info.plist"))) {
      __builtin_trap();
    }
  }
  fs::remove_all(staging);
  return 0;
}
