#include "platform/linux/workspace_linux.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QStringList>
#include <utility>

namespace zev {

LinuxWorkspace::LinuxWorkspace(QDBusConnection bus, UrlOpener openUrl)
    : m_bus(std::move(bus)), m_openUrl(std::move(openUrl)) {
  if (!m_openUrl) m_openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
}

void LinuxWorkspace::openURL(const std::string& url) {
  m_openUrl(QUrl(QString::fromStdString(url)));
}

void LinuxWorkspace::revealFile(const std::filesystem::path& file) {
  const QUrl fileUrl = QUrl::fromLocalFile(QString::fromStdString(file.string()));
  const QUrl folderUrl = QUrl::fromLocalFile(QString::fromStdString(file.parent_path().string()));
  UrlOpener openUrl = m_openUrl;
  if (!m_bus.isConnected()) {
    openUrl(folderUrl);
    return;
  }
  QDBusMessage showItems = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"),
      QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
  showItems << QStringList{fileUrl.toString(QUrl::FullyEncoded)} << QString();
  // The watcher deletes itself; the callback captures copies only, so it is
  // safe should this workspace be gone by the time the answer comes.
  auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(showItems, 5000));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                   [openUrl, folderUrl](QDBusPendingCallWatcher* call) {
                     if (call->isError()) openUrl(folderUrl);
                     call->deleteLater();
                   });
}

}  // namespace zev
