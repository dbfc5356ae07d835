#include "app/status/notification_settings.h"

#include <QDir>
#include <QSettings>

namespace zev {
namespace {

constexpr const char* kEnabledKey = "notifications/enabled";

}  // namespace

QString NotificationSettings::defaultPath() {
#ifdef Q_OS_MACOS
  const QString base = QDir::homePath() + QStringLiteral("/Library/Preferences");
#else
  QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
  if (!QDir::isAbsolutePath(base)) base = QDir::homePath() + QStringLiteral("/.config");
#endif
  return base + QStringLiteral("/ZEV/launcher.conf");
}

bool NotificationSettings::notificationsEnabled() const {
  const QSettings settings(m_path, QSettings::IniFormat);
  return settings.value(kEnabledKey, true).toBool();
}

bool NotificationSettings::setNotificationsEnabled(bool enabled) {
  QSettings settings(m_path, QSettings::IniFormat);
  settings.setValue(kEnabledKey, enabled);
  settings.sync();
  return settings.status() == QSettings::NoError;
}

}  // namespace zev
