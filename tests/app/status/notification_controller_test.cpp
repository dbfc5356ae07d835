// Desktop notifications through the delegate: real polls of a stand-in
// daemon, the rules on a manual clock, the fake notifier, the switch in the
// popover and its file in a scratch HOME.
#include "app/status/notification_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <sstream>

#include "app/fakes/fake_platform.h"
#include "app/fakes/health_server.h"
#include "app/fakes/manual_clock.h"
#include "app/fakes/qt_test_main.h"
#include "app/fakes/scoped_env.h"
#include "app/shell/app_delegate.h"
#include "app/status/popover_view.h"
#include "app/status/status_item_controller.h"
#include "app/updates/update_coordinator.h"
#include "core/updates/update_transaction.h"

namespace zev {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::FakePlatform;
using testing::HealthServer;
using testing::ScopedEnv;

const std::string kHealthy = R"({"ok":true,"version":"1.4.2","live_streams":1,"total_streams":1,
  "newest_frame_age_ms":120,"cpu_percent":1,"rss_bytes":1,"thumb_drop_ratio":0,"degraded":false,
  "cameras":[{"id":"a","name":"Front door","live":true,"frame_age_ms":120}]})";
class NotificationsTest : public ::testing::Test {
 protected:
  NotificationsTest() {
    delegate = std::make_unique<AppDelegate>(fakes.take(), standardError, clock.clock());
    delegate->setLocalBaseForDevelopment(QUrl(server.baseURL()));
    delegate->installStatusItem();
    controller().setPollIntervalForTesting(1h);
    controller().setRequestTimeoutForTesting(500ms);
    QSignalSpy(&controller(), &StatusItemController::pollApplied).wait(3000);  // install's poll
  }

  StatusItemController& controller() { return *delegate->statusController(); }

  // One poll `seconds` after the previous one, answered by `answer`.
  void pollAfter(int seconds, HealthServer::Response answer) {
    {
      std::lock_guard lock(m_mutex);
      m_answer = std::move(answer);
    }
    clock.now += std::chrono::seconds(seconds);
    QSignalSpy applied(&controller(), &StatusItemController::pollApplied);
    controller().poll();
    applied.wait(3000);
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
                                   "ZEV recording is healthy again | 1/1 cameras live",
                                   "ZEV recording stopped | The daemon did not answer in time",
                                   "ZEV recording is healthy again | 1/1 cameras live",
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
  // What View Log does: show "ZEV Logs".
  const QWidgetList windows = QApplication::topLevelWidgets();
  EXPECT_TRUE(std::any_of(windows.begin(), windows.end(), [](QWidget* w) {
    return w->isVisible() && w->windowTitle() == "ZEV Logs";
  }));
}

TEST_F(NotificationsTest, FinishedUpdatesAreAnnounced) {
  const Timestamp at = timestampFromMillisecondsSince1970(1763683200000);
  UpdateTransaction update("1.4.2", "1.5.0", {at, 2, {}}, "/a", at, Uuid());
  update.setState(UpdateState::certified);
  delegate->updates().onUpdateFinished(update);  // as the end of a verification calls it
  EXPECT_THAT(shown(), ElementsAre("ZEV 1.5.0 certified: the camera is recording | Updated from "
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
