#include "bundle_settings.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace zev::sim {
namespace {

// update_e2e.sh runs the simulator inside a bundle that sets its scenario.
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

}  // namespace
}  // namespace zev::sim
