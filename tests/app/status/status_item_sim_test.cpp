// The status item against zevd-sim, the simulated daemon: one sim on an
// ephemeral port, switched through its scenarios while the controller polls.
#include <gtest/gtest.h>
#include <httplib.h>

#include <QSignalSpy>
#include <QTest>
#include <fstream>

#include "app/fakes/fake_status_item.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/manual_clock.h"
#include "app/fakes/qt_test_main.h"
#include "app/qt_printers.h"
#include "app/status/status_item_controller.h"
#include "tools/sim_process.h"

namespace zev {
namespace {

using namespace std::chrono_literals;

class StatusItemSimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim = std::make_unique<testing::SimProcess>(
        std::vector<std::string>{"--listen", "127.0.0.1:0", "--log-rate", "0", "--err-rate", "0",
                                 "--slow-seconds", "6", "--oversize-bytes", "16777216",
                                 "--hang-max-seconds", "5"},
        home.path());
    ASSERT_GT(sim->port(), 0) << sim->output();
    controller = std::make_unique<StatusItemController>(
        std::make_unique<testing::FakeStatusItem>(item), QUrl(QString::fromStdString(sim->base())),
        StatusItemActions{}, log, nullptr, clock.clock());
    controller->setPollIntervalForTesting(1h);
    controller->setRequestTimeoutForTesting(3s);
  }

  void switchTo(const std::string& scenario) {
    httplib::Client client("127.0.0.1", sim->port());
    const auto answer = client.Post("/sim/scenario?name=" + scenario);
    ASSERT_TRUE(answer) << "zevd-sim did not answer";
    ASSERT_EQ(answer->status, 200) << answer->body;
  }

  static long residentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string key; status >> key;) {
      if (key == "VmRSS:") {
        long kib = 0;
        status >> kib;
        return kib;
      }
    }
    return 0;
  }

  bool pollOnce() {
    QSignalSpy applied(controller.get(), &StatusItemController::pollApplied);
    controller->poll();
    return QTest::qWaitFor([&] { return applied.count() == 1; }, 10000);
  }

  testing::TempDir home;
  std::unique_ptr<testing::SimProcess> sim;
  std::shared_ptr<testing::StatusItemRecord> item = std::make_shared<testing::StatusItemRecord>();
  testing::FakeSystemLog log;
  testing::ManualClock clock;
  std::unique_ptr<StatusItemController> controller;
};

TEST_F(StatusItemSimTest, EachScenarioRendersAsItShould) {
  struct Case {
    const char* scenario;
    HealthStatus status;
    const char* toolTip;  // nullptr: any "ZEV — …" text of a decoded document
  };
  const Case cases[] = {
      {"healthy", HealthStatus::green, "ZEV — 4/4 cameras live · 1.8.3"},
      {"partial", HealthStatus::green, "ZEV — 2/4 cameras live · 1.8.3"},
      {"degraded", HealthStatus::yellow, "ZEV — 3/4 cameras live · 1.8.3"},
      {"thumb-drops", HealthStatus::yellow, nullptr},
      {"stale-frames", HealthStatus::yellow, nullptr},
      {"no-streams", HealthStatus::yellow, "ZEV — 0/0 cameras live · 1.8.3"},
      {"all-down", HealthStatus::red, "ZEV — 0/4 cameras live · 1.8.3"},
      // What a daemon gone wrong may send: markup and absurd figures (yellow:
      // its issue count overflows), ten thousand cameras, 16 MiB of padding.
      {"hostile", HealthStatus::yellow, "<qt>ZEV — 4/4 cameras live · &lt;b&gt;1.8.3&lt;/b&gt;&lt;img "
       "src=&quot;file:///etc/hostname&quot;&gt;</qt>"},
      {"crowd", HealthStatus::green, "ZEV — 9000/10000 cameras live · 1.8.3"},
      {"oversized", HealthStatus::red, "ZEV daemon unreachable"},
      // Only a 200 with a document that decodes counts.
      {"http-503", HealthStatus::red, "ZEV daemon unreachable"},
      {"malformed-json", HealthStatus::red, "ZEV daemon unreachable"},
      {"missing-cameras", HealthStatus::red, "ZEV daemon unreachable"},
      // Answers after 6 s, and the request gives up after 3 s.
      {"slow", HealthStatus::red, "ZEV daemon unreachable"},
      {"hang", HealthStatus::red, "ZEV daemon unreachable"},
      // Never silent, never done: only the whole-request deadline ends it.
      {"trickle", HealthStatus::red, "ZEV daemon unreachable"},
      {"healthy", HealthStatus::green, "ZEV — 4/4 cameras live · 1.8.3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.scenario);
    switchTo(c.scenario);
    clock.now += 5s;
    const auto started = std::chrono::steady_clock::now();
    const long rssBefore = residentKiB();
    ASSERT_TRUE(pollOnce());
    // The 16 MiB answer is never held whole. (Only there: under the address
    // sanitizer other polls move the resident size by megabytes too.)
    if (std::string_view(c.scenario) == "oversized") {
      EXPECT_LT(residentKiB() - rssBefore, 8 * 1024);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, 4500ms);
    EXPECT_EQ(controller->state().status(), c.status);
    EXPECT_EQ(controller->state().lastUpdated(), clock.now);
    if (c.toolTip) {
      EXPECT_EQ(item->toolTip, QString::fromUtf8(c.toolTip));
    } else {
      EXPECT_TRUE(item->toolTip.startsWith("ZEV — ")) << item->toolTip.toStdString();
    }
    const bool unreachable = item->toolTip == "ZEV daemon unreachable";
    EXPECT_EQ(controller->state().summary().has_value(), !unreachable);
    EXPECT_EQ(item->title == " —", unreachable);
  }
}

TEST_F(StatusItemSimTest, StoppedDaemonIsUnreachableAtOnceAndTimeStillAdvances) {
  ASSERT_TRUE(pollOnce());
  EXPECT_EQ(controller->state().status(), HealthStatus::green);
  ASSERT_EQ(sim->stop(), 0);
  for (int i = 0; i < 3; ++i) {
    clock.now += 5s;
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(pollOnce());
    // A refused connection fails straight away, not after the time-out.
    EXPECT_LT(std::chrono::steady_clock::now() - started, 700ms);
    EXPECT_EQ(controller->state().lastUpdated(), clock.now);
    EXPECT_EQ(item->toolTip, "ZEV daemon unreachable");
    EXPECT_EQ(item->title, " —");
  }
}

}  // namespace
}  // namespace zev
