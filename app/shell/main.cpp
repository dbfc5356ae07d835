// ZEVLauncher: a tray-only application. It owns no main window (and so has no
// taskbar entry); the delegate runs the launch sequence once the event loop
// is up, and quitting leaves the daemon running under its service manager.
#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QUrl>
#include <iostream>

#include "app/shell/app_delegate.h"
#include "app/ports/platform.h"
#include "app/updates/update_coordinator.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("ZEVLauncher"));
  QApplication::setApplicationDisplayName(QStringLiteral("ZEV Launcher"));
  QApplication::setOrganizationDomain(QStringLiteral("zev.com"));
  QGuiApplication::setDesktopFileName(QStringLiteral("com.zev.launcher"));
  // Closing the popover or the log window must not end the launcher.
  QApplication::setQuitOnLastWindowClosed(false);

  zev::AppDelegate delegate(zev::makePlatform(), std::cerr);
  // Development: another daemon than the one on 127.0.0.1:8085 (the demo and
  // the end-to-end check run zevd-sim on a port of their own).
  if (const QString url = qEnvironmentVariable("ZEV_DAEMON_URL"); !url.isEmpty()) {
    delegate.setLocalBaseForDevelopment(QUrl(url));
  }
  // Development and tests: a sentinel of their own instead of the shared
  // /tmp/com.zev.zevd.update-trigger, which other sessions may touch.
  if (const QString sentinel = qEnvironmentVariable("ZEV_UPDATE_SENTINEL"); !sentinel.isEmpty()) {
    delegate.updates().setSentinelPathForTesting(sentinel.toStdString());
  }
  delegate.platform().activation->becomeAccessory();

  if (!QSystemTrayIcon::isSystemTrayAvailable()) {
    delegate.platform().launcherLog->info(
        "no system tray available; the status item may not be shown");
  }

  QTimer::singleShot(0, &delegate, [&delegate] { delegate.applicationDidFinishLaunching(); });
  QApplication::exec();
  return 0;
}
