// BundleInfo on NSBundle. Never compiled off Apple; not exercised by the
// Linux CI.
#import <Foundation/Foundation.h>

#include "app/ports/bundle_info.h"

namespace zev {

class MacBundleInfo : public BundleInfo {
 public:
  std::filesystem::path bundlePath() override { return NSBundle.mainBundle.bundlePath.UTF8String; }
  std::optional<std::string> stringValue(const std::string& key) override {
    id value = [NSBundle.mainBundle
        objectForInfoDictionaryKey:[NSString stringWithUTF8String:key.c_str()]];
    if (![value isKindOfClass:NSString.class]) return std::nullopt;
    const char* bytes = static_cast<NSString*>(value).UTF8String;
    return bytes ? std::string(bytes) : std::string();
  }
  std::filesystem::path homeDirectory() override { return NSHomeDirectory().UTF8String; }
};

std::unique_ptr<BundleInfo> makeMacBundleInfo() { return std::make_unique<MacBundleInfo>(); }

}  // namespace zev
