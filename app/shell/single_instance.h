// One launcher per user session. The first launcher listens on a local
// socket; a later start connects, hands over its request ("activate" or
// "show-logs") and exits, so autostart plus a manual start never give two
// tray icons. A socket left behind by a crash is taken over (nobody answers
// on it), unlike a lock file.
//
// The socket is per user and home: $XDG_RUNTIME_DIR/com.zev.launcher-<hash of
// $HOME>.sock when that directory exists, else
// <temp>/com.zev.launcher-<uid>-<hash of $HOME>.sock, so two homes (tests,
// the demo) never meet. Main thread; every wait is
// bounded by the time-out given.
#ifndef ZEV_APP_SHELL_SINGLE_INSTANCE_H_
#define ZEV_APP_SHELL_SINGLE_INSTANCE_H_

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>
#include <chrono>
#include <functional>

namespace zev {

class SingleInstance : public QObject {
  Q_OBJECT

 public:
  static QString defaultServerName();

  explicit SingleInstance(QString serverName = defaultServerName(), QObject* parent = nullptr);

  // Sends `request` to a running launcher. True when one took it (this
  // process should then exit), false when none answers within `timeout`.
  bool handOver(const QString& request, std::chrono::milliseconds timeout);

  // For a launcher started by its predecessor (an update's relaunch): waits,
  // at most `timeout`, until no launcher answers any more. True when none
  // does.
  bool waitUntilFree(std::chrono::milliseconds timeout);

  // Claims the name and starts listening; what a crashed launcher left is
  // removed first. False when the name cannot be claimed, also when another
  // launcher holds it and does not let go within `wait` (call handOver again
  // then).
  bool listen(std::chrono::milliseconds wait = std::chrono::seconds(3));
  QString errorString() const;
  const QString& serverName() const { return m_name; }

 signals:
  // A later start asked for something: "activate" or "show-logs".
  void requestReceived(const QString& request);

 private:
  void readRequest(class QLocalSocket* socket);

  QString m_name;
  // Held while listening. Declared before the server so that the server has
  // closed (and removed its socket) before the lock is let go.
  QLockFile m_lock;
  bool m_lockRefused = false;
  QLocalServer m_server;
};

}  // namespace zev

#endif  // ZEV_APP_SHELL_SINGLE_INSTANCE_H_
