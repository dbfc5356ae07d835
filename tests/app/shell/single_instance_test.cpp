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
  QString name() const { return runtime.filePath("launcher.sock"); }
  // Runs `work` in a thread of its own, as another launcher's process would,
  // while this thread's event loop runs.
  static bool elsewhere(std::function<bool()> work) {
    auto result = std::make_shared<bool>(false);
    QThread* thread = QThread::create([work, result] { *result = work(); });
    thread->start();
    if (!QTest::qWaitFor([&] { return thread->isFinished(); }, 8000)) {
      ADD_FAILURE() << "the other start still runs";
      return false;
    }
    delete thread;
    return *result;
  }

  QTemporaryDir runtime;
};

// What is not a request (an unknown one, bytes past the longest) is ignored;
// a later start's request then still reaches the running launcher.
TEST_F(SingleInstanceTest, ALaterStartHandsItsRequestToTheRunningOne_TheRestIsIgnored) {
  SingleInstance first(name());
  ASSERT_TRUE(first.listen());
  // A second start that gets as far as listening must not take the name.
  SingleInstance second(name());
  EXPECT_FALSE(second.listen(0ms));
  QSignalSpy requests(&first, &SingleInstance::requestReceived);
  for (const QByteArray& bytes : {QByteArray("quit\n"), QByteArray(4096, 'x')}) {
    SCOPED_TRACE(bytes.left(8).toStdString());
    QLocalSocket client;
    client.connectToServer(name());
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return client.state() == QLocalSocket::ConnectedState; }, 2000));
    client.write(bytes);
    client.flush();
    QTest::qWait(100);
    EXPECT_TRUE(requests.isEmpty());
  }
  for (const QString& request : {QStringLiteral("activate"), QStringLiteral("show-logs")}) {
    SCOPED_TRACE(request.toStdString());
    const QString server = name();
    EXPECT_TRUE(elsewhere([=] { return SingleInstance(server).handOver(request, 2000ms); }));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !requests.isEmpty(); }, 2000));
    EXPECT_EQ(requests.takeFirst()[0].toString(), request);
  }
}

TEST_F(SingleInstanceTest, NobodyRunningMeansNoHandOverAndAStaleSocketIsTakenOver) {
  // A file left behind where the socket was, and a lock naming a process
  // that is gone, as a crash leaves them.
  for (const auto& [path, text] :
       {std::pair{name(), ""}, {name() + ".lock", "999999\nZEVLauncher\n\n"}}) {
    QFile stale(path);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.write(text);
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
  // The old one goes while the new one waits.
  QTimer::singleShot(200, [&] { old.reset(); });
  const QString server = name();
  EXPECT_TRUE(elsewhere([=] { return SingleInstance(server).waitUntilFree(5000ms); }));
  EXPECT_TRUE(replacement.listen());
}

TEST(SingleInstanceName, IsPerHomeAndUnderTheRuntimeDirectoryWhenThereIsOne) {
  QTemporaryDir runtime;
  testing::ScopedEnv xdg("XDG_RUNTIME_DIR", runtime.path().toStdString());
  const auto nameFor = [](const char* home) {
    testing::ScopedEnv env("HOME", home);
    return SingleInstance::defaultServerName();
  };
  const QString a = nameFor("/home/a");
  EXPECT_NE(a, nameFor("/home/b"));
  EXPECT_TRUE(a.startsWith(runtime.path() + "/com.zev.launcher-")) << a.toStdString();
  testing::ScopedEnv noRuntime("XDG_RUNTIME_DIR", "/nonexistent-runtime");
  EXPECT_FALSE(SingleInstance::defaultServerName().startsWith("/nonexistent-runtime"));
}

}  // namespace
}  // namespace zev
