// BundleInfo for a ZEV.app directory on Linux. The executable lives in
// ZEV.app/Contents/Linux/, so the bundle is two levels above its directory;
// an executable outside such a layout (a plain build tree) takes its own
// directory as the bundle. Contents/Info.plist is read as an XML property
// list once, on first use. Main thread.
#ifndef ZEV_PLATFORM_LINUX_BUNDLE_INFO_LINUX_H_
#define ZEV_PLATFORM_LINUX_BUNDLE_INFO_LINUX_H_

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "app/ports/bundle_info.h"

namespace zev {

// The top-level dictionary of an XML property list, reduced to what the
// launcher reads: string values by key, and for every other type an entry
// without a value. Nothing when the file is missing or not a well-formed
// property list with a dictionary at the top.
using InfoDictionary = std::map<std::string, std::optional<std::string>>;
std::optional<InfoDictionary> readInfoPlist(const std::filesystem::path& file);

// The bundle an executable belongs to (see above).
std::filesystem::path bundlePathForExecutable(const std::filesystem::path& executable);

class LinuxBundleInfo : public BundleInfo {
 public:
  LinuxBundleInfo(const std::filesystem::path& executable, std::filesystem::path home);

  std::filesystem::path bundlePath() override { return m_bundle; }
  std::optional<std::string> stringValue(const std::string& key) override;
  std::filesystem::path homeDirectory() override { return m_home; }

 private:
  const std::filesystem::path m_bundle;
  const std::filesystem::path m_home;
  std::optional<InfoDictionary> m_info;
  bool m_loaded = false;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_BUNDLE_INFO_LINUX_H_
