// Workspace and AppActivation on AppKit. Compile-checked on Linux against
// GNUstep (tests/macos); never run there.
#import <AppKit/AppKit.h>

#include "app/ports/app_activation.h"
#include "app/ports/workspace.h"

namespace zev {

class MacWorkspace : public Workspace {
 public:
  void openURL(const std::string& url) override {
    // nil when the text is not UTF-8; NSURL then has nothing to parse.
    NSString* text = [NSString stringWithUTF8String:url.c_str()];
    NSURL* target = text ? [NSURL URLWithString:text] : nil;
    if (target) [NSWorkspace.sharedWorkspace openURL:target];
  }
  void revealFile(const std::filesystem::path& file) override {
    // A path is file-system bytes, not necessarily UTF-8; a path the file
    // manager cannot represent as a string is not revealed (fileURLWithPath:
    // raises on nil).
    const std::string& bytes = file.native();
    if (bytes.empty()) return;
    NSString* path = [NSFileManager.defaultManager stringWithFileSystemRepresentation:bytes.c_str()
                                                                              length:bytes.size()];
    if (!path) return;
    NSURL* target = [NSURL fileURLWithPath:path];
    [NSWorkspace.sharedWorkspace activateFileViewerSelectingURLs:@[ target ]];
  }
};

class MacAppActivation : public AppActivation {
 public:
  void becomeAccessory() override {
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
  }
  void becomeRegular() override { [NSApp setActivationPolicy:NSApplicationActivationPolicyRegular]; }
  void activate() override {
    // activateIgnoringOtherApps: is deprecated from macOS 14, whose activate
    // asks the system rather than taking focus outright.
    if (@available(macOS 14.0, *)) {
      [NSApp activate];
    } else {
      [NSApp activateIgnoringOtherApps:YES];
    }
  }
};

std::unique_ptr<Workspace> makeMacWorkspace() { return std::make_unique<MacWorkspace>(); }
std::unique_ptr<AppActivation> makeMacAppActivation() {
  return std::make_unique<MacAppActivation>();
}

}  // namespace zev
