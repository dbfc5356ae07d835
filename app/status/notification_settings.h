// The user's switch for desktop notifications, kept across runs in a small
// settings file of the launcher's own:
//   Linux  $XDG_CONFIG_HOME/ZEV/launcher.conf (XDG_CONFIG_HOME must be an
//          absolute path; else ~/.config/ZEV/launcher.conf, with ~ = $HOME)
//   macOS  ~/Library/Preferences/ZEV/launcher.conf
// The path is taken from the environment when the object is made, so a test
// with its own HOME never touches the user's file. GUI thread.
#ifndef ZEV_APP_STATUS_NOTIFICATION_SETTINGS_H_
#define ZEV_APP_STATUS_NOTIFICATION_SETTINGS_H_

#include <QString>

namespace zev {

class NotificationSettings {
 public:
  static QString defaultPath();

  explicit NotificationSettings(QString path = defaultPath()) : m_path(std::move(path)) {}

  const QString& path() const { return m_path; }
  // On unless the user turned them off; a file that cannot be read counts as
  // never written.
  bool notificationsEnabled() const;
  // Writes the file at once; a failure is reported as false (the switch then
  // holds for this run only).
  bool setNotificationsEnabled(bool enabled);

 private:
  QString m_path;
};

}  // namespace zev

#endif  // ZEV_APP_STATUS_NOTIFICATION_SETTINGS_H_
