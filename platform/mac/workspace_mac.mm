// Workspace and AppActivation on AppKit. Never compiled off Apple; not
// exercised by the Linux CI.
#import <AppKit/AppKit.h>

#include "app/ports/app_activation.h"
#include "app/ports/workspace.h"

namespace zev {

class MacWorkspace : public Workspace {
 public:
  void openURL(const std::string& url) override {
    NSURL* target = [NSURL URLWithString:[NSString stringWithUTF8String:url.c_str()]];
    if (target) [NSWorkspace.sharedWorkspace openURL:target];
  }
  void revealFile(const std::filesystem::path& file) override {
    NSURL* target = [NSURL fileURLWithPath:[NSString stringWithUTF8String:file.c_str()]];
    [NSWorkspace.sharedWorkspace activateFileViewerSelectingURLs:@[ target ]];
  }
};

class MacAppActivation : public AppActivation {
 public:
  void becomeAccessory() override {
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
  }
  void becomeRegular() override { [NSApp setActivationPolicy:NSApplicationActivationPolicyRegular]; }
  void activate() override { [NSApp activateIgnoringOtherApps:YES]; }
};

std::unique_ptr<Workspace> makeMacWorkspace() { return std::make_unique<MacWorkspace>(); }
std::unique_ptr<AppActivation> makeMacAppActivation() {
  return std::make_unique<MacAppActivation>();
}

}  // namespace zev
