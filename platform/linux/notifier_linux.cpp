#include "platform/linux/notifier_linux.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>
#include <algorithm>

#include "app/ports/system_log.h"

namespace zev {
namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
constexpr int kErrorTextMaxChars = 200;

QString qs(const std::string& text) {
  return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

bool isHealthKind(NotificationKind kind) {
  return kind == NotificationKind::recordingStopped ||
         kind == NotificationKind::recordingDegraded || kind == NotificationKind::recordingHealthy;
}

// Urgency hint: 0 low, 1 normal, 2 critical (stays until dismissed).
uchar urgency(NotificationKind kind) {
  switch (kind) {
    case NotificationKind::recordingStopped:
    case NotificationKind::updateFailed:
      return 2;
    case NotificationKind::recordingDegraded:
    case NotificationKind::updateCertified:
      return 1;
    case NotificationKind::recordingHealthy:
      return 0;
  }
  return 1;
}

}  // namespace

FreedesktopNotifier::FreedesktopNotifier(QDBusConnection bus, SystemLog& log, QObject* parent)
    : QObject(parent), m_bus(std::move(bus)), m_log(log) {
  if (!m_bus.isConnected()) return;  // logged on the first show()
  // Signals from whichever process owns the name; ids we did not hand out
  // are ignored.
  m_bus.connect(QString(), kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                SLOT(onActionInvoked(uint, QString)));
  m_bus.connect(QString(), kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                SLOT(onNotificationClosed(uint, uint)));
  const QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface,
                                                           QStringLiteral("GetCapabilities"));
  auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callTimeoutMS), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
    w->deleteLater();
    const QDBusPendingReply<QStringList> reply = *w;
    if (!reply.isError()) m_bodyMarkup = reply.value().contains(QStringLiteral("body-markup"));
    emit capabilitiesFinished();
  });
}

QString FreedesktopNotifier::bodyForServer(const QString& text, bool escapeMarkup) {
  return escapeMarkup ? text.toHtmlEscaped() : text;
}

void FreedesktopNotifier::show(const Notification& notification) {
  if (!m_bus.isConnected()) {
    reportUnavailable(QStringLiteral("no session bus"));
    return;
  }
  const bool health = isHealthKind(notification.kind);
  QVariantMap hints;
  hints.insert(QStringLiteral("urgency"), QVariant::fromValue(urgency(notification.kind)));
  hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("com.zev.launcher"));
  QDBusMessage call =
      QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
  call << QStringLiteral("ZEV Launcher") << (health ? m_healthNotificationId : 0u) << QString()
       << qs(notification.title)
       << bodyForServer(qs(notification.body), m_bodyMarkup.value_or(true))
       << QStringList{QStringLiteral("default"), QStringLiteral("Open")} << hints << int(-1);
  const NotificationTarget target = notification.target;
  auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callTimeoutMS), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [this, target, health](QDBusPendingCallWatcher* w) {
            w->deleteLater();
            const QDBusPendingReply<uint> reply = *w;
            if (reply.isError()) {
              reportUnavailable(reply.error().name() + QStringLiteral(": ") +
                                reply.error().message().left(kErrorTextMaxChars));
              emit notifyFinished(false);
              return;
            }
            if (m_unavailableLogged) m_log.info("desktop notifications work again");
            m_unavailableLogged = false;
            remember(reply.value(), target);
            if (health) m_healthNotificationId = reply.value();
            emit notifyFinished(true);
          });
}

void FreedesktopNotifier::setActivationHandler(std::function<void(NotificationTarget)> handler) {
  m_handler = std::move(handler);
}

void FreedesktopNotifier::reportUnavailable(const QString& why) {
  if (m_unavailableLogged) return;
  m_unavailableLogged = true;
  m_log.info("desktop notifications unavailable (" + why.toStdString() +
             "); state changes are only logged");
}

void FreedesktopNotifier::remember(uint id, NotificationTarget target) {
  // A replaced notification keeps its id: drop the old entry first.
  onNotificationClosed(id, 0);
  m_shown.emplace_back(id, target);
  if (m_shown.size() > rememberedNotifications) m_shown.pop_front();
}

void FreedesktopNotifier::onActionInvoked(uint id, const QString& actionKey) {
  Q_UNUSED(actionKey);  // "default" or "Open": both open the target
  const auto found = std::find_if(m_shown.begin(), m_shown.end(),
                                  [id](const auto& entry) { return entry.first == id; });
  if (found == m_shown.end()) return;
  const NotificationTarget target = found->second;
  // A copy: the handler may replace itself.
  const std::function<void(NotificationTarget)> handler = m_handler;
  if (handler) handler(target);
}

void FreedesktopNotifier::onNotificationClosed(uint id, uint reason) {
  Q_UNUSED(reason);
  m_shown.erase(std::remove_if(m_shown.begin(), m_shown.end(),
                               [id](const auto& entry) { return entry.first == id; }),
                m_shown.end());
}

std::unique_ptr<Notifier> makePlatformNotifier(SystemLog& log) {
  return std::make_unique<FreedesktopNotifier>(QDBusConnection::sessionBus(), log);
}

}  // namespace zev
