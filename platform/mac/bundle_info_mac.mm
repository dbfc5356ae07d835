// BundleInfo on NSBundle. Compile-checked on Linux against GNUstep
// (tests/macos); never run there.
#import <Foundation/Foundation.h>

#include "app/ports/bundle_info.h"

namespace zev {
namespace {

// UTF8String is NULL for a nil string, which no std::string may be built from.
std::string utf8(NSString* text) {
  const char* bytes = text.UTF8String;
  return bytes ? std::string(bytes) : std::string();
}

}  // namespace

class MacBundleInfo : public BundleInfo {
 public:
  std::filesystem::path bundlePath() override { return utf8(NSBundle.mainBundle.bundlePath); }
  std::optional<std::string> stringValue(const std::string& key) override {
    NSString* name = [NSString stringWithUTF8String:key.c_str()];
    if (!name) return std::nullopt;
    id value = [NSBundle.mainBundle objectForInfoDictionaryKey:name];
    if (![value isKindOfClass:NSString.class]) return std::nullopt;
    return utf8(static_cast<NSString*>(value));
  }
  std::filesystem::path homeDirectory() override { return utf8(NSHomeDirectory()); }
};

std::unique_ptr<BundleInfo> makeMacBundleInfo() { return std::make_unique<MacBundleInfo>(); }

}  // namespace zev
