// The launcher's own updater on Linux, behind the same Updater port as
// Sparkle on macOS and speaking Sparkle's appcast, so one feed serves both.
//
// A check reads the feed (SUFeedURL in Info.plist), picks the newest item by
// Sparkle's version ordering and compares it with the bundle's
// CFBundleVersion. A newer one is downloaded into the user's cache directory
// (~/.cache/com.zev.launcher/updates), its length and Ed25519 signature
// (SUPublicEDKey) are checked, and it is unpacked into a staging directory
// beside the installed bundle. Only then is the application asked
// (willInstallUpdateOnQuit, or shouldPostponeRelaunchForUpdate for a check
// the user started); when it releases the installation, the staged bundle is
// swapped in, the new launcher is started and this one quits.
//
// Every refusal (unreadable feed, unsigned or badly signed archive, archive
// reaching outside the staging directory, a bundle that is not the user's to
// replace) is one log line; nothing is installed and the staging directory is
// removed. Scheduled checks run every SUScheduledCheckInterval seconds
// (default one day).
//
// GUI thread, except signature checking and unpacking, which run on the
// thread pool and come back through a QPointer. Nothing here blocks the GUI
// thread: the network is asynchronous and bounded in size and time.
#ifndef ZEV_PLATFORM_LINUX_UPDATER_LINUX_H_
#define ZEV_PLATFORM_LINUX_UPDATER_LINUX_H_

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/ports/updater.h"
#include "app/updates/appcast.h"

class QNetworkAccessManager;
class QTimer;

namespace zev {

class BundleInfo;
class SystemLog;

class LinuxUpdater : public QObject, public Updater {
  Q_OBJECT

 public:
  static constexpr const char* feedURLKey = "SUFeedURL";
  static constexpr const char* publicKeyKey = "SUPublicEDKey";
  static constexpr const char* checkIntervalKey = "SUScheduledCheckInterval";
  static constexpr std::chrono::seconds defaultCheckInterval{86400};
  // An archive larger than this is refused whatever the feed says.
  static constexpr std::int64_t maxArchiveBytes = std::int64_t{512} << 20;

  // `cacheDirectory`: where downloads go (created when needed).
  LinuxUpdater(BundleInfo& bundleInfo, SystemLog& log, std::filesystem::path cacheDirectory,
               QObject* parent = nullptr);
  ~LinuxUpdater() override;

  // Updater.
  void start(UpdaterDelegate& delegate) override;
  void setAutomaticallyChecksForUpdates(bool on) override;
  void setAutomaticallyDownloadsUpdates(bool on) override { m_automaticDownloads = on; }
  std::optional<std::string> feedURL() const override;
  void checkForUpdatesInBackground() override;
  void checkForUpdates() override;

  // What an installation does once the bundle is swapped: start the new
  // launcher, then quit this one. Tests replace both.
  std::function<bool(const std::filesystem::path& executable)> launchExecutable;
  std::function<void()> quitApplication;

  void setTimeoutsForTesting(std::chrono::milliseconds feed, std::chrono::milliseconds stall) {
    m_feedTimeout = feed;
    m_stallTimeout = stall;
  }
  bool hasStagedUpdate() const { return m_staged != nullptr; }

 signals:
  // A check ended: nothing newer, an error, or an update staged and handed
  // to the application.
  void checkEnded();
  // The staged bundle is in place (or the swap failed and nothing changed).
  void installEnded(bool installed);

 private:
  struct Staged;
  enum class Origin { background, user };

  void beginCheck(Origin origin);
  void feedArrived(Origin origin, const QByteArray& body);
  void download(Origin origin, const AppcastItem& item, const QUrl& url);
  void verifyAndUnpack(Origin origin, const AppcastItem& item, const std::filesystem::path& file);
  void staged(Origin origin, const AppcastItem& item, const std::filesystem::path& staging);
  void install();
  void endCheck(Origin origin, const std::string& error);
  void tell(const UpdateCheckFeedback& feedback, Origin origin);
  std::string currentVersion() const;

  BundleInfo& m_bundleInfo;
  SystemLog& m_log;
  const std::filesystem::path m_cacheDirectory;
  UpdaterDelegate* m_delegate = nullptr;
  std::unique_ptr<QNetworkAccessManager> m_session;
  QTimer* m_scheduleTimer = nullptr;
  bool m_automaticDownloads = false;
  bool m_busy = false;
  std::unique_ptr<Staged> m_staged;
  std::chrono::milliseconds m_feedTimeout{30'000};
  std::chrono::milliseconds m_stallTimeout{60'000};
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_UPDATER_LINUX_H_
