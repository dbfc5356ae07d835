// FreedesktopNotifier on a private D-Bus bus of its own, against a stand-in
// notification server in the same process.
#include "platform/linux/notifier_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <vector>

#include "app/fakes/fake_system_log.h"
#include "app/fakes/qt_test_main.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using testing::FakeSystemLog;

const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");

// A dbus-daemon with no service files, so no real notification server is
// ever activated, and no policy limits.
class PrivateBus {
 public:
  PrivateBus() {
    const QString config = m_dir.filePath("bus.conf");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) return;
    file.write(
        QStringLiteral(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
            "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
            "<busconfig><type>session</type><listen>unix:dir=%1</listen>"
            "<auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>")
            .arg(m_dir.path())
            .toUtf8());
    file.close();
    m_daemon.start("dbus-daemon", {"--config-file=" + config, "--nofork", "--print-address"});
    if (m_daemon.waitForReadyRead(5000)) address = QString::fromUtf8(m_daemon.readLine()).trimmed();
  }
  ~PrivateBus() {
    m_daemon.kill();
    m_daemon.waitForFinished(5000);
  }

  QDBusConnection connect(const QString& name) {
    return QDBusConnection::connectToBus(address, name);
  }

  QString address;

 private:
  QTemporaryDir m_dir;
  QProcess m_daemon;
};

// The server's side of org.freedesktop.Notifications, enough to record calls
// and to send clicks.
class StandInServer : public QDBusVirtualObject {
 public:
  struct Call {
    uint replacesId;
    QString summary;
    QString body;
    int urgency;
  };

  QStringList capabilities;
  std::vector<Call> calls;

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() == "GetCapabilities") {
      return connection.send(message.createReply(QVariant(capabilities)));
    }
    if (message.member() != "Notify") return false;
    const QList<QVariant> args = message.arguments();
    const uint replaces = args.value(1).toUInt();
    const QVariantMap hints = qdbus_cast<QVariantMap>(args.value(6));
    calls.push_back({replaces, args.value(3).toString(), args.value(4).toString(),
                     hints.value("urgency").toInt()});
    return connection.send(message.createReply(QVariant(replaces ? replaces : ++m_lastId)));
  }
  QString introspect(const QString&) const override { return {}; }

 private:
  uint m_lastId = 0;
};

class FreedesktopNotifierTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (bus.address.isEmpty()) GTEST_SKIP() << "dbus-daemon did not start";
  }
  void TearDown() override {
    // libdbus aborts the process when a private connection is dropped unclosed.
    serverBus = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus("server");
    QDBusConnection::disconnectFromBus("client");
  }
  // Claims the service name on a connection of its own.
  void startServer(QStringList capabilities) {
    server.capabilities = std::move(capabilities);
    serverBus = bus.connect("server");
    ASSERT_TRUE(serverBus.registerVirtualObject(kPath, &server));
    ASSERT_TRUE(serverBus.registerService(kInterface));
  }
  std::unique_ptr<FreedesktopNotifier> makeNotifier() {
    auto notifier = std::make_unique<FreedesktopNotifier>(bus.connect("client"), log);
    QSignalSpy ready(notifier.get(), &FreedesktopNotifier::capabilitiesFinished);
    EXPECT_TRUE(ready.wait(5000));
    return notifier;
  }
  bool show(FreedesktopNotifier& notifier, const Notification& notification) {
    QSignalSpy finished(&notifier, &FreedesktopNotifier::notifyFinished);
    notifier.show(notification);
    return finished.wait(5000) && finished.front().front().toBool();
  }
  void click(uint id) {
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, "ActionInvoked");
    signal << id << QStringLiteral("default");
    serverBus.send(signal);
  }

  PrivateBus bus;
  StandInServer server;
  QDBusConnection serverBus{QString()};
  FakeSystemLog log;
};

const Notification kStopped{NotificationKind::recordingStopped, "ZEV recording stopped",
                            "cam <b>1</b> & \"2\"", NotificationTarget::logWindow};
const Notification kHealthy{NotificationKind::recordingHealthy, "ZEV recording is healthy again",
                            "2/2 cameras live", NotificationTarget::popover};
const Notification kCertified{NotificationKind::updateCertified, "ZEV 1.5.0 certified", "",
                              NotificationTarget::popover};

TEST_F(FreedesktopNotifierTest, EscapesTheBodyOnlyForServersThatReadMarkup) {
  const struct {
    QStringList capabilities;
    const char* body;
  } cases[] = {
      {{"body", "body-markup", "actions"}, "cam &lt;b&gt;1&lt;/b&gt; &amp; &quot;2&quot;"},
      {{"body", "actions"}, "cam <b>1</b> & \"2\""},
  };
  startServer({});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.capabilities.join(",").toStdString());
    server.capabilities = c.capabilities;
    server.calls.clear();
    auto notifier = makeNotifier();
    ASSERT_TRUE(show(*notifier, kStopped));
    ASSERT_EQ(server.calls.size(), 1u);
    EXPECT_EQ(server.calls[0].body.toStdString(), c.body);
    EXPECT_EQ(server.calls[0].summary.toStdString(), "ZEV recording stopped");
    EXPECT_EQ(server.calls[0].urgency, 2);
  }
}

TEST_F(FreedesktopNotifierTest, HealthReplacesHealth_ClicksReachTheirTarget) {
  startServer({"body", "actions"});
  auto notifier = makeNotifier();
  std::vector<NotificationTarget> clicked;
  notifier->setActivationHandler([&](NotificationTarget target) { clicked.push_back(target); });
  ASSERT_TRUE(show(*notifier, kCertified));  // id 1
  ASSERT_TRUE(show(*notifier, kStopped));    // id 2
  ASSERT_TRUE(show(*notifier, kHealthy));    // replaces 2
  ASSERT_EQ(server.calls.size(), 3u);
  EXPECT_EQ(server.calls[0].replacesId, 0u);
  EXPECT_EQ(server.calls[1].replacesId, 0u);
  EXPECT_EQ(server.calls[2].replacesId, 2u);

  click(2);   // now the healthy one
  click(1);   // the update
  click(77);  // not ours
  QSignalSpy settle(notifier.get(), &FreedesktopNotifier::notifyFinished);
  settle.wait(300);
  EXPECT_THAT(clicked, ElementsAre(NotificationTarget::popover, NotificationTarget::popover));
}

TEST_F(FreedesktopNotifierTest, AMissingServiceIsLoggedOnceUntilItWorksAgain) {
  auto notifier = makeNotifier();  // no server: capabilities fail too
  EXPECT_FALSE(show(*notifier, kStopped));
  EXPECT_FALSE(show(*notifier, kHealthy));
  EXPECT_FALSE(show(*notifier, kCertified));
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_THAT(log.messages()[0],
              ::testing::StartsWith("desktop notifications unavailable ("
                                    "org.freedesktop.DBus.Error.ServiceUnknown"));
  startServer({});
  EXPECT_TRUE(show(*notifier, kStopped));
  EXPECT_EQ(log.messages().back(), "desktop notifications work again");

  FakeSystemLog noBusLog;
  FreedesktopNotifier noBus(QDBusConnection(QString()), noBusLog);
  noBus.show(kStopped);
  noBus.show(kStopped);
  EXPECT_THAT(noBusLog.messages(),
              ElementsAre("desktop notifications unavailable (no session bus); state changes are "
                          "only logged"));
}

}  // namespace
}  // namespace zev
