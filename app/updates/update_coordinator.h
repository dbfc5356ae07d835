// UpdateCoordinator: the launcher's certified updates, owned by the
// AppDelegate, which forwards its launch steps and the popover's check action
// here.
//
//  - startSparkle: starts the updater (automatic checks and downloads) with
//    this object as its delegate.
//  - Preparation: when the updater is about to install, prepareUpdate takes a
//    health baseline of the daemon, records a `preparing` transaction, copies
//    and verifies the running bundle on a worker thread, records
//    `installing`, and only then releases the installation. Any failure
//    holds the update back (the installation is never released) and, once a
//    baseline exists, records `failed` with a reason.
//  - Verification: after the relaunch, resumeUpdateVerificationIfNeeded
//    samples the daemon every 5 s until the verifier certifies the update or
//    the certification window (180 s from the saved updatedAt) has passed,
//    then records the result and prunes old archives.
//  - Push watcher: every 2 s, a sentinel file whose modification date is
//    strictly later than the last one seen triggers a background check.
//  - While the reliability directory holds an update-hold marker, no
//    preparation starts.
//
// GUI thread only, except the archiving step, which owns a copy of the
// transaction while it runs and hands its result back through a QPointer.
// Network replies and timers hold the coordinator weakly. Every "now" comes
// from the injected clock. The main thread never waits: requests are
// asynchronous and bounded by time and size.
#ifndef ZEV_APP_UPDATES_UPDATE_COORDINATOR_H_
#define ZEV_APP_UPDATES_UPDATE_COORDINATOR_H_

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/ports/updater.h"
#include "app/shell/clock.h"
#include "core/updates/update_health.h"
#include "core/updates/update_transaction.h"
#include "core/updates/update_verifier.h"

class QNetworkAccessManager;
class QTimer;

namespace zev {

class AppActivation;
class ArchiveTool;
class BundleInfo;
class SystemLog;

class UpdateCoordinator : public QObject, public UpdaterDelegate {
  Q_OBJECT

 public:
  static constexpr std::chrono::milliseconds healthTimeout{3000};
  static constexpr std::chrono::milliseconds verificationInterval{5000};
  static constexpr std::chrono::milliseconds sentinelInterval{2000};
  static constexpr std::chrono::seconds defaultCertificationWindow{180};
  // Info.plist key that shortens or lengthens the window (whole seconds,
  // 1 to 86400, written as a <string>); anything else means 180.
  static constexpr const char* certificationWindowKey = "ZEVCertificationWindowSeconds";
  // A health answer larger than this is dropped unread.
  static constexpr qint64 maxHealthBodyBytes = 1 << 20;

  struct Ports {
    SystemLog& log;                            // com.zev.zevd / launcher
    BundleInfo& bundleInfo;                    // the running bundle
    Updater* updater = nullptr;                // none: no checks, nothing installs
    std::shared_ptr<ArchiveTool> archiveTool;  // none: every preparation fails
    AppActivation* activation = nullptr;       // none: no policy switching
  };

  // `reliabilityDirectory` and `localBase` are read each time they are needed
  // (the AppDelegate's computed directory; the daemon's base URL).
  UpdateCoordinator(Ports ports, Clock clock,
                    std::function<std::filesystem::path()> reliabilityDirectory,
                    std::function<QUrl()> localBase, QObject* parent = nullptr);
  ~UpdateCoordinator() override;

  // Launch steps, in this order after the daemon has been kicked.
  void resumeUpdateVerificationIfNeeded();
  void startSparkle();
  void startUpdatePushWatcher();

  // The popover's check-for-updates action: a user-initiated check with
  // visible feedback. Does nothing before startSparkle.
  void checkForUpdates();

  // One poll of the sentinel (the push watcher's timer calls it).
  void checkUpdateSentinel();

  // Baseline, preparing record, archive, installing record, then
  // `immediateInstallHandler` on the main thread. Refused while the update
  // hold is active.
  void prepareUpdate(const std::string& targetVersion,
                     std::function<void()> immediateInstallHandler);

  // One GET of <localBase>/api/health, given up after 3 s or beyond
  // maxHealthBodyBytes. Only a body that decodes as a health document counts
  // (the HTTP status is not examined). `completion` always runs later, on the
  // main thread, unless the coordinator is destroyed first.
  void fetchUpdateHealth(std::function<void(std::optional<UpdateHealth>)> completion);

  // Ends the running verification: records `state` and `reason` (cleared
  // when none) with updatedAt = now, prunes archives, logs the result and
  // calls onUpdateFinished. Without a transaction only the timer stops.
  void finishVerification(UpdateState state, std::optional<std::string> reason);

  // Removes the archives the retention rules no longer keep. Throws the
  // store's error, or ArchivePathError for a path outside
  // <reliability>/archives, which stops the pruning there.
  void pruneArchives();

  // Called at the end of every finishVerification that had a transaction,
  // with the record as saved (certified or failed).
  std::function<void(const UpdateTransaction&)> onUpdateFinished;

  // Shows the feedback of a user-initiated check. Defaults to a small
  // non-modal message window; tests replace it.
  std::function<void(const UpdateCheckFeedback&)> presentCheckFeedback;

  // UpdaterDelegate.
  bool willInstallUpdateOnQuit(const UpdateItem& item,
                               std::function<void()> immediateInstallation) override;
  bool shouldPostponeRelaunchForUpdate(const UpdateItem& item,
                                       std::function<void()> resume) override;
  bool supportsGentleScheduledUpdateReminders() override { return true; }
  bool standardUserDriverShouldHandleShowingScheduledUpdate(const UpdateItem&, bool) override {
    return false;
  }
  void standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate, const UpdateItem& item,
                                                 const UserUpdateState& state) override;
  void standardUserDriverDidReceiveUserAttention(const UpdateItem& item) override;
  void showUserInitiatedCheckFeedback(const UpdateCheckFeedback& feedback) override;

  // The window after which an uncertified update fails: the test override,
  // else Info.plist's key, else 180 s.
  std::chrono::milliseconds certificationWindow() const;
  std::string sentinelPath() const { return m_sentinelPath; }

  bool isVerifying() const { return m_verificationTimer != nullptr; }
  const std::optional<UpdateTransaction>& updateTransaction() const { return m_updateTransaction; }
  bool isPushWatcherRunning() const { return m_updatePushTimer != nullptr; }

  // Test seams.
  void setSentinelPathForTesting(std::string path) { m_sentinelPath = std::move(path); }
  void setCertificationWindowForTesting(std::chrono::milliseconds window) {
    m_windowOverride = window;
  }
  void setVerificationIntervalForTesting(std::chrono::milliseconds interval) {
    m_verificationInterval = interval;
  }
  void setSentinelIntervalForTesting(std::chrono::milliseconds interval) {
    m_sentinelInterval = interval;
  }
  void setHealthTimeoutForTesting(std::chrono::milliseconds timeout) { m_healthTimeout = timeout; }
  int healthRequestsStarted() const { return m_healthRequestsStarted; }
  // Runs the verification timer's callback now (nothing when none runs).
  void tickVerificationForTesting() { runTick(); }

 signals:
  // A preparation stopped, whatever the outcome (released, refused, failed).
  void preparationEnded();
  // A verification sample was handled (or dropped).
  void healthSampleHandled();
  // finishVerification ran.
  void verificationFinished();

 private:
  struct ArchiveOutcome;
  void continuePreparation(std::optional<UpdateHealth> sample, const std::string& targetVersion,
                           std::function<void()> immediateInstallHandler);
  void archiveFinished(const ArchiveOutcome& outcome,
                       std::function<void()> immediateInstallHandler);
  void verificationTick(Timestamp deadline);
  void stopVerificationTimer();
  void runTick();
  void handleVerificationSample(const std::optional<UpdateHealth>& sample);
  Timestamp now() const;
  std::string timeoutReason() const;

  SystemLog& m_log;
  BundleInfo& m_bundleInfo;
  Updater* m_updater;
  std::shared_ptr<ArchiveTool> m_archiveTool;
  AppActivation* m_activation;
  Clock m_clock;
  std::function<std::filesystem::path()> m_reliabilityDirectory;
  std::function<QUrl()> m_localBase;

  bool m_updaterStarted = false;
  QTimer* m_updatePushTimer = nullptr;
  std::optional<std::chrono::nanoseconds> m_lastSentinelMtime;  // since 1970
  QTimer* m_verificationTimer = nullptr;
  std::function<void()> m_tick;  // the timer's callback, with its deadline
  std::optional<UpdateVerifier> m_updateVerifier;
  std::optional<UpdateTransaction> m_updateTransaction;
  std::string m_sentinelPath;

  std::unique_ptr<QNetworkAccessManager> m_session;
  std::chrono::milliseconds m_healthTimeout = healthTimeout;
  std::chrono::milliseconds m_verificationInterval = verificationInterval;
  std::chrono::milliseconds m_sentinelInterval = sentinelInterval;
  std::optional<std::chrono::milliseconds> m_windowOverride;
  int m_healthRequestsStarted = 0;
};

}  // namespace zev

#endif  // ZEV_APP_UPDATES_UPDATE_COORDINATOR_H_
