// The status item's popover: the latest health at a glance (header, figures,
// degradation reasons, cameras) and the application's actions. It keeps no
// state of its own: every change of the observed HealthState refills its
// widgets in place, so an open popover keeps its scroll position and never
// blanks. At most maxCameraRows cameras get a row, then "and N more": the
// popover costs the same with ten thousand cameras as with a hundred.
//
// A frameless Qt::Popup window, so a click anywhere outside closes it. While
// it is closed, changes only mark it stale and it catches up on opening. GUI
// thread only. Child widgets carry object names ("headerTitle", "cameraRow",
// "linkLabel", ...) so tests and accessibility tools can find them.
#ifndef ZEV_APP_POPOVER_VIEW_H_
#define ZEV_APP_POPOVER_VIEW_H_

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QWidget>
#include <functional>
#include <optional>
#include <vector>

class QFrame;
class QLabel;
class QScrollArea;
class QVBoxLayout;

namespace zev {

class HealthState;
struct HealthSummary;

// The popover's five actions. The status item controller wraps each so that
// it closes the popover first; restart asks for confirmation after that.
struct PopoverActions {
  std::function<void()> onOpenWebUI;
  std::function<void()> onRestart;
  std::function<void()> onViewLogs;
  std::function<void()> onRevealLogs;
  std::function<void()> onCheckUpdates;
};

class PopoverView : public QWidget {
  Q_OBJECT

 public:
  // `state` must outlive the view.
  PopoverView(const HealthState& state, PopoverActions actions, QWidget* parent = nullptr);
  ~PopoverView() override;

  // The item's rectangle it was last shown under, if the tray told.
  std::optional<QRect> anchor() const { return m_anchor; }

  // Shows the popover under `anchor` (the item's rectangle in global
  // coordinates), or at the cursor when the tray does not say where the item
  // is; kept inside the screen either way. Takes keyboard focus.
  void showAnchored(std::optional<QRect> anchor);

  static constexpr int maxCameraRows = 50;

  // The label of the Logs menu's second item: the platform's file browser.
  static QString revealLogsTitle();
  // What the popover says when the daemon does not answer.
  static QString unreachableText();

  // Adds (or updates) the checkable "Desktop Notifications" item at the end
  // of the Logs menu; `onToggled` gets the new state when the user flips it.
  void setNotificationsToggle(bool checked, std::function<void(bool)> onToggled);

 signals:
  // Emitted whenever the popover is hidden, by the user clicking outside or
  // by close().
  void closed();

 protected:
  void hideEvent(QHideEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  void refresh();
  void refreshSummary(const HealthSummary& summary);
  void place();
  QWidget* buildHeader();
  QWidget* buildSummary();
  QWidget* buildUnreachable();
  QWidget* buildActions();

  const HealthState& m_state;
  PopoverActions m_actions;
  QVBoxLayout* m_layout = nullptr;
  QLabel* m_headerDots[3] = {};  // by HealthStatus; only the current one shows
  QLabel* m_headerTitle = nullptr;
  QLabel* m_headerSubtitle = nullptr;
  QScrollArea* m_scroll = nullptr;  // figures, link, reasons and cameras
  QWidget* m_metrics[4] = {};       // CPU, RSS, thumb drops, worst or newest frame
  QWidget* m_link = nullptr;
  QLabel* m_linkSymbol = nullptr;
  QLabel* m_linkText = nullptr;
  QFrame* m_degraded = nullptr;
  QLabel* m_degradedTitle = nullptr;
  QLabel* m_degradedReasons[3] = {};
  QVBoxLayout* m_cameraList = nullptr;
  std::vector<QWidget*> m_cameraRows;
  QLabel* m_moreCameras = nullptr;
  QLabel* m_unreachable = nullptr;
  std::optional<QRect> m_anchor;
  bool m_stale = false;  // the state changed while the popover was closed
};

// Where a popover of `size` goes: centred under `anchor` when the tray gives
// the item's rectangle, else under `cursor`; flipped above when there is no
// room below (a panel at the bottom of the screen), and kept inside `screen`
// (the available geometry) with a small margin at the sides.
QPoint popoverPosition(QSize size, std::optional<QRect> anchor, QPoint cursor, QRect screen);

}  // namespace zev

#endif  // ZEV_APP_POPOVER_VIEW_H_
