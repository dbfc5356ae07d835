// The popover's restart runs beside the event loop: the call returns at once
// however long the service manager takes, and the outcome is logged later.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QTest>
#include <sstream>

#include "app/fakes/fake_platform.h"
#include "app/fakes/qt_test_main.h"
#include "app/shell/app_delegate.h"

namespace zev {
namespace {

using ::testing::ElementsAre;

TEST(RestartAgent, ReturnsAtOnceAndLogsTheOutcomeWhenTheCommandEnds) {
  struct Case {
    const char* name;
    Command command;
    std::vector<testing::LogEntry> log;
  };
  const Case cases[] = {
      {"quick", {"/bin/sh", {"-c", "echo restarted"}}, {testing::info("kickstart exit=0 out=restarted\n")}},
      {"refused", {"/bin/sh", {"-c", "echo no >&2; exit 5"}}, {testing::info("kickstart exit=5 out=no\n")}},
      {"cannot start", {"/nonexistent/systemctl", {}}, {}},  // the spawn failure, checked below
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::FakePlatform fakes;
    fakes.serviceManager->kickstart = c.command;
    std::ostringstream standardError;
    AppDelegate delegate(fakes.take(), standardError);
    delegate.restartAgent();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fakes.launcherLog->entries().empty(); }, 5000));
    QTest::qWait(50);
    const auto entries = fakes.launcherLog->entries();
    if (c.log.empty()) {
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0].message.rfind("kickstart spawn failed: ", 0), 0u) << entries[0].message;
    } else {
      EXPECT_EQ(entries, c.log);
    }
  }
}

TEST(RestartAgent, ASlowServiceManagerNeverBlocksAndASecondAskIsDropped) {
  testing::FakePlatform fakes;
  fakes.serviceManager->kickstart = {"/bin/sh", {"-c", "sleep 1; echo done"}};
  std::ostringstream standardError;
  AppDelegate delegate(fakes.take(), standardError);
  QElapsedTimer timer;
  timer.start();
  delegate.restartAgent();
  delegate.restartAgent();
  EXPECT_LT(timer.elapsed(), 500);
  EXPECT_THAT(fakes.launcherLog->messages(), ElementsAre("restart already running; request dropped"));
  ASSERT_TRUE(QTest::qWaitFor([&] { return fakes.launcherLog->entries().size() == 2; }, 5000));
  EXPECT_EQ(fakes.launcherLog->messages().back(), "kickstart exit=0 out=done\n");
  // Once it has ended, the next restart runs.
  delegate.restartAgent();
  ASSERT_TRUE(QTest::qWaitFor([&] { return fakes.launcherLog->entries().size() == 3; }, 5000));
}

}  // namespace
}  // namespace zev
