// AppDelegate::showLogWindow: the log window, made once per run.
#include "app/logs/log_window_controller.h"
#include "app/shell/app_delegate.h"

namespace zev {

void AppDelegate::showLogWindow() {
  if (!m_logWindowController) {
    m_logWindowController = std::make_unique<LogWindowController>(
        m_platform.bundleInfo->homeDirectory(), *m_platform.workspace,
        m_platform.activation.get());
  }
  m_logWindowController->showWindow();
}

}  // namespace zev
