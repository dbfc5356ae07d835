#include "app/status/status_item_controller.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCursor>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include "app/fakes/fake_status_item.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/health_server.h"
#include "app/fakes/manual_clock.h"
#include "app/fakes/qt_test_main.h"
#include "app/status/popover_view.h"
#include "app/qt_printers.h"

namespace zev {
namespace {

using namespace std::chrono_literals;
using testing::FakeStatusItem;
using testing::FakeSystemLog;
using testing::HealthServer;
using testing::ManualClock;
using testing::StatusItemRecord;

// Four cameras, three of them live, no verdict of the daemon's own.
const std::string kHealthy = R"({"ok":true,"version":"1.4.2","live_streams":3,"total_streams":4,
  "newest_frame_age_ms":120,"cpu_percent":12.5,"rss_bytes":1400000000,"thumb_drop_ratio":0.01,
  "cameras":[{"id":"a","name":"Front door","live":true,"frame_age_ms":120},
             {"id":"b","name":"Garage","live":true,"frame_age_ms":140},
             {"id":"c","name":"Garden","live":true,"frame_age_ms":90},
             {"id":"d","name":"Attic","live":false,"frame_age_ms":90000}]})";
const std::string kDegraded = R"({"ok":true,"version":"1.4.3","live_streams":1,"total_streams":2,
  "newest_frame_age_ms":120,"cpu_percent":80,"rss_bytes":1,"thumb_drop_ratio":0.3,
  "cameras":[{"id":"a","name":"Front door","live":true,"frame_age_ms":120},
             {"id":"b","name":"Garage","live":false,"frame_age_ms":90000}]})";

class StatusItemControllerTest : public ::testing::Test {
 protected:
  // A controller for `baseURL` whose item records into `item` and whose
  // actions count their calls. Polls only when asked, unless the test
  // shortens the interval.
  std::unique_ptr<StatusItemController> makeController(const QString& baseURL) {
    StatusItemActions actions;
    actions.onOpenWebUI = [this] { called("openWebUI"); };
    actions.onRestart = [this] { called("restart"); };
    actions.onViewLogs = [this] { called("viewLogs"); };
    actions.onRevealLogs = [this] { called("revealLogs"); };
    actions.onCheckUpdates = [this] { called("checkUpdates"); };
    auto controller = std::make_unique<StatusItemController>(std::make_unique<FakeStatusItem>(item),
                                                             QUrl(baseURL), std::move(actions), log,
                                                             nullptr, clock.clock());
    controller->setPollIntervalForTesting(1h);
    controller->setRequestTimeoutForTesting(300ms);
    return controller;
  }

  std::unique_ptr<StatusItemController> makeUnreachableController() {
    return makeController(QStringLiteral("http://127.0.0.1:%1").arg(testing::closedPort()));
  }

  void called(const std::string& action) {
    calls.push_back(action);
    popoverShownAtCall.push_back(lastController && lastController->isPopoverShown());
  }

  // Waits until `count` more polls have been applied.
  static bool waitForPolls(StatusItemController& controller, int count, int timeoutMS = 5000) {
    QSignalSpy applied(&controller, &StatusItemController::pollApplied);
    return QTest::qWaitFor([&] { return applied.count() >= count; }, timeoutMS);
  }

  std::shared_ptr<StatusItemRecord> item = std::make_shared<StatusItemRecord>();
  FakeSystemLog log;
  ManualClock clock;
  std::vector<std::string> calls;
  std::vector<bool> popoverShownAtCall;
  StatusItemController* lastController = nullptr;
};

TEST_F(StatusItemControllerTest, InstallShowsUnreachableThenAppliesFirstPoll) {
  HealthServer daemon([](int) { return HealthServer::Response{200, kHealthy}; });
  auto controller = makeController(daemon.baseURL());
  controller->install();

  // Before any answer: red, unreachable.
  EXPECT_EQ(item->title, " —");
  EXPECT_EQ(item->toolTip, "ZEV daemon unreachable");
  ASSERT_FALSE(item->images.empty());
  EXPECT_TRUE(item->onClick);
  EXPECT_EQ(log.entries(), std::vector{testing::info("status item installed; polling " +
                                                     daemon.baseURL().toStdString())});
  EXPECT_EQ(controller->pollsStartedForTesting(), 1);

  ASSERT_TRUE(waitForPolls(*controller, 1));
  EXPECT_EQ(item->title, " 3/4");
  EXPECT_EQ(item->toolTip, "ZEV — 3/4 cameras live · 1.4.2");
  EXPECT_EQ(controller->state().status(), HealthStatus::green);
  EXPECT_EQ(controller->healthURL().toString(), daemon.baseURL() + "/api/health");
}

// Bodies and codes at the edges of "only a 200 with a body of at most 1 MiB
// counts" (zevd-sim's scenarios cover the common failures).
TEST_F(StatusItemControllerTest, PollOutcomesAtTheEdges) {
  const auto padded = [](std::size_t size) {
    std::string body = kHealthy;
    body.insert(body.size() - 1, size - body.size(), ' ');
    return body;
  };
  const std::size_t cap = StatusItemController::maxResponseBytes;
  struct Case {
    const char* name;
    HealthServer::Response response;
    HealthStatus status;
  };
  const Case cases[] = {
      {"200 empty body", {200, ""}, HealthStatus::red},
      {"404 with a valid document", {404, kHealthy}, HealthStatus::red},
      // Not followed: the daemon is on loopback, a redirect can only lead away.
      {"301 with a valid document", {301, kHealthy}, HealthStatus::red},
      {"exactly the size cap", {200, padded(cap)}, HealthStatus::green},
      {"one byte over it", {200, padded(cap + 1)}, HealthStatus::red},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HealthServer daemon([&](int) { return c.response; });
    auto controller = makeController(daemon.baseURL());
    controller->setRequestTimeoutForTesting(3s);
    controller->poll();
    ASSERT_TRUE(waitForPolls(*controller, 1));
    EXPECT_EQ(controller->state().status(), c.status);
    EXPECT_EQ(controller->state().summary().has_value(), c.status == HealthStatus::green);
    EXPECT_EQ(controller->state().lastUpdated(), clock.now);
  }
}

// An answer over the cap is worth one log line, not one every 5 seconds; it
// is told again only once the daemon has answered sensibly in between.
TEST_F(StatusItemControllerTest, OversizedAnswersAreLoggedOnceUntilASensibleOne) {
  const std::string huge(StatusItemController::maxResponseBytes + 10, ' ');
  HealthServer daemon([&](int n) {
    return HealthServer::Response{200, n == 3 ? kHealthy : huge};
  });
  auto controller = makeController(daemon.baseURL());
  for (int i = 0; i < 6; ++i) {
    controller->poll();
    ASSERT_TRUE(waitForPolls(*controller, 1));
  }
  const auto entries = log.entries();
  const auto told = std::count_if(entries.begin(), entries.end(), [](const auto& e) {
    return e.message.find("larger than 1048576 bytes") != std::string::npos;
  });
  EXPECT_EQ(told, 2);
}

TEST_F(StatusItemControllerTest, OverlappingPollsApplyInArrivalOrder) {
  // The first request is answered late with a degraded document, the second
  // at once with a healthy one: the late answer is the one that stays.
  HealthServer daemon([](int n) {
    return n == 0 ? HealthServer::Response{200, kDegraded, 400ms}
                  : HealthServer::Response{200, kHealthy};
  });
  auto controller = makeController(daemon.baseURL());
  controller->setRequestTimeoutForTesting(3s);
  std::vector<HealthStatus> applied;
  QObject::connect(&controller->state(), &HealthState::changed,
                   [&] { applied.push_back(controller->state().status()); });
  controller->poll();
  QTest::qWait(50);  // the slow request reaches the server first
  controller->poll();
  ASSERT_TRUE(QTest::qWaitFor([&] { return applied.size() == 2; }, 5000));
  EXPECT_EQ(applied, (std::vector{HealthStatus::green, HealthStatus::yellow}));
  EXPECT_EQ(item->toolTip, "ZEV — 1/2 cameras live · 1.4.3");
}

TEST_F(StatusItemControllerTest, DestroyedWithRequestInFlightDoesNothingMore) {
  HealthServer daemon([](int) { return HealthServer::Response{200, kHealthy, 1000ms}; });
  // Destroyed from a deferred delete while the popover is open and its poll
  // in flight: the popover goes with it and the late answer paints nothing.
  auto second = makeController(daemon.baseURL());
  second->setRequestTimeoutForTesting(3s);
  second->install();
  second->togglePopover();
  const QPointer<StatusItemController> gone(second.get());
  const QPointer<PopoverView> popover(second->popover());
  ASSERT_TRUE(popover && popover->isVisible());
  const std::size_t imagesBefore = item->images.size();
  second.release()->deleteLater();
  QTest::qWait(1500);  // the answers arrive, or would have
  EXPECT_TRUE(gone.isNull());
  EXPECT_TRUE(popover.isNull());
  EXPECT_EQ(item->images.size(), imagesBefore);
}

TEST_F(StatusItemControllerTest, TogglePopoverPollsWhenOpeningAndClosesWhenOpen) {
  HealthServer daemon([](int) { return HealthServer::Response{200, kHealthy}; });
  auto controller = makeController(daemon.baseURL());
  controller->install();
  ASSERT_TRUE(waitForPolls(*controller, 1));
  item->anchor = QRect(600, 0, 24, 24);

  item->onClick();
  EXPECT_TRUE(controller->isPopoverShown());
  EXPECT_EQ(controller->pollsStartedForTesting(), 2);  // install's, and the extra one
  EXPECT_LE(std::abs(controller->popover()->geometry().center().x() - 611), 1);
  EXPECT_GE(controller->popover()->geometry().top(), 24);

  item->onClick();
  EXPECT_FALSE(controller->isPopoverShown());
  EXPECT_EQ(controller->pollsStartedForTesting(), 2);
}

// A click on the tray icon while the popover is open closes the popover as a
// click outside it, and then reaches the icon as well: that second delivery
// must not open it again. A click elsewhere followed by one on the icon must.
TEST_F(StatusItemControllerTest, ClickOnTheItemThatClosedThePopoverDoesNotReopenIt) {
  struct Case {
    const char* name;
    QPoint closingClick;
    bool reopens;
  };
  const Case cases[] = {
      {"closed by a click on the item", {610, 10}, false},
      {"closed by a click elsewhere", {100, 400}, true},
  };
  auto controller = makeUnreachableController();
  controller->install();
  item->anchor = QRect(600, 0, 24, 24);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    item->onClick();
    ASSERT_TRUE(controller->isPopoverShown());
    QCursor::setPos(c.closingClick);
    controller->popover()->close();  // what Qt does with a press outside a popup
    item->onClick();
    EXPECT_EQ(controller->isPopoverShown(), c.reopens);
    controller->popover()->close();
    QTest::qWait(350);
  }
  // Later clicks on the item open it as usual.
  QCursor::setPos(610, 10);
  item->onClick();
  EXPECT_TRUE(controller->isPopoverShown());
}

TEST_F(StatusItemControllerTest, PopoverActionsCloseThePopoverFirst) {
  struct Case {
    const char* button;
    const char* action;  // a menu action's object name, when the button opens a menu
    const char* expected;
  };
  const Case cases[] = {
      {"openWebUIButton", nullptr, "openWebUI"},
      {"logsButton", "viewLogAction", "viewLogs"},
      {"logsButton", "revealLogsAction", "revealLogs"},
      {"checkUpdatesButton", nullptr, "checkUpdates"},
      {"restartButton", nullptr, "restart"},  // asks first, once the popover is gone
  };
  auto controller = makeUnreachableController();
  lastController = controller.get();
  controller->install();
  controller->setRestartPromptForTesting([&] {
    called("asked");
    return true;
  });
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    calls.clear();
    popoverShownAtCall.clear();
    controller->togglePopover();
    ASSERT_TRUE(controller->isPopoverShown());
    if (c.action) {
      auto* menuAction = controller->popover()->findChild<QAction*>(c.action);
      ASSERT_TRUE(menuAction);
      menuAction->trigger();
    } else {
      auto* button = controller->popover()->findChild<QAbstractButton*>(c.button);
      ASSERT_TRUE(button);
      button->click();
    }
    std::vector<std::string> expected{c.expected};
    if (expected[0] == "restart") expected.insert(expected.begin(), "asked");
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(popoverShownAtCall, std::vector<bool>(calls.size(), false));
    EXPECT_FALSE(controller->isPopoverShown());
  }
}

// The real alert: its texts and buttons, and polling going on while it is up.
TEST_F(StatusItemControllerTest, RestartAlertIsModalAndPollingContinuesUnderIt) {
  for (const char* choice : {"Cancel", "Restart"}) {
    SCOPED_TRACE(choice);
    calls.clear();
    auto controller = makeUnreachableController();
    controller->setPollIntervalForTesting(20ms);
    controller->install();
    ASSERT_TRUE(waitForPolls(*controller, 1));

    int pollsWhileModal = -1;
    QString text, informative, defaultButton;
    QStringList buttons;
    // The alert is looked for until it shows; one that never shows fails the
    // test (and nothing is left to block it).
    QTimer finder;
    QElapsedTimer sinceAsked;
    sinceAsked.start();
    finder.callOnTimeout([&] {
      auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      if (!alert && sinceAsked.elapsed() < 5000) return;
      finder.stop();
      if (!alert) {
        ADD_FAILURE() << "the restart alert never showed";
        return;
      }
      if (sinceAsked.elapsed() < 400) {
        finder.start(400 - int(sinceAsked.elapsed()));  // let polls run under it first
        return;
      }
      text = alert->text();
      informative = alert->informativeText();
      for (QAbstractButton* button : alert->buttons()) buttons << button->text();
      if (alert->defaultButton()) defaultButton = alert->defaultButton()->text();
      pollsWhileModal = controller->pollsStartedForTesting();
      for (QAbstractButton* button : alert->buttons()) {
        if (button->text() == choice) button->click();
      }
    });
    finder.start(20);
    const int pollsBefore = controller->pollsStartedForTesting();
    controller->confirmRestart();

    EXPECT_EQ(text, "Restart ZEV daemon?");
    EXPECT_EQ(informative, "Recording pauses for a few seconds while the daemon restarts.");
    EXPECT_TRUE(buttons.contains("Restart") && buttons.contains("Cancel"))
        << buttons.join(",").toStdString();
    EXPECT_EQ(defaultButton, "Restart");
    EXPECT_GE(pollsWhileModal - pollsBefore, 2) << "the poll timer stalled under the alert";
    EXPECT_EQ(calls, std::string(choice) == "Restart" ? std::vector<std::string>{"restart"}
                                                      : std::vector<std::string>{});
  }
}

TEST_F(StatusItemControllerTest, WithoutAButtonPollingStillRuns) {
  HealthServer daemon([](int) { return HealthServer::Response{200, kHealthy}; });
  StatusItemActions none;
  StatusItemController controller(std::make_unique<FakeStatusItem>(item, false),
                                  QUrl(daemon.baseURL()), none, log, nullptr, clock.clock());
  controller.install();
  ASSERT_TRUE(waitForPolls(controller, 1));
  EXPECT_EQ(controller.state().status(), HealthStatus::green);
  EXPECT_TRUE(item->images.empty());
  EXPECT_TRUE(item->title.isEmpty());
}

TEST(StatusItemDotImage, IsATransparentSquareWithACentredDotOfTheStatusColour) {
  struct Case {
    HealthStatus status;
    QColor color;
  };
  const Case cases[] = {{HealthStatus::green, QColor(52, 199, 89)},
                        {HealthStatus::yellow, QColor(255, 204, 0)},
                        {HealthStatus::red, QColor(255, 59, 48)}};
  for (const Case& c : cases) {
    for (qreal scale : {1.0, 2.0, 6.4}) {
      SCOPED_TRACE(std::string(rawValue(c.status)) + " at " + std::to_string(scale));
      const QImage image = StatusItemController::dotImage(c.status, scale);
      const int side = int(std::ceil(10 * scale));
      ASSERT_EQ(image.size(), QSize(side, side));
      EXPECT_DOUBLE_EQ(image.deviceIndependentSize().width(), 10.0);
      EXPECT_TRUE(image.hasAlphaChannel());
      // Corners stay clear: the circle is inset by a tenth on each side.
      for (QPoint corner :
           {QPoint(0, 0), QPoint(side - 1, 0), QPoint(0, side - 1), QPoint(side - 1, side - 1)}) {
        EXPECT_EQ(qAlpha(image.pixel(corner)), 0);
      }
      EXPECT_EQ(image.pixelColor(side / 2, side / 2).rgb(), c.color.rgb());
    }
  }
}

}  // namespace
}  // namespace zev
