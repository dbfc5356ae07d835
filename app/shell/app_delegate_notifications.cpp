// AppDelegate::installNotifications and notifyUpdateFinished: desktop
// notifications over the status item's polls and the end of update attempts.
#include <QPointer>

#include "app/ports/notifier.h"
#include "app/shell/app_delegate.h"
#include "app/status/notification_controller.h"
#include "app/status/popover_view.h"
#include "app/status/status_item_controller.h"

namespace zev {

void AppDelegate::installNotifications(std::function<void()> openLogWindow) {
  if (!m_platform.notifier || !m_statusController) return;
  const QPointer<AppDelegate> self(this);
  NotificationController::Targets targets;
  targets.openPopover = [self] {
    if (!self || !self->statusController()) return;
    StatusItemController& status = *self->statusController();
    if (!status.isPopoverShown()) status.togglePopover();
  };
  targets.openLogWindow = std::move(openLogWindow);
  // The old controller lets go of the notifier's click handler when it goes,
  // so it must go before the new one takes it.
  m_notifications.reset();
  m_notifications =
      std::make_unique<NotificationController>(*m_platform.notifier, *m_platform.statusItemLog,
                                               NotificationSettings(), std::move(targets), m_clock);

  StatusItemController* status = m_statusController.get();
  connect(status, &StatusItemController::pollApplied, this, [this, status] {
    if (m_notifications && status == m_statusController.get()) {
      m_notifications->observePoll(status->lastPollObservation());
    }
  });
  if (m_finishedUpdateToAnnounce) {
    notifyUpdateFinished(*m_finishedUpdateToAnnounce);
    m_finishedUpdateToAnnounce.reset();
  }
  status->whenPopoverBuilt([self](PopoverView& popover) {
    if (!self || !self->m_notifications) return;
    popover.setNotificationsToggle(self->m_notifications->enabled(), [self](bool on) {
      if (self && self->m_notifications) self->m_notifications->setEnabled(on);
    });
  });
}

void AppDelegate::notifyUpdateFinished(const UpdateTransaction& transaction) {
  if (!m_notifications) {
    m_finishedUpdateToAnnounce = transaction;
    return;
  }
  std::optional<HealthSummary> latest;
  if (m_statusController) latest = m_statusController->state().summary();
  m_notifications->updateFinished(transaction, latest);
}

}  // namespace zev
