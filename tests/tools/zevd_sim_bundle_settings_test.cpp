#include "bundle_settings.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/scratch_directory.h"

namespace zev::sim {
namespace {

TEST(PlistString, FindsTheStringAfterTheKeyAndNothingElse) {
  const std::string plist =
      "<dict>\n\t<key>CFBundleVersion</key>\n\t<string>2.0.0</string>\n"
      "\t<key>Escaped</key><string>a&amp;b&lt;c</string>\n"
      "\t<key>Flag</key><true/>\n\t<key>Empty</key><string></string>\n"
      "\t<key>Bad</key><string>x&unknown;</string>\n"
      "\t<key>Open</key><string>never closed";
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"CFBundleVersion", "2.0.0"}, {"Escaped", "a&b<c"}, {"Flag", std::nullopt},
      {"Empty", std::nullopt},      {"Bad", std::nullopt}, {"Open", std::nullopt},
      {"Missing", std::nullopt},
  };
  for (const auto& [key, expected] : cases) {
    SCOPED_TRACE(key);
    EXPECT_EQ(plistString(plist, key), expected);
  }
}

TEST(ReadBundleSettings, ReadsTheBundleAroundHelpersOnly) {
  testing::ScratchDirectory scratch;
  const auto contents = scratch.path() / "ZEV.app" / "Contents";
  std::filesystem::create_directories(contents / "Helpers");
  std::ofstream(contents / "Info.plist")
      << "<plist><dict><key>CFBundleVersion</key><string>3.0</string>"
         "<key>ZEVSimScenario</key><string>all-down</string></dict></plist>";
  const BundleSettings inBundle = readBundleSettings(contents / "Helpers" / "zevd");
  EXPECT_EQ(inBundle.version, "3.0");
  EXPECT_EQ(inBundle.scenario, "all-down");
  EXPECT_EQ(readBundleSettings(contents / "Linux" / "zevd").version, std::nullopt);
  EXPECT_EQ(readBundleSettings(scratch.path() / "zevd-sim").version, std::nullopt);
}

}  // namespace
}  // namespace zev::sim
