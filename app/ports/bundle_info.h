// Where the application bundle is and what its Info.plist says.
#ifndef ZEV_APP_PORTS_BUNDLE_INFO_H_
#define ZEV_APP_PORTS_BUNDLE_INFO_H_

#include <filesystem>
#include <optional>
#include <string>

namespace zev {

class BundleInfo {
 public:
  virtual ~BundleInfo() = default;
  // The bundle directory, ZEV.app.
  virtual std::filesystem::path bundlePath() = 0;
  // The value of `key` when it is present and a string (possibly empty);
  // nothing when it is absent or of another type.
  virtual std::optional<std::string> stringValue(const std::string& key) = 0;
  virtual std::filesystem::path homeDirectory() = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_BUNDLE_INFO_H_
