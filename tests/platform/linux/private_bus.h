// A dbus-daemon of the test's own, so results do not depend on the desktop
// (or lack of one) the tests run in. It has no service files, so no real
// notification server or file manager is ever activated, and no policy
// limits. Connections made with connect() are closed with it (libdbus aborts
// the process when a private connection is dropped unclosed).
#ifndef ZEV_TESTS_PLATFORM_LINUX_PRIVATE_BUS_H_
#define ZEV_TESTS_PLATFORM_LINUX_PRIVATE_BUS_H_

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <fstream>

namespace zev::testing {

class PrivateBus {
 public:
  PrivateBus() {
    std::ofstream(m_dir.filePath("bus.conf").toStdString())
        << "<busconfig><type>session</type><listen>unix:dir=" << m_dir.path().toStdString()
        << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination="
           "\"*\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>";
    m_daemon.start("dbus-daemon", {"--config-file=" + m_dir.filePath("bus.conf"), "--nofork",
                                   "--print-address"});
    if (m_daemon.waitForReadyRead(5000)) address = QString::fromUtf8(m_daemon.readLine()).trimmed();
  }
  ~PrivateBus() {
    for (const QString& name : m_connections) QDBusConnection::disconnectFromBus(name);
    m_daemon.kill();
    m_daemon.waitForFinished(5000);
  }
  QDBusConnection connect(const QString& name) {
    m_connections.append(name);
    return QDBusConnection::connectToBus(address, name);
  }

  QString address;  // empty when the daemon did not start

 private:
  QTemporaryDir m_dir;
  QProcess m_daemon;
  QStringList m_connections;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_PLATFORM_LINUX_PRIVATE_BUS_H_
