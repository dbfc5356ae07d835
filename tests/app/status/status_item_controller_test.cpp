#include "app/status/status_item_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QMessageBox>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <sstream>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_status_item.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/health_server.h"
#include "app/fakes/manual_clock.h"
#include "app/fakes/qt_test_main.h"
#include "app/fakes/scoped_env.h"
#include "app/logs/log_window_controller.h"
#include "app/qt_printers.h"
#include "app/shell/app_delegate.h"
#include "app/status/notification_controller.h"
#include "app/status/popover_view.h"
#include "app/updates/update_coordinator.h"
#include "core/updates/update_transaction.h"
#include "tools/sim_process.h"

namespace zev {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::FakePlatform;
using testing::HealthServer;
using testing::ScopedEnv;

// Two cameras, one of them live, no verdict of the daemon's own.
const std::string kHealthy = R"({"ok":true,"version":"1.4.2","live_streams":1,"total_streams":2,
  "newest_frame_age_ms":120,"cpu_percent":12.5,"rss_bytes":1400000000,"thumb_drop_ratio":0.01,
  "cameras":[{"id":"a","name":"Front door","live":true,"frame_age_ms":120},
             {"id":"d","name":"Attic","live":false,"frame_age_ms":90000}]})";

// Waits for the next poll to be applied.
bool waitForPoll(StatusItemController& controller) {
  return QSignalSpy(&controller, &StatusItemController::pollApplied).wait(5000);
}

class StatusItemControllerTest : public ::testing::Test {
 protected:
  // A controller for `baseURL` (a closed port by default) whose item records
  // into `item`. Polls only when asked, unless the test shortens the interval.
  std::unique_ptr<StatusItemController> makeController(QString baseURL = {},
                                                       bool hasButton = true) {
    if (baseURL.isEmpty())
      baseURL = QStringLiteral("http://127.0.0.1:%1").arg(testing::closedPort());
    // Each action notes its name, and whether the popover was still open.
    const auto note = [this](std::string name) {
      return [this, name] { calls.push_back(name + (current->isPopoverShown() ? " (open)" : "")); };
    };
    auto controller = std::make_unique<StatusItemController>(
        std::make_unique<testing::FakeStatusItem>(item, hasButton), QUrl(baseURL),
        StatusItemActions{note("openWebUI"), note("restart"), note("viewLogs"), note("revealLogs"),
                          note("checkUpdates")},
        log, nullptr, clock.clock());
    controller->setPollIntervalForTesting(1h);
    controller->setRequestTimeoutForTesting(3s);
    current = controller.get();
    return controller;
  }

  std::shared_ptr<testing::StatusItemRecord> item = std::make_shared<testing::StatusItemRecord>();
  testing::FakeSystemLog log;
  testing::ManualClock clock;
  std::vector<std::string> calls;
  StatusItemController* current = nullptr;
};

// The item shows a red dot and " —" until the first answer, then the dot in
// the status colour and the camera count. Where there is no tray the item has
// no button: nothing is painted on it, but the polls that feed the
// notifications go on.
TEST_F(StatusItemControllerTest, InstallShowsUnreachableThenPolls) {
  HealthServer daemon([](int) { return HealthServer::Response{200, kHealthy}; });
  for (bool hasButton : {true, false}) {
    SCOPED_TRACE(hasButton);
    *item = {};
    auto controller = makeController(daemon.baseURL(), hasButton);
    controller->install();
    EXPECT_EQ(item->title, hasButton ? " —" : "");
    EXPECT_EQ(bool(item->onClick), hasButton);
    ASSERT_TRUE(waitForPoll(*controller));
    EXPECT_EQ(controller->state().status(), HealthStatus::green);
    EXPECT_EQ(item->title, hasButton ? " 1/2" : "");
    ASSERT_EQ(item->images.empty(), !hasButton);
    if (!hasButton) continue;
    const QImage& first = item->images.front();
    const QImage& last = item->images.back();
    EXPECT_EQ(first.pixel(first.rect().center()), qRgb(255, 59, 48));  // red
    EXPECT_EQ(last.pixel(last.rect().center()), qRgb(52, 199, 89));    // green
    EXPECT_EQ(qAlpha(last.pixel(0, 0)), 0);  // a dot, not a square
    EXPECT_EQ(last.deviceIndependentSize(), QSizeF(10, 10));
  }
}

// Late answers: overlapping polls are applied in the order their answers
// arrive, so the late failed answer is the one that stays. Destroyed from a
// deferred delete while the popover is open and its poll in flight, the
// controller takes the popover with it and the late answer paints nothing.
TEST_F(StatusItemControllerTest, LateAnswersApplyInArrivalOrderOrNotAtAllOnceGone) {
  HealthServer daemon([](int n) {
    return HealthServer::Response{n == 0 ? 503 : 200, kHealthy, n == 1 ? 0ms : 400ms};
  });
  auto controller = makeController(daemon.baseURL());
  std::vector<HealthStatus> applied;
  const HealthState* state = &controller->state();
  QObject::connect(state, &HealthState::changed, [&] { applied.push_back(state->status()); });
  controller->poll();
  QTest::qWait(50);  // the slow request reaches the server first
  controller->poll();
  ASSERT_TRUE(QTest::qWaitFor([&] { return applied.size() == 2; }, 5000));
  EXPECT_EQ(applied, (std::vector{HealthStatus::green, HealthStatus::red}));

  controller->togglePopover();
  const QPointer<StatusItemController> gone(controller.get());
  const QPointer<PopoverView> popover(controller->popover());
  ASSERT_TRUE(popover && popover->isVisible());
  controller.release()->deleteLater();
  QTest::qWait(800);  // the answer arrives, or would have
  EXPECT_TRUE(gone.isNull());
  EXPECT_TRUE(popover.isNull());
  EXPECT_EQ(applied.size(), 2u);
}

// A click on the item opens the popover under it with a fresh poll. A click
// on the tray icon while the popover is open closes the popover as a click
// outside it, and then reaches the icon as well: that second delivery must
// not open it again.
TEST_F(StatusItemControllerTest, ClicksOnTheItemToggleThePopover) {
  const struct {
    const char* name;
    QPoint closingClick;
    bool reopens;
  } cases[] = {
      {"closed by a click on the item", {610, 10}, false},
      {"closed by a click elsewhere", {100, 400}, true},
  };
  auto controller = makeController();
  controller->install();
  item->anchor = QRect(600, 0, 24, 24);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    QTest::qWait(350);
    const int polls = controller->pollsStartedForTesting();
    item->onClick();
    ASSERT_TRUE(controller->isPopoverShown());
    EXPECT_EQ(controller->pollsStartedForTesting(), polls + 1);
    EXPECT_LE(std::abs(controller->popover()->geometry().center().x() - 611), 1);
    QCursor::setPos(c.closingClick);
    controller->popover()->close();  // what Qt does with a press outside a popup
    item->onClick();
    EXPECT_EQ(controller->isPopoverShown(), c.reopens);
    if (!c.reopens) continue;
    item->onClick();  // a click on the item closes an open popover
    EXPECT_FALSE(controller->isPopoverShown());
  }
}

TEST_F(StatusItemControllerTest, PopoverActionsCloseThePopoverFirst) {
  // A button or a Logs menu action, and the action it runs.
  const std::pair<const char*, std::string> cases[] = {
      {"openWebUIButton", "openWebUI"},     {"viewLogAction", "viewLogs"},
      {"revealLogsAction", "revealLogs"},   {"checkUpdatesButton", "checkUpdates"},
  };
  auto controller = makeController();
  controller->install();
  for (const auto& [control, expected] : cases) {
    SCOPED_TRACE(control);
    calls.clear();
    controller->togglePopover();
    ASSERT_TRUE(controller->isPopoverShown());
    if (auto* action = controller->popover()->findChild<QAction*>(control)) {
      action->trigger();
    } else {
      controller->popover()->findChild<QAbstractButton*>(control)->click();
    }
    EXPECT_EQ(calls, std::vector{expected});
    EXPECT_FALSE(controller->isPopoverShown());
  }
}

// Restart asks first, once the popover is gone: the real alert, answered
// "Cancel" (the desktop check answers it with Return, its default, and sees
// the daemon restart), with polling going on under it.
TEST_F(StatusItemControllerTest, RestartAlertIsModalAndPollingContinuesUnderIt) {
  auto controller = makeController();
  controller->setPollIntervalForTesting(20ms);
  controller->install();
  ASSERT_TRUE(waitForPoll(*controller));
  int pollsWhileModal = -1;
  QString text;
  bool popoverShown = true;
  // By then the alert is up, and polls have run under it.
  QTimer::singleShot(400ms, controller.get(), [&] {
    auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (!alert) return;
    text = alert->text();
    popoverShown = controller->isPopoverShown();
    pollsWhileModal = controller->pollsStartedForTesting();
    for (QAbstractButton* button : alert->buttons()) {
      if (button->text() == "Cancel") button->click();
    }
    if (alert->isVisible()) alert->reject();
  });
  controller->togglePopover();
  const int pollsBefore = controller->pollsStartedForTesting();
  controller->popover()->findChild<QAbstractButton*>("restartButton")->click();
  EXPECT_EQ(text, "Restart ZEV daemon?");
  EXPECT_FALSE(popoverShown);
  EXPECT_GE(pollsWhileModal - pollsBefore, 2) << "the poll timer stalled under the alert";
  EXPECT_EQ(calls, std::vector<std::string>{});
}

// The status item against zevd-sim, the simulated daemon: one sim on an
// ephemeral port, switched through its scenarios while the controller polls.
class StatusItemSimTest : public StatusItemControllerTest {
 protected:
  void SetUp() override {
    sim = std::make_unique<testing::SimProcess>(
        std::vector<std::string>{"--listen", "127.0.0.1:0", "--log-rate", "0", "--err-rate", "0",
                                 "--oversize-bytes", "16777216", "--hang-max-seconds", "5"},
        home.path());
    ASSERT_GT(sim->port(), 0) << sim->output();
  }

  void switchTo(const std::string& scenario) {
    httplib::Client client("127.0.0.1", sim->port());
    const auto answer = client.Post("/sim/scenario?name=" + scenario);
    ASSERT_TRUE(answer) << "zevd-sim did not answer";
    ASSERT_EQ(answer->status, 200) << answer->body;
  }

  testing::TempDir home;
  std::unique_ptr<testing::SimProcess> sim;
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
  auto controller = makeController(QString::fromStdString(sim->base()));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    switchTo(c.scenario);
    clock.now += 5s;
    const auto started = std::chrono::steady_clock::now();
    controller->poll();
    ASSERT_TRUE(waitForPoll(*controller));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 4500ms);
    EXPECT_EQ(controller->state().status(), c.status);
    EXPECT_EQ(controller->state().lastUpdated(), clock.now);
    EXPECT_EQ(item->toolTip, QString::fromUtf8(c.toolTip));
    EXPECT_EQ(item->title == " —", item->toolTip == "ZEV daemon unreachable");
  }
  EXPECT_THAT(log.messages(),
              ::testing::Contains(::testing::HasSubstr("larger than 1048576 bytes")).Times(2));
}

// Desktop notifications through the delegate: real polls of a stand-in
// daemon, the rules on a manual clock, the fake notifier, the switch in the
// popover and its file in a scratch HOME.
class NotificationsTest : public ::testing::Test {
 protected:
  NotificationsTest() {
    delegate = std::make_unique<AppDelegate>(fakes.take(), standardError, clock.clock());
    delegate->setLocalBaseForDevelopment(QUrl(server.baseURL()));
    delegate->installStatusItem();
    controller().setPollIntervalForTesting(1h);
    controller().setRequestTimeoutForTesting(500ms);
    waitForPoll(controller());  // install's poll
  }

  StatusItemController& controller() { return *delegate->statusController(); }

  // One poll `seconds` after the previous one, answered by `answer`.
  void pollAfter(int seconds, HealthServer::Response answer) {
    {
      std::lock_guard lock(m_mutex);
      m_answer = std::move(answer);
    }
    clock.now += std::chrono::seconds(seconds);
    controller().poll();
    waitForPoll(controller());
  }

  std::vector<std::string> shown() const {
    std::vector<std::string> texts;
    for (const Notification& n : fakes.notifier->shown) texts.push_back(n.title + " | " + n.body);
    return texts;
  }

  QAction* toggle() { return controller().popover()->findChild<QAction*>("notificationsAction"); }

  QTemporaryDir home;
  ScopedEnv homeEnv{"HOME", home.path().toStdString()};
  ScopedEnv configEnv{"XDG_CONFIG_HOME", ""};
  std::mutex m_mutex;
  HealthServer::Response m_answer{200, kHealthy};
  HealthServer server{[this](int) {
    std::lock_guard lock(m_mutex);
    return m_answer;
  }};
  FakePlatform fakes;
  testing::ManualClock clock;
  std::ostringstream standardError;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(NotificationsTest, PollsOfARealDaemonBecomeOneNotificationPerChange) {
  const HealthServer::Response ok{200, kHealthy}, unavailable{503, kHealthy},
      garbage{200, "{\"ok\":tru"}, slow{200, kHealthy, 1500ms};  // past the 500 ms time-out
  for (const auto& answer :
       {unavailable, unavailable, unavailable, ok, ok, slow, slow, ok, ok, garbage, garbage}) {
    pollAfter(5, answer);
  }
  EXPECT_THAT(shown(), ElementsAre("ZEV recording stopped | The daemon answered HTTP 503",
                                   "ZEV recording is healthy again | 1/2 cameras live",
                                   "ZEV recording stopped | The daemon did not answer in time",
                                   "ZEV recording is healthy again | 1/2 cameras live",
                                   "ZEV recording stopped | The daemon's health report could not "
                                   "be read"));
  EXPECT_EQ(fakes.notifier->shown.front().target, NotificationTarget::logWindow);
}

TEST_F(NotificationsTest, SwitchInThePopoverSilencesAndIsKeptAcrossRuns) {
  ASSERT_NE(toggle(), nullptr);
  EXPECT_TRUE(toggle()->isChecked());
  toggle()->trigger();  // off
  pollAfter(5, {503, ""});
  pollAfter(5, {503, ""});
  EXPECT_THAT(shown(), ::testing::IsEmpty());
  // Still logged, so the journal has what the user was not shown.
  EXPECT_THAT(fakes.statusItemLog->messages(),
              ::testing::Contains("notification: ZEV recording stopped — The daemon answered "
                                  "HTTP 503 (notifications are off)"));

  const QString file = home.path() + "/.config/ZEV/launcher.conf";
  EXPECT_FALSE(NotificationSettings(file).notificationsEnabled());
  delegate->installStatusItem();  // as at the next start
  EXPECT_FALSE(toggle()->isChecked());
  toggle()->trigger();  // on again
  EXPECT_TRUE(NotificationSettings(file).notificationsEnabled());

  // An absolute XDG_CONFIG_HOME wins; a relative one is ignored.
  ScopedEnv absolute("XDG_CONFIG_HOME", "/cfg");
  EXPECT_EQ(NotificationSettings::defaultPath(), "/cfg/ZEV/launcher.conf");
  ScopedEnv relative("XDG_CONFIG_HOME", "cfg");
  EXPECT_EQ(NotificationSettings::defaultPath(), file);
}

TEST_F(NotificationsTest, ClicksOpenThePopoverOrTheLogWindow_AlsoAfterReinstalling) {
  delegate->installStatusItem();
  fakes.notifier->click(NotificationTarget::popover);
  EXPECT_TRUE(controller().isPopoverShown());
  fakes.notifier->click(NotificationTarget::logWindow);
  // What View Log does.
  ASSERT_NE(delegate->logWindowController(), nullptr);
  EXPECT_TRUE(delegate->logWindowController()->window()->isVisible());
}

TEST_F(NotificationsTest, FinishedUpdatesAreAnnounced) {
  const Timestamp at = timestampFromMillisecondsSince1970(1763683200000);
  UpdateTransaction update("1.4.2", "1.5.0", {at, 2, {}}, "/a", at, Uuid());
  update.setState(UpdateState::certified);
  delegate->updates().onUpdateFinished(update);  // as the end of a verification calls it
  EXPECT_THAT(shown(), ElementsAre("ZEV 1.5.0 certified: 1 of 2 cameras recording | Updated from "
                                   "1.4.2"));
  // One that ends before the status item is up (a deadline that passed while
  // the launcher was down) waits for it. The count then comes from the baseline.
  FakePlatform earlyFakes;
  AppDelegate early(earlyFakes.take(), standardError, clock.clock());
  update.setState(UpdateState::failed);
  early.updates().onUpdateFinished(update);
  EXPECT_TRUE(earlyFakes.notifier->shown.empty());
  early.installStatusItem();
  ASSERT_EQ(earlyFakes.notifier->shown.size(), 1u);
  EXPECT_EQ(earlyFakes.notifier->shown[0].title, "ZEV 1.5.0 update failed");
}

}  // namespace
}  // namespace zev
