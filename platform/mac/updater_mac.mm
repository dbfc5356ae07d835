// Updater on Sparkle 2: SPUStandardUpdaterController with a small bridge
// object as its updater delegate and standard-user-driver delegate, which
// hands every callback to the application's UpdaterDelegate. Never compiled
// off Apple; not exercised by the Linux CI.
//
// Sparkle calls its delegates on the main thread, and the controller keeps
// them weakly: MacUpdater owns the bridge for as long as the controller lives.
// The Sparkle blocks are copied before they are wrapped, so they outlive the
// callback that brought them.
#import <Foundation/Foundation.h>
#import <Sparkle/Sparkle.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/ports/updater.h"

namespace {

std::string utf8(NSString* text) {
  const char* bytes = text.UTF8String;
  return bytes ? std::string(bytes) : std::string();
}

zev::UpdateItem toItem(SUAppcastItem* item) {
  zev::UpdateItem result;
  if (item) {
    result.versionString = utf8(item.versionString);
    result.displayVersionString = utf8(item.displayVersionString);
  }
  return result;
}

// A Sparkle continuation as a std::function: called at most once, and only
// on the main thread (a late call from elsewhere is hopped there).
std::function<void()> continuation(void (^block)(void)) {
  void (^copied)(void) = [block copy];
  auto called = std::make_shared<bool>(false);
  return [copied, called] {
    if (*called || !copied) return;
    *called = true;
    if (NSThread.isMainThread) {
      copied();
    } else {
      [NSOperationQueue.mainQueue addOperationWithBlock:copied];
    }
  };
}

}  // namespace

@interface ZEVSparkleBridge : NSObject <SPUUpdaterDelegate, SPUStandardUserDriverDelegate>
@property(nonatomic, assign) zev::UpdaterDelegate* target;
@end

@implementation ZEVSparkleBridge

- (BOOL)updater:(SPUUpdater*)updater
       willInstallUpdateOnQuit:(SUAppcastItem*)item
    immediateInstallationBlock:(void (^)(void))immediateInstallHandler {
  if (!self.target) return NO;
  return self.target->willInstallUpdateOnQuit(toItem(item), continuation(immediateInstallHandler));
}

- (BOOL)updater:(SPUUpdater*)updater
    shouldPostponeRelaunchForUpdate:(SUAppcastItem*)item
                 untilInvokingBlock:(void (^)(void))installHandler {
  if (!self.target) return NO;
  return self.target->shouldPostponeRelaunchForUpdate(toItem(item), continuation(installHandler));
}

- (BOOL)supportsGentleScheduledUpdateReminders {
  return self.target ? self.target->supportsGentleScheduledUpdateReminders() : NO;
}

- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)update
                                         andInImmediateFocus:(BOOL)immediateFocus {
  if (!self.target) return YES;
  return self.target->standardUserDriverShouldHandleShowingScheduledUpdate(toItem(update),
                                                                           immediateFocus);
}

- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state {
  if (!self.target) return;
  zev::UserUpdateState userState;
  userState.userInitiated = state.userInitiated;
  self.target->standardUserDriverWillHandleShowingUpdate(handleShowingUpdate, toItem(update),
                                                         userState);
}

- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update {
  if (self.target) self.target->standardUserDriverDidReceiveUserAttention(toItem(update));
}

@end

namespace zev {
namespace {

class MacUpdater : public Updater {
 public:
  void start(UpdaterDelegate& delegate) override {
    m_bridge = [[ZEVSparkleBridge alloc] init];
    m_bridge.target = &delegate;
    m_controller = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                                 updaterDelegate:m_bridge
                                                              userDriverDelegate:m_bridge];
  }
  void setAutomaticallyChecksForUpdates(bool on) override {
    m_controller.updater.automaticallyChecksForUpdates = on;
  }
  void setAutomaticallyDownloadsUpdates(bool on) override {
    m_controller.updater.automaticallyDownloadsUpdates = on;
  }
  std::optional<std::string> feedURL() const override {
    NSURL* feed = m_controller.updater.feedURL;
    if (!feed) return std::nullopt;
    return utf8(feed.absoluteString);
  }
  void checkForUpdatesInBackground() override {
    [m_controller.updater checkForUpdatesInBackground];
  }
  // Sparkle's standard user driver shows the progress and the outcome itself.
  void checkForUpdates() override { [m_controller checkForUpdates:nil]; }

  ~MacUpdater() override {
    // The application delegate may be going: no callback may reach it now.
    m_bridge.target = nullptr;
  }

 private:
  ZEVSparkleBridge* m_bridge = nil;
  SPUStandardUpdaterController* m_controller = nil;
};

}  // namespace

std::unique_ptr<Updater> makeMacUpdater() { return std::make_unique<MacUpdater>(); }

}  // namespace zev
