// zevd-sim as a bundle's daemon (<bundle>/Contents/Helpers/zevd): it reports
// the bundle's CFBundleVersion as its build version, so that after an update
// the daemon's version is the update's, and it may take its starting
// scenario from the bundle's ZEVSimScenario key (the update end-to-end test
// ships a bundle whose daemon stays unhealthy). The command line wins over
// both.
#ifndef ZEV_TOOLS_ZEVD_SIM_BUNDLE_SETTINGS_H_
#define ZEV_TOOLS_ZEVD_SIM_BUNDLE_SETTINGS_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zev::sim {

struct BundleSettings {
  std::optional<std::string> version;   // CFBundleVersion
  std::optional<std::string> scenario;  // ZEVSimScenario
};

// Nothing when `executable` is not <x>/Contents/Helpers/<name> or the bundle's
// Info.plist is missing, larger than 64 KiB or lacks the keys.
BundleSettings readBundleSettings(const std::filesystem::path& executable);

// The <string> value following <key>`key`</key> in an XML property list, with
// &amp; &lt; &gt; decoded; nothing when absent, not a string, empty or longer
// than 256 bytes.
std::optional<std::string> plistString(std::string_view plist, std::string_view key);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_BUNDLE_SETTINGS_H_
