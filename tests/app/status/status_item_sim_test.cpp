// The status item against zevd-sim, the simulated daemon: one sim on an
// ephemeral port, switched through its scenarios while the controller polls.
#include <gtest/gtest.h>
#include <httplib.h>

#include <QSignalSpy>
#include <QTest>

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
                                 "--oversize-bytes", "16777216", "--hang-max-seconds", "5"},
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
  const struct {
    const char* scenario;
    HealthStatus status;
    const char* toolTip;
  } cases[] = {
      {"healthy", HealthStatus::green, "ZEV — 4/4 cameras live · 1.8.3"},
      {"degraded", HealthStatus::yellow, "ZEV — 3/4 cameras live · 1.8.3"},
      {"all-down", HealthStatus::red, "ZEV — 0/4 cameras live · 1.8.3"},
      // What a daemon gone wrong may send: markup and absurd figures (yellow:
      // its issue count overflows), ten thousand cameras, 16 MiB of padding.
      // An answer over the 1 MiB cap is logged once, and again only after a
      // sensible one.
      {"hostile", HealthStatus::yellow,
       "<qt>ZEV — 4/4 cameras live · &lt;b&gt;1.8.3&lt;/b&gt;&lt;img "
       "src=&quot;file:///etc/hostname&quot;&gt;</qt>"},
      {"crowd", HealthStatus::green, "ZEV — 9000/10000 cameras live · 1.8.3"},
      {"oversized", HealthStatus::red, "ZEV daemon unreachable"},
      {"oversized&bytes=1048577", HealthStatus::red, "ZEV daemon unreachable"},
      {"oversized&bytes=1048576", HealthStatus::green, "ZEV — 4/4 cameras live · 1.8.3"},
      {"oversized&bytes=2000000", HealthStatus::red, "ZEV daemon unreachable"},
      // Only a 200 with a document that decodes counts (the decoder's own
      // tests cover the ways a document can be wrong).
      {"http-503", HealthStatus::red, "ZEV daemon unreachable"},
      {"malformed-json", HealthStatus::red, "ZEV daemon unreachable"},
      // Never answers, and the request gives up after 3 s.
      {"hang", HealthStatus::red, "ZEV daemon unreachable"},
      // Never silent, never done: only the whole-request deadline ends it.
      {"trickle", HealthStatus::red, "ZEV daemon unreachable"},
      {"healthy", HealthStatus::green, "ZEV — 4/4 cameras live · 1.8.3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    switchTo(c.scenario);
    clock.now += 5s;
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(pollOnce());
    EXPECT_LT(std::chrono::steady_clock::now() - started, 4500ms);
    EXPECT_EQ(controller->state().status(), c.status);
    EXPECT_EQ(controller->state().lastUpdated(), clock.now);
    EXPECT_EQ(item->toolTip, QString::fromUtf8(c.toolTip));
    const bool unreachable = item->toolTip == "ZEV daemon unreachable";
    EXPECT_EQ(controller->state().summary().has_value(), !unreachable);
    EXPECT_EQ(item->title == " —", unreachable);
  }
  const auto entries = log.entries();
  EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                          [](const auto& e) {
                            return e.message.find("larger than 1048576 bytes") != std::string::npos;
                          }),
            2);
}

}  // namespace
}  // namespace zev
