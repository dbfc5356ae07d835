// AppDelegate owns every long-lived object of the launcher and runs the launch
// sequence: make sure the daemon is present, registered and running, then put
// the status item into the menu bar / tray.
//
// Lives on the GUI thread for the whole run. Operating-system calls go through
// the Platform it is given, so tests build it with fakes. Nothing here throws
// to the event loop: every step logs its own failure and the sequence goes on.
#ifndef ZEV_APP_APP_DELEGATE_H_
#define ZEV_APP_APP_DELEGATE_H_

#include <QObject>
#include <QUrl>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "app/clock.h"
#include "app/ports/platform.h"

namespace zev {

class StatusItemController;

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  // `standardError` receives the "ZEV launcher: " lines of serious start-up
  // failures (std::cerr in the application).
  AppDelegate(Platform platform, std::ostream& standardError, Clock clock = systemClock(),
              QObject* parent = nullptr);
  ~AppDelegate() override;

  // The launch sequence, in order; always runs to the end.
  void applicationDidFinishLaunching();

  // Daemon supervision.
  void verifyDaemonPresent();
  void registerLoginItem();
  void registerAgent();
  // Restarts the daemon's agent and blocks until the command has exited.
  void kickstartAgent();

  // Runs `path` with `arguments`, standard streams inherited, and waits.
  // Throws ProcessLaunchError when it cannot start, ReliabilityError when it
  // exits non-zero (see app/process_runner.h).
  static void run(const std::string& path, const std::vector<std::string>& arguments);

  // ZEVReliabilityDirectory from Info.plist when it is a non-empty string
  // (leading ~ expanded), else ~/.zevd/reliability. Never creates it.
  std::filesystem::path reliabilityDirectory() const;

  // Builds the status item controller with the five actions and starts polling.
  void installStatusItem();

  const QUrl& localBase() const { return m_localBase; }
  // For development and tests only: points the launcher at another daemon
  // (main.cpp reads it from ZEV_DAEMON_URL). Call before the launch sequence.
  void setLocalBaseForDevelopment(QUrl base) { m_localBase = std::move(base); }
  StatusItemController* statusController() const { return m_statusController.get(); }
  Platform& platform() { return m_platform; }

 private:
  Platform m_platform;
  std::ostream& m_standardError;
  Clock m_clock;
  QUrl m_localBase;
  std::unique_ptr<StatusItemController> m_statusController;
};

}  // namespace zev

#endif  // ZEV_APP_APP_DELEGATE_H_
