#include "platform/linux/app_activation_linux.h"

#include <QApplication>
#include <QWidget>

namespace zev {

void LinuxAppActivation::activate() {
  QWidget* window = QApplication::activeWindow();
  if (!window) {
    // Not active yet: take the last visible top-level window, which is the
    // one most recently shown.
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (auto it = windows.crbegin(); it != windows.crend() && !window; ++it) {
      if ((*it)->isVisible() && (*it)->isWindow()) window = *it;
    }
  }
  if (!window) return;
  window->raise();
  window->activateWindow();
}

}  // namespace zev
