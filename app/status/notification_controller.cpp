#include "app/status/notification_controller.h"

#include <utility>

#include "app/ports/notifier.h"
#include "app/ports/system_log.h"
#include "core/updates/update_notification.h"

namespace zev {

NotificationController::NotificationController(Notifier& notifier, SystemLog& log,
                                               NotificationSettings settings, Targets targets,
                                               Clock clock)
    : m_notifier(notifier),
      m_log(log),
      m_settings(std::move(settings)),
      m_clock(std::move(clock)),
      m_enabled(m_settings.notificationsEnabled()) {
  m_notifier.setActivationHandler([targets = std::move(targets)](NotificationTarget target) {
    const std::function<void()>& open =
        target == NotificationTarget::logWindow ? targets.openLogWindow : targets.openPopover;
    if (open) open();
  });
}

NotificationController::~NotificationController() {
  // The handler's callbacks may point at objects that go before the notifier.
  m_notifier.setActivationHandler(nullptr);
}

void NotificationController::observePoll(const PollObservation& poll) {
  if (std::optional<Notification> notification = m_rules.observe(poll, m_clock())) {
    send(*notification);
  }
}

void NotificationController::updateFinished(const UpdateTransaction& transaction,
                                            const std::optional<HealthSummary>& latest) {
  if (std::optional<Notification> notification = updateNotification(transaction, latest)) {
    send(*notification);
  }
}

void NotificationController::setEnabled(bool enabled) {
  m_enabled = enabled;
  if (!m_settings.setNotificationsEnabled(enabled)) {
    m_log.error("could not save the notification setting to " + m_settings.path().toStdString());
  }
  m_log.info(enabled ? "notifications turned on" : "notifications turned off");
}

void NotificationController::send(const Notification& notification) {
  // Logged whether shown or not: the journal keeps what the user would have
  // been told.
  m_log.info("notification: " + notification.title +
             (notification.body.empty() ? "" : " — " + notification.body) +
             (m_enabled ? "" : " (notifications are off)"));
  if (m_enabled) m_notifier.show(notification);
}

}  // namespace zev
