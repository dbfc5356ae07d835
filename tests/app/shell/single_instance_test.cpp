#include "app/shell/single_instance.h"

#include <gtest/gtest.h>

#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include "app/fakes/qt_test_main.h"
#include "app/fakes/scoped_env.h"
#include "app/qt_printers.h"

namespace zev {
namespace {

using namespace std::chrono_literals;

class SingleInstanceTest : public ::testing::Test {
 protected:
  QTemporaryDir runtime;
  QString name() const { return runtime.filePath("launcher.sock"); }
};

TEST_F(SingleInstanceTest, ALaterStartHandsItsRequestToTheRunningOne) {
  SingleInstance first(name());
  ASSERT_TRUE(first.listen());
  QSignalSpy requests(&first, &SingleInstance::requestReceived);
  // The later start runs in its own thread, as it would in its own process.
  for (const QString& request : {QStringLiteral("activate"), QStringLiteral("show-logs")}) {
    SCOPED_TRACE(request.toStdString());
    bool handedOver = false;
    QThread* later = QThread::create([&] {
      SingleInstance second(name());
      handedOver = second.handOver(request, 2000ms);
    });
    later->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return later->isFinished(); }, 5000));
    delete later;
    EXPECT_TRUE(handedOver);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !requests.isEmpty(); }, 2000));
    EXPECT_EQ(requests.takeFirst()[0].toString(), request);
  }
}

TEST_F(SingleInstanceTest, NobodyRunningMeansNoHandOverAndAStaleSocketIsTakenOver) {
  {
    SingleInstance crashed(name());
    ASSERT_TRUE(crashed.listen());
  }
  // A socket file left behind, as a crash leaves it.
  QFile stale(name());
  if (!stale.exists()) {
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
  }
  SingleInstance next(name());
  EXPECT_FALSE(next.handOver("activate", 300ms));
  EXPECT_TRUE(next.listen()) << next.errorString().toStdString();
}

TEST_F(SingleInstanceTest, AReplacementWaitsForItsPredecessorToGo) {
  auto old = std::make_unique<SingleInstance>(name());
  ASSERT_TRUE(old->listen());
  SingleInstance replacement(name());
  EXPECT_FALSE(replacement.waitUntilFree(300ms));  // still there
  QTimer::singleShot(200, [&] { old.reset(); });
  // The old one goes while the new one waits (its event loop runs here).
  bool free = false;
  QThread* waiter = QThread::create([&] { free = SingleInstance(name()).waitUntilFree(5000ms); });
  waiter->start();
  ASSERT_TRUE(QTest::qWaitFor([&] { return waiter->isFinished(); }, 8000));
  delete waiter;
  EXPECT_TRUE(free);
  EXPECT_TRUE(replacement.listen());
}

TEST_F(SingleInstanceTest, IgnoresWhatIsNotARequest) {
  SingleInstance first(name());
  ASSERT_TRUE(first.listen());
  QSignalSpy requests(&first, &SingleInstance::requestReceived);
  struct Case {
    const char* name;
    QByteArray bytes;
  };
  const Case cases[] = {
      {"unknown word", "quit\n"},
      {"overlong garbage without a line end", QByteArray(4096, 'x')},
      {"nothing at all", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    QLocalSocket client;
    client.connectToServer(name());
    ASSERT_TRUE(QTest::qWaitFor([&] { return client.state() == QLocalSocket::ConnectedState; }, 2000));
    client.write(c.bytes);
    client.flush();
    QTest::qWait(100);
    EXPECT_TRUE(requests.isEmpty());
  }
}

TEST(SingleInstanceName, IsPerHomeAndUnderTheRuntimeDirectoryWhenThereIsOne) {
  QTemporaryDir runtime;
  testing::ScopedEnv xdg("XDG_RUNTIME_DIR", runtime.path().toStdString());
  QString a, b, again;
  {
    testing::ScopedEnv home("HOME", "/home/a");
    a = SingleInstance::defaultServerName();
    again = SingleInstance::defaultServerName();
  }
  {
    testing::ScopedEnv home("HOME", "/home/b");
    b = SingleInstance::defaultServerName();
  }
  EXPECT_EQ(a, again);
  EXPECT_NE(a, b);
  EXPECT_TRUE(a.startsWith(runtime.path() + "/com.zev.launcher-")) << a.toStdString();
  testing::ScopedEnv noRuntime("XDG_RUNTIME_DIR", "/nonexistent-runtime");
  EXPECT_FALSE(SingleInstance::defaultServerName().startsWith("/nonexistent-runtime"));
}

}  // namespace
}  // namespace zev
