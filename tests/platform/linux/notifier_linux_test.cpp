// FreedesktopNotifier on a private D-Bus bus of its own, against a stand-in
// notification server in the same process.
#include "platform/linux/notifier_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QSignalSpy>
#include <vector>

#include "app/fakes/fake_system_log.h"
#include "app/fakes/qt_test_main.h"
#include "platform/linux/private_bus.h"

namespace zev {
namespace {

using ::testing::ElementsAre;

const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");

// The server's side of org.freedesktop.Notifications, enough to record calls
// and to send clicks.
class StandInServer : public QDBusVirtualObject {
 public:
  struct Call {
    uint replacesId;
    QString summary, body;
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
    calls.push_back({replaces, args.value(3).toString(), args.value(4).toString(),
                     qdbus_cast<QVariantMap>(args.value(6)).value("urgency").toInt()});
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

  testing::PrivateBus bus;
  StandInServer server;
  QDBusConnection serverBus{QString()};
  testing::FakeSystemLog log;
};

const Notification kStopped{NotificationKind::recordingStopped, "ZEV recording stopped",
                            "cam <b>1</b> & \"2\"", NotificationTarget::logWindow};
const Notification kHealthy{NotificationKind::recordingHealthy, "ZEV recording is healthy again",
                            "2/2 cameras live", NotificationTarget::popover};
const Notification kCertified{NotificationKind::updateCertified, "ZEV 1.5.0 certified", "",
                              NotificationTarget::popover};
const char* const kEscaped = "cam &lt;b&gt;1&lt;/b&gt; &amp; &quot;2&quot;";

TEST_F(FreedesktopNotifierTest, HealthReplacesHealth_ClicksReachTheirTarget_MarkupIsEscaped) {
  startServer({"body", "actions"});
  auto notifier = makeNotifier();
  std::vector<NotificationTarget> clicked;
  notifier->setActivationHandler([&](NotificationTarget target) { clicked.push_back(target); });
  ASSERT_TRUE(show(*notifier, kCertified));  // id 1
  ASSERT_TRUE(show(*notifier, kStopped));    // id 2
  ASSERT_TRUE(show(*notifier, kHealthy));    // replaces 2
  std::vector<uint> replaced;
  for (const auto& call : server.calls) replaced.push_back(call.replacesId);
  EXPECT_THAT(replaced, ElementsAre(0u, 0u, 2u));
  // This server takes the body as plain text: sent as it is.
  EXPECT_EQ(server.calls[1].body.toStdString(), "cam <b>1</b> & \"2\"");
  EXPECT_EQ(server.calls[1].urgency, 2);  // stays until dismissed
  for (uint id : {2u, 1u, 77u}) {  // the healthy one, the update, one never sent
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, "ActionInvoked");
    serverBus.send(signal << id << QStringLiteral("default"));
  }
  QSignalSpy settle(notifier.get(), &FreedesktopNotifier::notifyFinished);
  settle.wait(300);
  EXPECT_THAT(clicked, ElementsAre(NotificationTarget::popover, NotificationTarget::popover));
  // A server that reads markup in the body gets it escaped.
  server.capabilities << QStringLiteral("body-markup");
  ASSERT_TRUE(show(*makeNotifier(), kStopped));
  EXPECT_EQ(server.calls.back().body.toStdString(), kEscaped);
}

TEST_F(FreedesktopNotifierTest, AMissingServiceIsLoggedOnceUntilItWorksAgain) {
  auto notifier = makeNotifier();  // no server: capabilities fail too
  EXPECT_FALSE(show(*notifier, kStopped));
  EXPECT_FALSE(show(*notifier, kCertified));
  EXPECT_THAT(log.messages(),
              ElementsAre(::testing::StartsWith("desktop notifications unavailable ("
                                                "org.freedesktop.DBus.Error.ServiceUnknown")));
  startServer({});
  EXPECT_TRUE(show(*notifier, kStopped));
  EXPECT_EQ(log.messages().back(), "desktop notifications work again");
  // Whether this server reads markup is not known yet: escaped to be safe.
  EXPECT_EQ(server.calls.back().body.toStdString(), kEscaped);
  testing::FakeSystemLog noBusLog;
  FreedesktopNotifier noBus(QDBusConnection(QString()), noBusLog);
  for (int i = 0; i < 2; ++i) noBus.show(kStopped);
  EXPECT_THAT(noBusLog.messages(), ElementsAre(::testing::HasSubstr("(no session bus)")));
}

}  // namespace
}  // namespace zev
