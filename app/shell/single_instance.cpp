#include "app/shell/single_instance.h"

#include <unistd.h>

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalSocket>
#include <QThread>
#include <QTimer>

namespace zev {

namespace {

// A request is one short line; anything longer is not from a launcher.
constexpr qint64 kMaxRequest = 64;
constexpr std::chrono::milliseconds kRequestTimeout{2000};

}  // namespace

QString SingleInstance::defaultServerName() {
  // The home is part of the name so that a launcher run with another HOME
  // (the demo, a test) is a session of its own.
  const QByteArray home = qgetenv("HOME");
  const QString hash = QString::fromLatin1(
      QCryptographicHash::hash(home, QCryptographicHash::Sha256).toHex().left(12));
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (!runtime.isEmpty() && QFileInfo(runtime).isDir()) {
    return QDir(runtime).filePath(QStringLiteral("com.zev.launcher-%1.sock").arg(hash));
  }
  return QDir(QDir::tempPath())
      .filePath(QStringLiteral("com.zev.launcher-%1-%2.sock").arg(::getuid()).arg(hash));
}

SingleInstance::SingleInstance(QString serverName, QObject* parent)
    : QObject(parent), m_name(std::move(serverName)), m_lock(m_name + QStringLiteral(".lock")) {
  connect(&m_server, &QLocalServer::newConnection, this, [this] {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) readRequest(socket);
  });
}

bool SingleInstance::handOver(const QString& request, std::chrono::milliseconds timeout) {
  QLocalSocket socket;
  socket.connectToServer(m_name);
  if (!socket.waitForConnected(static_cast<int>(timeout.count()))) return false;
  socket.write(request.toUtf8().left(kMaxRequest - 1) + '\n');
  if (!socket.waitForBytesWritten(static_cast<int>(timeout.count()))) return false;
  // The running launcher closes the connection once it has read the line.
  socket.waitForDisconnected(static_cast<int>(timeout.count()));
  return true;
}

bool SingleInstance::waitUntilFree(std::chrono::milliseconds timeout) {
  QElapsedTimer waited;
  waited.start();
  for (;;) {
    QLocalSocket probe;
    probe.connectToServer(m_name);
    if (!probe.waitForConnected(200)) return true;
    probe.abort();
    if (waited.elapsed() >= timeout.count()) return false;
    QThread::msleep(100);
  }
}

bool SingleInstance::listen(std::chrono::milliseconds wait) {
  // The lock says who owns the name, not the socket: with access limited to
  // the owner, QLocalServer puts its socket in place even over a live one, so
  // two launchers starting together would both listen and one would never
  // hear a request. A crashed launcher's lock names a process that is gone,
  // and QLockFile takes it over.
  m_lock.setStaleLockTime(std::chrono::milliseconds::zero());
  m_lockRefused = !m_lock.tryLock(wait);
  if (m_lockRefused) return false;
  QLocalServer::removeServer(m_name);  // a crashed launcher's socket
  // Only the owner may connect.
  m_server.setSocketOptions(QLocalServer::UserAccessOption);
  return m_server.listen(m_name);
}

QString SingleInstance::errorString() const {
  if (m_lockRefused) {
    return QStringLiteral("another launcher holds %1").arg(m_lock.fileName());
  }
  return m_server.errorString();
}

void SingleInstance::readRequest(QLocalSocket* socket) {
  socket->setParent(this);
  socket->setReadBufferSize(kMaxRequest);
  // A client that never sends its line is dropped after a while.
  auto* timer = new QTimer(socket);
  timer->setSingleShot(true);
  connect(timer, &QTimer::timeout, socket, &QLocalSocket::abort);
  connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
  auto handle = [this, socket] {
    if (!socket->canReadLine()) {
      if (socket->bytesAvailable() >= kMaxRequest) socket->abort();
      return;
    }
    const QString request = QString::fromUtf8(socket->readLine(kMaxRequest)).trimmed();
    socket->disconnectFromServer();
    if (request == QLatin1String("activate") || request == QLatin1String("show-logs")) {
      emit requestReceived(request);
    }
  };
  connect(socket, &QLocalSocket::readyRead, this, handle);
  timer->start(kRequestTimeout);
  handle();
}

}  // namespace zev
