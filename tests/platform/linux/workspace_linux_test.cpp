#include "platform/linux/workspace_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QTest>
#include <QUrl>

#include "app/fakes/qt_test_main.h"
#include "platform/linux/private_bus.h"

namespace zev {
namespace {

using ::testing::ElementsAre;

constexpr int kWaitMS = 10000;

// Stands in for the desktop's file manager and remembers what it was shown.
struct FakeFileManager : QDBusVirtualObject {
  QList<QStringList> shown;

  QString introspect(const QString&) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() != QLatin1String("ShowItems")) return false;
    shown.append(message.arguments().value(0).toStringList());
    connection.send(message.createReply());
    return true;
  }
};

// An opener that remembers the URLs the workspace opens itself.
LinuxWorkspace::UrlOpener recordingInto(QList<QUrl>& opened) {
  return [&opened](const QUrl& url) { return opened.append(url), true; };
}

const QUrl kFolder(QStringLiteral("file:///home/tester/.zevd"));

TEST(LinuxWorkspace, OpensTheContainingFolderWithoutASessionBus) {
  QList<QUrl> opened;
  LinuxWorkspace(QDBusConnection(QStringLiteral("not-connected")), recordingInto(opened))
      .revealFile("/home/tester/.zevd/zevd.log");
  EXPECT_THAT(opened, ElementsAre(kFolder));
}

TEST(LinuxWorkspace, AsksTheFileManagerToShowTheFile_OrFallsBackWhenNoneAnswers) {
  testing::PrivateBus bus;
  if (bus.address.isEmpty()) GTEST_SKIP() << "dbus-daemon could not be started";

  QDBusConnection fileManagerBus = bus.connect(QStringLiteral("file-manager"));
  FakeFileManager fileManager;
  ASSERT_TRUE(fileManagerBus.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"),
                                                   &fileManager));
  ASSERT_TRUE(fileManagerBus.registerService(QStringLiteral("org.freedesktop.FileManager1")));

  QList<QUrl> opened;
  LinuxWorkspace workspace(bus.connect(QStringLiteral("launcher")), recordingInto(opened));
  workspace.revealFile("/home/tester/.zevd/zevd log.txt");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }, kWaitMS));
  EXPECT_THAT(fileManager.shown,
              ElementsAre(QStringList{QStringLiteral("file:///home/tester/.zevd/zevd%20log.txt")}));
  QTest::qWait(50);  // an error answer, had there been one, would be in by now
  EXPECT_THAT(opened, ::testing::IsEmpty());

  // The file manager leaves the bus: the folder is opened instead.
  ASSERT_TRUE(fileManagerBus.unregisterService(QStringLiteral("org.freedesktop.FileManager1")));
  workspace.revealFile("/home/tester/.zevd/zevd.log");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !opened.isEmpty(); }, kWaitMS));
  EXPECT_THAT(opened, ElementsAre(kFolder));
  EXPECT_EQ(fileManager.shown.size(), 1);
}

}  // namespace
}  // namespace zev
