// Workspace on a Linux desktop: URLs open through QDesktopServices (xdg-open
// underneath); a file is revealed by asking the desktop's file manager over
// D-Bus (org.freedesktop.FileManager1.ShowItems) and, when no file manager
// answers, by opening the folder that holds it. Main thread; the D-Bus call
// is asynchronous, so revealing never blocks the event loop.
#ifndef ZEV_PLATFORM_LINUX_WORKSPACE_LINUX_H_
#define ZEV_PLATFORM_LINUX_WORKSPACE_LINUX_H_

#include <QDBusConnection>
#include <QUrl>
#include <functional>

#include "app/ports/workspace.h"

namespace zev {

class LinuxWorkspace : public Workspace {
 public:
  using UrlOpener = std::function<bool(const QUrl&)>;

  // `bus` is where the file manager is asked; `openUrl` opens URLs and folders
  // (QDesktopServices::openUrl unless a test says otherwise).
  explicit LinuxWorkspace(QDBusConnection bus = QDBusConnection::sessionBus(),
                          UrlOpener openUrl = {});

  void openURL(const std::string& url) override;
  void revealFile(const std::filesystem::path& file) override;

 private:
  QDBusConnection m_bus;
  UrlOpener m_openUrl;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_WORKSPACE_LINUX_H_
