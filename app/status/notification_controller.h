// Decides and sends the launcher's desktop notifications: after every health
// poll (through HealthNotificationRules, on an injected clock) and when an
// update attempt ends. Owns the user's on/off switch; while it is off the
// rules still follow the polls, so turning it back on does not replay old
// changes. A click on a notification opens the popover, or the log window
// for a failure, through the callbacks it is given.
//
// GUI thread. The notifier and the log must outlive it.
#ifndef ZEV_APP_STATUS_NOTIFICATION_CONTROLLER_H_
#define ZEV_APP_STATUS_NOTIFICATION_CONTROLLER_H_

#include <functional>
#include <optional>

#include "app/shell/clock.h"
#include "app/status/notification_settings.h"
#include "core/health/notification_rules.h"

namespace zev {

class Notifier;
class SystemLog;
class UpdateTransaction;

class NotificationController {
 public:
  struct Targets {
    std::function<void()> openPopover;
    std::function<void()> openLogWindow;
  };

  NotificationController(Notifier& notifier, SystemLog& log, NotificationSettings settings,
                         Targets targets, Clock clock = systemClock());
  ~NotificationController();
  NotificationController(const NotificationController&) = delete;
  NotificationController& operator=(const NotificationController&) = delete;

  // Feed every applied poll, in the order they are applied.
  void observePoll(const PollObservation& poll);

  // Feed the update attempt when it reaches its end (certified, failed or
  // rolled back); `latest` is the newest health, for the camera count.
  void updateFinished(const UpdateTransaction& transaction,
                      const std::optional<HealthSummary>& latest);

  bool enabled() const { return m_enabled; }
  // Turns notifications on or off and keeps the choice for the next run.
  void setEnabled(bool enabled);

 private:
  void send(const Notification& notification);

  Notifier& m_notifier;
  SystemLog& m_log;
  NotificationSettings m_settings;
  Clock m_clock;
  HealthNotificationRules m_rules;
  bool m_enabled;
};

}  // namespace zev

#endif  // ZEV_APP_STATUS_NOTIFICATION_CONTROLLER_H_
