// Desktop notifications. macOS: UNUserNotificationCenter. Linux: the
// freedesktop notification service (org.freedesktop.Notifications) on the
// session bus. Main thread; show() never waits for the system.
#ifndef ZEV_APP_PORTS_NOTIFIER_H_
#define ZEV_APP_PORTS_NOTIFIER_H_

#include <functional>
#include <memory>

#include "core/health/notification_rules.h"

namespace zev {

class SystemLog;

class Notifier {
 public:
  virtual ~Notifier() = default;
  // Hands `notification` to the system and returns at once. Title and body
  // are plain text; the adapter escapes whatever the system would read as
  // markup. A system without a notification service costs one log line, not
  // one per call.
  virtual void show(const Notification& notification) = 0;
  // Called on the main thread with the target of a notification the user
  // clicked (where the system reports clicks).
  virtual void setActivationHandler(std::function<void(NotificationTarget)> handler) = 0;
};

// The platform's notifier (platform/<os>/notifier_<os>.*). Logs to `log`,
// which must outlive it. Needs a running QApplication.
std::unique_ptr<Notifier> makePlatformNotifier(SystemLog& log);

}  // namespace zev

#endif  // ZEV_APP_PORTS_NOTIFIER_H_
