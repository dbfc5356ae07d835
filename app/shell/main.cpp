// ZEVLauncher: a tray-only application. It owns no main window (and so has no
// taskbar entry); the delegate runs the launch sequence once the event loop
// is up, and quitting leaves the daemon running under its service manager.
#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QUrl>
#include <chrono>
#include <iostream>

#include "app/shell/app_delegate.h"
#include "app/shell/single_instance.h"
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

  // One launcher per user session: a later start hands its request to the
  // running one and exits. --show-logs opens the log window there (or here,
  // when this is the first). --replace is an update's relaunch: the old
  // launcher is on its way out, so this one waits for it instead.
  const QStringList arguments = QApplication::arguments();
  const bool showLogs = arguments.contains(QStringLiteral("--show-logs"));
  const QString request = showLogs ? QStringLiteral("show-logs") : QStringLiteral("activate");
  zev::SingleInstance instance;
  constexpr std::chrono::milliseconds kHandOverTimeout{1500};
  if (arguments.contains(QStringLiteral("--replace"))) {
    instance.waitUntilFree(std::chrono::seconds(10));
  } else if (instance.handOver(request, kHandOverTimeout)) {
    return 0;
  }
  const bool listening = instance.listen();
  if (!listening && instance.handOver(request, kHandOverTimeout)) return 0;

  zev::AppDelegate delegate(zev::makePlatform(), std::cerr);
  if (!listening) {
    delegate.platform().launcherLog->error(
        "cannot listen on " + instance.serverName().toStdString() + ": " +
        instance.errorString().toStdString() + "; a later start will not find this launcher");
  }
  QObject::connect(&instance, &zev::SingleInstance::requestReceived, &delegate,
                   [&delegate](const QString& received) {
                     if (received == QLatin1String("show-logs")) {
                       delegate.showLogWindow();
                     } else {
                       delegate.platform().launcherLog->info(
                           "another start of the launcher handed over to this one");
                     }
                   });
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

  QTimer::singleShot(0, &delegate, [&delegate, showLogs] {
    delegate.applicationDidFinishLaunching();
    if (showLogs) delegate.showLogWindow();
  });
  QApplication::exec();
  return 0;
}
