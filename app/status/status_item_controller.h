// StatusItemController puts the launcher into the menu bar (a tray icon on
// Linux): a coloured dot, a live/total camera count and a tooltip, kept up to
// date by polling the daemon's health endpoint every 5 seconds, and a popover
// with the cameras, figures and actions when the item is clicked.
//
// GUI thread only. The controller owns the item, the popover, the HealthState,
// the HTTP session and the poll timer. Network completions and popover
// callbacks hold it through a QPointer and do nothing once it is gone, so it
// may be destroyed with a request still in flight. It never acts on the
// daemon itself: the actions are callbacks handed in by the AppDelegate.
#ifndef ZEV_APP_STATUS_ITEM_CONTROLLER_H_
#define ZEV_APP_STATUS_ITEM_CONTROLLER_H_

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QUrl>
#include <chrono>
#include <functional>
#include <vector>
#include <memory>
#include <optional>

#include "app/shell/clock.h"
#include "app/status/health_state.h"
#include "core/health/health_status.h"
#include "core/health/health_summary.h"
#include "core/health/notification_rules.h"

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

namespace zev {

class AppActivation;
class PopoverView;
class StatusItem;
class SystemLog;

// The five things the popover can ask the application to do.
struct StatusItemActions {
  std::function<void()> onOpenWebUI;
  std::function<void()> onRestart;
  std::function<void()> onViewLogs;
  std::function<void()> onRevealLogs;
  std::function<void()> onCheckUpdates;
};

class StatusItemController : public QObject {
  Q_OBJECT

 public:
  static constexpr std::chrono::milliseconds defaultPollInterval{5000};
  // From the request's start to its last byte, however the bytes arrive.
  static constexpr std::chrono::milliseconds defaultRequestTimeout{4000};
  // A larger answer is a failed poll, and is never held in memory whole.
  static constexpr qint64 maxResponseBytes = qint64{1} << 20;

  // `statusLog` (com.zev.zevd / statusitem) must outlive the controller;
  // `activation` may be null (nothing is brought to the front then).
  StatusItemController(std::unique_ptr<StatusItem> statusItem, QUrl baseURL,
                       StatusItemActions actions, SystemLog& statusLog,
                       AppActivation* activation = nullptr, Clock clock = systemClock(),
                       QObject* parent = nullptr);
  ~StatusItemController() override;

  // Sets the item up (red dot, click action, popover), shows "unreachable",
  // polls once at once and then every pollInterval. Call once.
  void install();

  // Starts one health request and returns at once. Polls may overlap; each
  // result is applied when its reply arrives, in arrival order.
  void poll();

  // Repaints the item: the dot, " 3/4" as title and "ZEV — 3/4 cameras live
  // · 1.4.2" as tooltip, or " —" and "ZEV daemon unreachable" without a
  // summary. Skipped when the item has no button.
  void render(HealthStatus status, const std::optional<HealthSummary>& summary);

  // The dot: a 10 by 10 point transparent picture with a filled circle of
  // diameter 8 inset 1, in the status colour. `scale` pixels per point, so
  // trays that draw icons large get a sharp picture.
  static QImage dotImage(HealthStatus status, qreal scale = 1.0);

  // The item's click: polls and opens the popover under the item, or closes
  // it when it is open.
  void togglePopover();

  // Asks "Restart ZEV daemon?" and calls onRestart only when the user chose
  // "Restart".
  void confirmRestart();

  const HealthState& state() const { return *m_state; }
  // The popover, built on first use.
  PopoverView* popover() { return &ensurePopover(); }
  // Runs on the popover once it exists (now, or when it is first built), so
  // that additions to it need not build it at start-up.
  void whenPopoverBuilt(std::function<void(PopoverView&)> setUp);
  bool isPopoverShown() const;
  QUrl healthURL() const;
  // The last applied poll as the notification rules read it; its summary
  // points into state() and is valid until the next poll is applied.
  PollObservation lastPollObservation() const;

  // Test seams.
  void setPollIntervalForTesting(std::chrono::milliseconds interval);
  void setRequestTimeoutForTesting(std::chrono::milliseconds timeout);
  // Replaces the modal alert; the function returns true for "Restart".
  void setRestartPromptForTesting(std::function<bool()> prompt);
  int pollsStartedForTesting() const { return m_pollsStarted; }

 signals:
  // After every poll's result has been applied and rendered.
  void pollApplied();

 private:
  void applyReply(QNetworkReply* reply);
  PopoverView& ensurePopover();
  bool runRestartAlert();
  std::function<void()> closingPopoverFirst(std::function<void()> StatusItemActions::*action);

  std::unique_ptr<StatusItem> m_statusItem;
  std::unique_ptr<PopoverView> m_popover;
  std::vector<std::function<void(PopoverView&)>> m_popoverSetUps;
  std::unique_ptr<HealthState> m_state;
  QUrl m_baseURL;
  std::chrono::milliseconds m_pollInterval = defaultPollInterval;
  std::chrono::milliseconds m_requestTimeout = defaultRequestTimeout;
  QTimer* m_timer = nullptr;
  std::unique_ptr<QNetworkAccessManager> m_session;
  StatusItemActions m_actions;
  SystemLog& m_statusLog;
  AppActivation* m_activation;
  Clock m_clock;
  std::function<bool()> m_restartPrompt;
  QElapsedTimer m_sincePopoverClosed;
  int m_pollsStarted = 0;
  bool m_toldTooLarge = false;  // the size cap's log line was written
  PollFailure m_lastFailure = PollFailure::unreachable;
  int m_lastHttpStatus = 0;
};

}  // namespace zev

#endif  // ZEV_APP_STATUS_ITEM_CONTROLLER_H_
