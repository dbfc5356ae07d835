// AppDelegate owns every long-lived object of the launcher and runs the launch
// sequence: make sure the daemon is present, registered and running, resume a
// post-update verification, start the updater and its push watcher, then put
// the status item into the menu bar / tray. The certified-update work itself
// is done by its UpdateCoordinator (app/updates/update_coordinator.h).
//
// Lives on the GUI thread for the whole run. Operating-system calls go through
// the Platform it is given, so tests build it with fakes. Nothing here throws
// to the event loop: every step logs its own failure and the sequence goes on.
#ifndef ZEV_APP_APP_DELEGATE_H_
#define ZEV_APP_APP_DELEGATE_H_

#include <QObject>
#include <QPointer>
#include <chrono>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/shell/clock.h"
#include "core/updates/update_transaction.h"
#include "app/ports/platform.h"

namespace zev {

class LogWindowController;
class NotificationController;
class StatusItemController;
class UpdateCoordinator;
}  // namespace zev
class QProcess;
namespace zev {

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  // `standardError` receives the "ZEV launcher: " lines of serious start-up
  // failures (std::cerr in the application). Construction does no I/O and
  // touches no port; it aborts the process if the daemon's base URL literal
  // does not parse, which would be a programming error.
  AppDelegate(Platform platform, std::ostream& standardError, Clock clock = systemClock(),
              QObject* parent = nullptr);
  ~AppDelegate() override;

  // The launch sequence: verifyDaemonPresent, registerLoginItem,
  // registerAgent, kickstartAgent, resumeUpdateVerificationIfNeeded,
  // startSparkle, startUpdatePushWatcher, installStatusItem. Always runs to the end;
  // a step that throws is logged and the next one runs.
  void applicationDidFinishLaunching();

  // Daemon supervision. Each logs its outcome to the launcher log; a missing
  // daemon and failed registrations also write one "ZEV launcher: " line to
  // `standardError`. None reports failure to the caller.
  // Logs whether Contents/Helpers/zevd is an executable file.
  void verifyDaemonPresent();
  // Registers the launcher to start at login; "already registered" is normal.
  void registerLoginItem();
  // Drops the daemon's agent registration and registers it afresh, so a
  // changed agent definition or daemon is taken up.
  void registerAgent();
  // Restarts the daemon's agent and blocks until the command has exited, or
  // kickstartTimeout has passed (the command is then killed and that logged).
  void kickstartAgent();
  // The same restart for the popover: starts the command and returns at once;
  // its outcome is logged when it exits. A restart asked for while one still
  // runs is logged and dropped.
  void restartAgent();
  static constexpr std::chrono::milliseconds kickstartTimeout{30000};

  // Runs `path` with `arguments`, standard streams inherited, and waits.
  // Throws ProcessLaunchError when it cannot start, ReliabilityError when it
  // exits non-zero (see app/process_runner.h).
  static void run(const std::string& path, const std::vector<std::string>& arguments);

  // ZEVReliabilityDirectory from Info.plist when it is a non-empty string
  // (leading ~ expanded), else ~/.zevd/reliability. Never creates it.
  std::filesystem::path reliabilityDirectory() const;

  // Certified updates (forwarded to the UpdateCoordinator). Verification of
  // an update left installing or verifying by the previous run; the updater,
  // with automatic checks and downloads; the 2-second sentinel poll.
  void resumeUpdateVerificationIfNeeded();
  void startSparkle();
  void startUpdatePushWatcher();

  // Builds the status item controller with the five actions and starts polling.
  void installStatusItem();

  // The status item's View Log: makes the log window on first use, then
  // shows it and brings it to the front.
  void showLogWindow();
  LogWindowController* logWindowController() const { return m_logWindowController.get(); }
  // Desktop notifications over the status item's polls, with the user's
  // switch in the popover; a click opens the popover, or `openLogWindow` for
  // a failure. Called by installStatusItem; needs the platform's notifier.
  void installNotifications(std::function<void()> openLogWindow);

  // Tells the user how an update attempt ended: "ZEV 1.5.0 certified: …" or
  // "ZEV 1.5.0 update failed". For the certified-update flow, once its
  // verification has saved the final state; unfinished attempts are ignored.
  // One that ends before the status item is installed is shown once it is.
  void notifyUpdateFinished(const UpdateTransaction& transaction);

  const QUrl& localBase() const { return m_localBase; }
  // For development and tests only: points the launcher at another daemon
  // (main.cpp reads it from ZEV_DAEMON_URL). Call before the launch sequence.
  void setLocalBaseForDevelopment(QUrl base) { m_localBase = std::move(base); }
  StatusItemController* statusController() const { return m_statusController.get(); }
  NotificationController* notifications() const { return m_notifications.get(); }
  Platform& platform() { return m_platform; }
  // Preparation, verification, push watcher and the updater's delegate. Its
  // onUpdateFinished hook is called when a verification ends.
  UpdateCoordinator& updates() { return *m_updates; }

 private:
  Platform m_platform;
  std::ostream& m_standardError;
  Clock m_clock;
  QUrl m_localBase;
  std::unique_ptr<UpdateCoordinator> m_updates;
  std::unique_ptr<StatusItemController> m_statusController;
  std::unique_ptr<LogWindowController> m_logWindowController;
  std::unique_ptr<NotificationController> m_notifications;
  std::optional<UpdateTransaction> m_finishedUpdateToAnnounce;
  QPointer<QProcess> m_restart;  // the popover's restart, while it runs
};

}  // namespace zev

#endif  // ZEV_APP_APP_DELEGATE_H_
