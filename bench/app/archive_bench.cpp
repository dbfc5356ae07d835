// How long the archiving step of an update preparation takes on Linux: copy a
// bundle (modes and links kept) and verify the copy against its signed
// manifest, as LinuxArchiveTool does on its worker thread. Prints the median
// of five rounds for each half.
//
//   build/release/bench/archive_bench build/release/ZEV.app
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/archive_tool_linux.h"
#include "platform/linux/bundle_info_linux.h"
#include "platform/linux/bundle_manifest.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: archive_bench ZEV.app\n");
    return 2;
  }
  const fs::path bundle = argv[1];
  const auto info = zev::readInfoPlist(bundle / "Contents/Info.plist");
  std::optional<std::string> key;
  if (info) {
    if (auto found = info->find(std::string(zev::manifest::publicKeyInfoKey));
        found != info->end()) {
      key = found->second;
    }
  }
  zev::LinuxArchiveTool tool(key);
  const fs::path scratch =
      fs::temp_directory_path() / ("archive_bench." + std::to_string(::getpid()));
  std::vector<double> copyMS, verifyMS;
  std::uintmax_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(bundle)) {
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  for (int round = 0; round < 5; ++round) {
    const fs::path archive = scratch / ("ZEV.app." + std::to_string(round));
    fs::create_directories(scratch);
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    if (auto error = tool.copyBundle(bundle, archive)) {
      std::fprintf(stderr, "copy failed: %s\n", error->c_str());
      return 1;
    }
    const auto copied = Clock::now();
    if (auto error = tool.verifyCopy(archive)) {
      std::fprintf(stderr, "verification failed: %s\n", error->c_str());
      return 1;
    }
    const auto verified = Clock::now();
    copyMS.push_back(std::chrono::duration<double, std::milli>(copied - start).count());
    verifyMS.push_back(std::chrono::duration<double, std::milli>(verified - copied).count());
    fs::remove_all(archive);
  }
  fs::remove_all(scratch);
  std::sort(copyMS.begin(), copyMS.end());
  std::sort(verifyMS.begin(), verifyMS.end());
  std::printf("bundle %.1f MiB: copy %.1f ms, verify %.1f ms (median of 5)\n",
              double(bytes) / (1 << 20), copyMS[2], verifyMS[2]);
  return 0;
}
