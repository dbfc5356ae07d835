#include "platform/linux/workspace_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QTest>
#include <QUrl>

#include "app/fakes/qt_test_main.h"

namespace zev {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kWaitMS = 10000;

// A private session bus for the test, so the result does not depend on the
// desktop (or lack of one) the tests run in.
class PrivateBus {
 public:
  PrivateBus() {
    m_daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
    if (m_daemon.waitForReadyRead(kWaitMS)) address = QString::fromUtf8(m_daemon.readLine()).trimmed();
  }
  ~PrivateBus() {
    for (const QString& name : m_connections) QDBusConnection::disconnectFromBus(name);
    m_daemon.kill();
    m_daemon.waitForFinished();
  }
  QDBusConnection connect(const QString& name) {
    m_connections.append(name);
    return QDBusConnection::connectToBus(address, name);
  }

  QString address;

 private:
  QProcess m_daemon;
  QStringList m_connections;
};

// Stands in for the desktop's file manager and remembers what it was shown.
class FakeFileManager : public QDBusVirtualObject {
 public:
  QList<QStringList> shown;

  QString introspect(const QString&) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() != QLatin1String("ShowItems")) return false;
    shown.append(message.arguments().value(0).toStringList());
    connection.send(message.createReply());
    return true;
  }
};

// Remembers the URLs the workspace opens itself.
struct RecordingOpener {
  std::shared_ptr<QList<QUrl>> opened = std::make_shared<QList<QUrl>>();
  LinuxWorkspace::UrlOpener function() {
    return [opened = opened](const QUrl& url) { return opened->append(url), true; };
  }
};

const QUrl kFolder(QStringLiteral("file:///home/tester/.zevd"));

TEST(LinuxWorkspace, OpensTheContainingFolderWithoutASessionBus) {
  RecordingOpener opener;
  LinuxWorkspace(QDBusConnection(QStringLiteral("not-connected")), opener.function())
      .revealFile("/home/tester/.zevd/zevd.log");
  EXPECT_THAT(*opener.opened, ElementsAre(kFolder));
}

TEST(LinuxWorkspace, AsksTheFileManagerToShowTheFile_OrFallsBackWhenNoneAnswers) {
  PrivateBus bus;
  if (bus.address.isEmpty()) GTEST_SKIP() << "dbus-daemon could not be started";

  QDBusConnection fileManagerBus = bus.connect(QStringLiteral("file-manager"));
  FakeFileManager fileManager;
  ASSERT_TRUE(fileManagerBus.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"),
                                                   &fileManager));
  ASSERT_TRUE(fileManagerBus.registerService(QStringLiteral("org.freedesktop.FileManager1")));

  RecordingOpener opener;
  LinuxWorkspace workspace(bus.connect(QStringLiteral("launcher")), opener.function());
  workspace.revealFile("/home/tester/.zevd/zevd log.txt");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }, kWaitMS));
  EXPECT_THAT(fileManager.shown,
              ElementsAre(QStringList{QStringLiteral("file:///home/tester/.zevd/zevd%20log.txt")}));
  QTest::qWait(50);  // an error answer, had there been one, would be in by now
  EXPECT_THAT(*opener.opened, IsEmpty());

  // The file manager leaves the bus: the folder is opened instead.
  ASSERT_TRUE(fileManagerBus.unregisterService(QStringLiteral("org.freedesktop.FileManager1")));
  workspace.revealFile("/home/tester/.zevd/zevd.log");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !opener.opened->isEmpty(); }, kWaitMS));
  EXPECT_THAT(*opener.opened, ElementsAre(kFolder));
  EXPECT_EQ(fileManager.shown.size(), 1);
}

}  // namespace
}  // namespace zev
