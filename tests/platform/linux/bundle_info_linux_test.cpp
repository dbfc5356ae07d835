#include "platform/linux/bundle_info_linux.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

TEST(BundlePathForExecutable, IsTwoLevelsUp_OnlyInsideAnAppBundle) {
  EXPECT_EQ(bundlePathForExecutable("/opt/ZEV.app/Contents/Linux/ZEVLauncher"), "/opt/ZEV.app");
  EXPECT_EQ(bundlePathForExecutable("/opt/ZEV/Contents/Linux/ZEVLauncher"),
            "/opt/ZEV/Contents/Linux");
}

std::optional<InfoDictionary> read(const std::string& body) {
  const testing::ScratchDirectory scratch;
  std::ofstream(scratch.path() / "Info.plist") << body;
  return readInfoPlist(scratch.path() / "Info.plist");
}

TEST(InfoPlist, KeepsStringValues_AndMarksOtherTypesAsNotAString) {
  const auto info = read(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>Nested</key>
  <dict><key>ZEVReliabilityDirectory</key><string>/inner/must/not/leak</string></dict>
  <key>List</key><array><string>a</string><integer>1</integer></array>
  <key>Flag</key><true/>
  <key>Empty</key><string/>
  <key>ZEVReliabilityDirectory</key><string>~/a &amp; b/&lt;rel&gt;</string>
</dict></plist>)");
  EXPECT_EQ(info, (InfoDictionary{{"Nested", std::nullopt},
                                  {"List", std::nullopt},
                                  {"Flag", std::nullopt},
                                  {"Empty", ""},
                                  {"ZEVReliabilityDirectory", "~/a & b/<rel>"}}));
}

TEST(InfoPlist, ReadsAsNothingWhenMalformed) {
  for (const char* body : {"", "ZEVReliabilityDirectory = /x",
                           "<plist><dict><key>A</key><string>x</string></dict>",  // cut short
                           "<plist><array><string>x</string></array></plist>",
                           "<plist><dict><key>A</key></dict></plist>"}) {
    SCOPED_TRACE(body);
    EXPECT_EQ(read(body), std::nullopt);
  }
}

}  // namespace
}  // namespace zev
