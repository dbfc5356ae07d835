// Notifier on UNUserNotificationCenter. Permission is asked once, when the
// notifier is made; until the user answers, and after a refusal, show() only
// reaches the log (once). A click reaches the handler on the main queue with
// the target carried in the notification's userInfo. Never compiled off
// Apple; not exercised by the Linux CI.
#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

#include <functional>
#include <memory>
#include <string>

#include "app/ports/notifier.h"
#include "app/ports/system_log.h"

// The centre's delegate: shows our notifications while the launcher is in
// front too, and hands clicks to the notifier.
@interface ZEVNotificationDelegate : NSObject <UNUserNotificationCenterDelegate>
@property(nonatomic, copy) void (^onClick)(NSString* target);
@end

@implementation ZEVNotificationDelegate
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completionHandler {
  completionHandler(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionList);
}
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
    didReceiveNotificationResponse:(UNNotificationResponse*)response
             withCompletionHandler:(void (^)(void))completionHandler {
  NSString* target = response.notification.request.content.userInfo[@"target"];
  void (^onClick)(NSString*) = self.onClick;
  dispatch_async(dispatch_get_main_queue(), ^{
    if (onClick && [target isKindOfClass:[NSString class]]) onClick(target);
  });
  completionHandler();
}
@end

namespace zev {
namespace {

NSString* ns(const std::string& text) {
  return [[NSString alloc] initWithBytes:text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding]
             ?: @"";
}

}  // namespace

class MacNotifier : public Notifier {
 public:
  explicit MacNotifier(SystemLog& log)
      : m_log(log), m_state(std::make_shared<State>()), m_delegate([ZEVNotificationDelegate new]) {
    std::weak_ptr<State> state = m_state;
    m_delegate.onClick = ^(NSString* target) {
      auto alive = state.lock();
      if (!alive || !alive->handler) return;
      alive->handler([target isEqualToString:@"logWindow"] ? NotificationTarget::logWindow
                                                           : NotificationTarget::popover);
    };
    UNUserNotificationCenter* center = UNUserNotificationCenter.currentNotificationCenter;
    center.delegate = m_delegate;
    SystemLog* logPointer = &m_log;
    [center
        requestAuthorizationWithOptions:(UNAuthorizationOptionAlert | UNAuthorizationOptionSound)
                      completionHandler:^(BOOL granted, NSError* error) {
                        dispatch_async(dispatch_get_main_queue(), ^{
                          auto alive = state.lock();
                          if (!alive) return;
                          alive->allowed = granted;
                          if (!granted) {
                            logPointer->info(
                                "desktop notifications not allowed by the user; state changes "
                                "are only logged");
                          }
                        });
                      }];
  }

  ~MacNotifier() override {
    UNUserNotificationCenter* center = UNUserNotificationCenter.currentNotificationCenter;
    if (center.delegate == m_delegate) center.delegate = nil;
  }

  void show(const Notification& notification) override {
    if (!m_state->allowed) return;  // logged once when the answer came
    UNMutableNotificationContent* content = [UNMutableNotificationContent new];
    content.title = ns(notification.title);
    content.body = ns(notification.body);
    content.userInfo = @{
      @"target" : notification.target == NotificationTarget::logWindow ? @"logWindow" : @"popover"
    };
    UNNotificationRequest* request =
        [UNNotificationRequest requestWithIdentifier:NSUUID.UUID.UUIDString
                                             content:content
                                             trigger:nil];
    [UNUserNotificationCenter.currentNotificationCenter addNotificationRequest:request
                                                         withCompletionHandler:nil];
  }

  void setActivationHandler(std::function<void(NotificationTarget)> handler) override {
    m_state->handler = std::move(handler);
  }

 private:
  struct State {
    bool allowed = false;
    std::function<void(NotificationTarget)> handler;
  };

  SystemLog& m_log;
  std::shared_ptr<State> m_state;
  ZEVNotificationDelegate* m_delegate;
};

std::unique_ptr<Notifier> makePlatformNotifier(SystemLog& log) {
  return std::make_unique<MacNotifier>(log);
}

}  // namespace zev
