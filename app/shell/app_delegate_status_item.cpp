// AppDelegate::installStatusItem: the status item and the five actions of its
// popover. Each action holds the delegate weakly and does nothing once the
// delegate is gone.
#include <QPointer>

#include "app/shell/app_delegate.h"
#include "app/status/status_item_controller.h"
#include "app/updates/update_coordinator.h"

namespace zev {

void AppDelegate::installStatusItem() {
  const QPointer<AppDelegate> self(this);
  StatusItemActions actions;
  actions.onOpenWebUI = [self] {
    if (self) self->platform().workspace->openURL(self->localBase().toString().toStdString());
  };
  actions.onRestart = [self] {
    // Never the blocking kickstart: the service manager may take its time,
    // and the tray must stay alive meanwhile.
    if (self) self->restartAgent();
  };
  actions.onViewLogs = [self] {
    if (self) self->showLogWindow();
  };
  actions.onRevealLogs = [self] {
    if (!self) return;
    Platform& platform = self->platform();
    platform.workspace->revealFile(platform.bundleInfo->homeDirectory() / ".zevd" / "zevd.log");
  };
  actions.onCheckUpdates = [self] {
    if (self) self->updates().checkForUpdates();
  };

  std::function<void()> viewLogs = actions.onViewLogs;  // a failure's notification opens it too

  std::unique_ptr<StatusItem> item =
      m_platform.makeStatusItem ? m_platform.makeStatusItem() : nullptr;
  auto controller = std::make_unique<StatusItemController>(
      std::move(item), m_localBase, std::move(actions), *m_platform.statusItemLog,
      m_platform.activation.get(), m_clock);
  controller->install();
  m_statusController = std::move(controller);
  installNotifications(std::move(viewLogs));
}

}  // namespace zev
