// Notifier on the freedesktop notification service: Notify on
// org.freedesktop.Notifications over the session bus, clicks through its
// ActionInvoked signal. Every call is asynchronous with a time-out; the main
// thread never waits for the service. A bus or service that is missing is
// logged once, and again only after it has worked in between. The body is
// escaped when the server reads body markup (or has not said yet); titles
// carry no markup characters (see Notification). A new health notification
// replaces the previous one, so the stopped one does not linger under the
// recovered one. GUI thread.
#ifndef ZEV_PLATFORM_LINUX_NOTIFIER_LINUX_H_
#define ZEV_PLATFORM_LINUX_NOTIFIER_LINUX_H_

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <deque>
#include <functional>
#include <optional>
#include <utility>

#include "app/ports/notifier.h"

namespace zev {

class FreedesktopNotifier : public QObject, public Notifier {
  Q_OBJECT

 public:
  static constexpr int callTimeoutMS = 5000;
  // Clicks are remembered for this many of the latest notifications.
  static constexpr std::size_t rememberedNotifications = 32;

  // `log` must outlive the notifier.
  FreedesktopNotifier(QDBusConnection bus, SystemLog& log, QObject* parent = nullptr);

  void show(const Notification& notification) override;
  void setActivationHandler(std::function<void(NotificationTarget)> handler) override;

  // The body as it is sent: `text` with &, < and > escaped when the server
  // may read it as markup.
  static QString bodyForServer(const QString& text, bool escapeMarkup);

 signals:
  // After the service answered a Notify call (or failed to), for tests.
  void notifyFinished(bool ok);
  // After GetCapabilities answered (or failed), for tests.
  void capabilitiesFinished();

 private slots:
  void onActionInvoked(uint id, const QString& actionKey);
  void onNotificationClosed(uint id, uint reason);

 private:
  void reportUnavailable(const QString& why);
  void remember(uint id, NotificationTarget target);

  QDBusConnection m_bus;
  SystemLog& m_log;
  std::function<void(NotificationTarget)> m_handler;
  std::deque<std::pair<uint, NotificationTarget>> m_shown;  // newest last
  std::optional<bool> m_bodyMarkup;                         // unknown until GetCapabilities answers
  bool m_unavailableLogged = false;
  uint m_healthNotificationId = 0;  // the one a new health notification replaces
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_NOTIFIER_LINUX_H_
