#include "platform/linux/bundle_info_linux.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <filesystem>
#include <fstream>

namespace zev {
namespace {

namespace fs = std::filesystem;

TEST(BundlePathForExecutable, IsTwoLevelsUp_OnlyInsideAnAppBundle) {
  struct Case {
    const char* executable;
    const char* bundle;
  };
  const Case cases[] = {
      {"/opt/ZEV.app/Contents/Linux/ZEVLauncher", "/opt/ZEV.app"},
      {"/opt/ZEV.app/Contents/MacOS/ZEVLauncher", "/opt/ZEV.app"},
      {"/home/u/My Apps/ZEV.app/Contents/Linux/ZEVLauncher", "/home/u/My Apps/ZEV.app"},
      // Not a bundle: the executable's own directory.
      {"/build/app/ZEVLauncher", "/build/app"},
      {"/opt/ZEV/Contents/Linux/ZEVLauncher", "/opt/ZEV/Contents/Linux"},
      {"/opt/ZEV.app/Resources/Linux/ZEVLauncher", "/opt/ZEV.app/Resources/Linux"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.executable);
    EXPECT_EQ(bundlePathForExecutable(c.executable), fs::path(c.bundle));
  }
}

class InfoPlist : public ::testing::Test {
 protected:
  fs::path write(const std::string& body) {
    const fs::path file = fs::path(m_dir.path().toStdString()) / "Info.plist";
    std::ofstream(file) << body;
    return file;
  }
  static std::string plist(const std::string& dict) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
)" + dict + "</dict>\n</plist>\n";
  }

 private:
  QTemporaryDir m_dir;
};

TEST_F(InfoPlist, KeepsStringValues_AndMarksOtherTypesAsNotAString) {
  const auto info = readInfoPlist(write(plist(R"(
  <key>CFBundleIdentifier</key><string>com.zev.launcher</string>
  <key>Nested</key>
  <dict><key>ZEVReliabilityDirectory</key><string>/inner/must/not/leak</string></dict>
  <key>List</key><array><string>a</string><integer>1</integer></array>
  <key>Count</key><integer>7</integer>
  <key>Flag</key><true/>
  <key>Empty</key><string/>
  <key>Escaped</key><string>~/a &amp; b/&lt;rel&gt;</string>
  <key>ZEVReliabilityDirectory</key><string>~/custom/rel</string>
)")));
  ASSERT_TRUE(info);
  const InfoDictionary expected = {
      {"CFBundleIdentifier", "com.zev.launcher"},
      {"Nested", std::nullopt},
      {"List", std::nullopt},
      {"Count", std::nullopt},
      {"Flag", std::nullopt},
      {"Empty", ""},
      {"Escaped", "~/a & b/<rel>"},
      {"ZEVReliabilityDirectory", "~/custom/rel"},
  };
  EXPECT_EQ(*info, expected);
}

TEST_F(InfoPlist, ReadsAsNothingWhenMissingOrMalformed) {
  struct Case {
    const char* name;
    std::string body;
  };
  const std::string whole = plist("<key>A</key><string>x</string>");
  const Case cases[] = {
      {"empty file", ""},
      {"not xml", "ZEVReliabilityDirectory = /x"},
      {"truncated", whole.substr(0, whole.find("</dict>"))},
      {"array at the top", "<plist><array><string>x</string></array></plist>"},
      {"value without key", "<plist><dict><string>x</string></dict></plist>"},
      {"key without value", "<plist><dict><key>A</key></dict></plist>"},
      {"unclosed after dict", "<plist><dict><key>A</key><string>x</string></dict>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(readInfoPlist(write(c.body)), std::nullopt);
  }
  EXPECT_EQ(readInfoPlist("/nonexistent/Info.plist"), std::nullopt);
}

TEST(LinuxBundleInfo, ReadsInfoPlistInsideTheBundle) {
  QTemporaryDir dir;
  const fs::path bundle = fs::path(dir.path().toStdString()) / "ZEV.app";
  fs::create_directories(bundle / "Contents/Linux");
  std::ofstream(bundle / "Contents/Info.plist")
      << "<plist><dict><key>ZEVReliabilityDirectory</key><integer>3</integer>"
         "<key>CFBundleName</key><string>ZEV</string></dict></plist>";

  LinuxBundleInfo info(bundle / "Contents/Linux/ZEVLauncher", "/home/tester");
  EXPECT_EQ(info.bundlePath(), bundle);
  EXPECT_EQ(info.homeDirectory(), fs::path("/home/tester"));
  EXPECT_EQ(info.stringValue("CFBundleName"), "ZEV");
  EXPECT_EQ(info.stringValue("ZEVReliabilityDirectory"), std::nullopt);
  EXPECT_EQ(info.stringValue("Absent"), std::nullopt);
}

}  // namespace
}  // namespace zev
