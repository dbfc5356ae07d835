#include "app/updates/update_coordinator.h"

#include <sys/stat.h>

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QThreadPool>
#include <QTimer>
#include <charconv>
#include <ctime>
#include <exception>
#include <set>
#include <system_error>
#include <utility>

#include "app/ports/app_activation.h"
#include "app/ports/archive_tool.h"
#include "app/ports/bundle_info.h"
#include "app/ports/system_log.h"
#include "app/shell/constants.h"
#include "app/updates/update_check_feedback_window.h"
#include "core/health/health_summary.h"
#include "core/support/uuid.h"
#include "core/updates/archive_path_validator.h"
#include "core/updates/archive_retention.h"
#include "core/updates/update_hold.h"
#include "core/updates/update_transaction_store.h"

namespace zev {
namespace fs = std::filesystem;
namespace {

constexpr const char* blockedReason = "update blocked: configured streams had no healthy baseline";
constexpr long long maxWindowSeconds = 86'400;

// The sentinel's modification time in nanoseconds since 1970, when it has one.
std::optional<std::chrono::nanoseconds> modificationTime(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec);
}

// A date the way the system prints one by default: "2026-11-22 14:03:07 +0000".
std::string describeDate(std::chrono::nanoseconds sinceEpoch) {
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch).count();
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[40];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts);
  return text;
}

}  // namespace

// What the archiving step hands back to the main thread.
struct UpdateCoordinator::ArchiveOutcome {
  std::optional<std::string> error;  // none: archived, verified, saved as installing
};

UpdateCoordinator::UpdateCoordinator(Ports ports, Clock clock,
                                     std::function<fs::path()> reliabilityDirectory,
                                     std::function<QUrl()> localBase, QObject* parent)
    : QObject(parent),
      m_log(ports.log),
      m_bundleInfo(ports.bundleInfo),
      m_updater(ports.updater),
      m_archiveTool(std::move(ports.archiveTool)),
      m_activation(ports.activation),
      m_clock(std::move(clock)),
      m_reliabilityDirectory(std::move(reliabilityDirectory)),
      m_localBase(std::move(localBase)),
      m_sentinelPath(zev::sentinelPath),
      m_session(std::make_unique<QNetworkAccessManager>()) {
  m_session->setProxy(QNetworkProxy::NoProxy);
  presentCheckFeedback = [window = std::make_shared<UpdateCheckFeedbackWindow>()](
                             const UpdateCheckFeedback& feedback) { window->show(feedback); };
}

UpdateCoordinator::~UpdateCoordinator() {
  // Replies that are still running belong to the session; abort them before
  // it goes so that no completion runs against a half-destroyed object.
  for (QNetworkReply* reply : m_session->findChildren<QNetworkReply*>()) {
    reply->disconnect(this);
    reply->abort();
  }
}

Timestamp UpdateCoordinator::now() const {
  return std::chrono::floor<std::chrono::milliseconds>(m_clock());
}

std::chrono::milliseconds UpdateCoordinator::certificationWindow() const {
  if (m_windowOverride) return *m_windowOverride;
  if (const std::optional<std::string> text = m_bundleInfo.stringValue(certificationWindowKey)) {
    long long seconds = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, seconds);
    if (error == std::errc() && stop == end && seconds >= 1 && seconds <= maxWindowSeconds) {
      return std::chrono::seconds(seconds);
    }
  }
  return defaultCertificationWindow;
}

std::string UpdateCoordinator::timeoutReason() const {
  const auto window = certificationWindow();
  // Whole seconds, rounded up, so a window of a few hundred milliseconds in a
  // test does not claim "0 seconds".
  const long long seconds = (window.count() + 999) / 1000;
  return "health certification timed out after " + std::to_string(seconds) + " seconds";
}

// ---- Updater start-up, user-initiated checks and the user driver ----------

void UpdateCoordinator::startSparkle() {
  if (!m_updater) {
    m_log.error("no updater on this platform; updates are not checked");
    return;
  }
  m_updater->start(*this);
  m_updaterStarted = true;
  m_updater->setAutomaticallyChecksForUpdates(true);
  m_updater->setAutomaticallyDownloadsUpdates(true);
  const std::optional<std::string> feed = m_updater->feedURL();
  m_log.info("Sparkle started; feed=" + (feed ? *feed : std::string("<nil>")));
}

void UpdateCoordinator::checkForUpdates() {
  if (!m_updaterStarted) return;
  m_updater->checkForUpdates();
}

void UpdateCoordinator::standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate,
                                                                  const UpdateItem&,
                                                                  const UserUpdateState&) {
  // A tray-only application must become a regular one for the update window
  // to come to the front.
  if (!handleShowingUpdate || !m_activation) return;
  m_activation->becomeRegular();
  m_activation->activate();
}

void UpdateCoordinator::standardUserDriverDidReceiveUserAttention(const UpdateItem&) {
  if (m_activation) m_activation->becomeAccessory();
}

void UpdateCoordinator::showUserInitiatedCheckFeedback(const UpdateCheckFeedback& feedback) {
  if (presentCheckFeedback) presentCheckFeedback(feedback);
}

// ---- Push watcher ----------------------------------------------------------

void UpdateCoordinator::startUpdatePushWatcher() {
  // Replaced, not stopped: the push watcher starts once per run.
  m_updatePushTimer = new QTimer(this);
  m_updatePushTimer->setInterval(m_sentinelInterval);
  connect(m_updatePushTimer, &QTimer::timeout, this, [self = QPointer(this)] {
    if (self) self->checkUpdateSentinel();
  });
  m_updatePushTimer->start();
  m_log.info("update push watcher started; sentinel=" + m_sentinelPath);
}

void UpdateCoordinator::checkUpdateSentinel() {
  const std::optional<std::chrono::nanoseconds> mtime = modificationTime(m_sentinelPath);
  if (!mtime) return;
  // Strictly later only: an equal or older date (a file set back in time, or
  // recreated with an older date) triggers nothing.
  if (m_lastSentinelMtime && *mtime <= *m_lastSentinelMtime) return;
  m_lastSentinelMtime = *mtime;
  m_log.info("update push sentinel touched (mtime=" + describeDate(*mtime) +
             "); triggering Sparkle check");
  if (m_updaterStarted) m_updater->checkForUpdatesInBackground();
}

// ---- Preparation -----------------------------------------------------------

bool UpdateCoordinator::willInstallUpdateOnQuit(const UpdateItem& item,
                                                std::function<void()> immediateInstallation) {
  m_log.info("preparing update " + item.versionString + " for certified installation");
  prepareUpdate(item.versionString, std::move(immediateInstallation));
  return true;
}

bool UpdateCoordinator::shouldPostponeRelaunchForUpdate(const UpdateItem& item,
                                                        std::function<void()> resume) {
  // A user-initiated "install and relaunch" is certified like an automatic one.
  return willInstallUpdateOnQuit(item, std::move(resume));
}

void UpdateCoordinator::prepareUpdate(const std::string& targetVersion,
                                      std::function<void()> immediateInstallHandler) {
  const fs::path directory = m_reliabilityDirectory();
  if (UpdateHold::isActive(directory)) {
    m_log.error("update preparation refused: update hold is active (" +
                (directory / UpdateHold::fileName).string() + ")");
    emit preparationEnded();
    return;
  }
  fetchUpdateHealth(
      [self = QPointer(this), targetVersion,
       handler = std::move(immediateInstallHandler)](std::optional<UpdateHealth> sample) mutable {
        if (!self) return;  // nothing left to log to; the update stays uninstalled
        self->continuePreparation(std::move(sample), targetVersion, std::move(handler));
      });
}

void UpdateCoordinator::continuePreparation(std::optional<UpdateHealth> sample,
                                            const std::string& targetVersion,
                                            std::function<void()> immediateInstallHandler) {
  if (!sample) {
    m_log.error("update preparation failed: daemon health unavailable");
    emit preparationEnded();
    return;
  }
  const Timestamp capturedAt = now();
  const UpdateBaseline baseline = UpdateBaseline::capture(*sample, capturedAt);
  const fs::path reliability = m_reliabilityDirectory();
  const fs::path archives = reliability / "archives";
  // Named by a UUID of its own, not the transaction's id.
  const fs::path archive = archives / ("ZEV.app." + Uuid::random().string());
  UpdateTransaction transaction(sample->build.version, targetVersion, baseline, archive.string(),
                                now(), Uuid::random());
  const UpdateTransactionStore store(reliability);

  if (baseline.isUnexpectedlyEmpty()) {
    transaction.setState(UpdateState::failed);
    transaction.setFailureReason(std::string(blockedReason));
    transaction.setUpdatedAt(now());
    try {
      store.save(transaction);
    } catch (const std::exception&) {
      // The update is held back either way; the log line below says why.
    }
    m_log.error(blockedReason);
    emit preparationEnded();
    return;
  }

  try {
    store.save(transaction);
  } catch (const std::exception& error) {
    m_log.error(std::string("update preparation state write failed: ") + error.what());
    emit preparationEnded();
    return;
  }

  // The copy and its verification read the whole bundle: off the main thread.
  // The task owns the transaction while it runs; only its outcome comes back.
  const fs::path bundle = m_bundleInfo.bundlePath();
  auto task = [self = QPointer(this), tool = m_archiveTool, clock = m_clock, store, archives,
               archive, bundle, transaction,
               handler = std::move(immediateInstallHandler)]() mutable {
    ArchiveOutcome outcome;
    try {
      fs::create_directories(archives);
      if (!tool) throw std::runtime_error("no archive tool on this platform");
      if (auto error = tool->copyBundle(bundle, archive)) throw std::runtime_error(*error);
      if (auto error = tool->verifyCopy(archive)) throw std::runtime_error(*error);
      transaction.setState(UpdateState::installing);
      transaction.setUpdatedAt(std::chrono::floor<std::chrono::milliseconds>(clock()));
      store.save(transaction);
    } catch (const std::exception& error) {
      outcome.error = error.what();
      // A partial archive stays where it is; pruning removes it later.
      transaction.setState(UpdateState::failed);
      transaction.setFailureReason("archive verification failed: " + *outcome.error);
      transaction.setUpdatedAt(std::chrono::floor<std::chrono::milliseconds>(clock()));
      try {
        store.save(transaction);
      } catch (const std::exception&) {
        // Logged as the preparation's failure below; nothing more to do.
      }
    }
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [self, outcome = std::move(outcome), handler = std::move(handler)]() mutable {
          if (self) self->archiveFinished(outcome, std::move(handler));
        },
        Qt::QueuedConnection);
  };
  QThreadPool::globalInstance()->start(std::move(task));
}

void UpdateCoordinator::archiveFinished(const ArchiveOutcome& outcome,
                                        std::function<void()> immediateInstallHandler) {
  if (outcome.error) {
    m_log.error("update preparation failed: " + *outcome.error);
  } else if (immediateInstallHandler) {
    immediateInstallHandler();
  }
  emit preparationEnded();
}

void UpdateCoordinator::fetchUpdateHealth(
    std::function<void(std::optional<UpdateHealth>)> completion) {
  QUrl url = m_localBase();
  QString path = url.path();
  if (!path.endsWith('/')) path += '/';
  url.setPath(path + QStringLiteral("api/health"));

  QNetworkRequest request(url);
  request.setTransferTimeout(int(m_healthTimeout.count()));
  request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
  request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                       QNetworkRequest::ManualRedirectPolicy);
  QNetworkReply* reply = m_session->get(request);
  ++m_healthRequestsStarted;
  // A body larger than the cap is never read: the request is cut short and
  // yields no sample.
  connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64 total) {
    if (received > maxHealthBodyBytes || total > maxHealthBodyBytes) {
      reply->setProperty("zevTooLarge", true);
      reply->abort();
    }
  });
  connect(reply, &QNetworkReply::finished, this, [reply, completion = std::move(completion)] {
    reply->deleteLater();
    std::optional<UpdateHealth> sample;
    if (reply->isOpen() && !reply->property("zevTooLarge").toBool()) {
      // Whatever the status: only a body that decodes counts.
      const QByteArray body = reply->read(maxHealthBodyBytes + 1);
      if (!body.isEmpty() && body.size() <= maxHealthBodyBytes) {
        if (const std::optional<HealthSummary> summary =
                decodeHealth(std::string_view(body.constData(), size_t(body.size())))) {
          sample = summary->updateHealth();
        }
      }
    }
    completion(std::move(sample));
  });
}

// ---- Verification ----------------------------------------------------------

void UpdateCoordinator::resumeUpdateVerificationIfNeeded() {
  const UpdateTransactionStore store(m_reliabilityDirectory());
  std::optional<UpdateTransaction> active;
  try {
    active = store.loadActive();
  } catch (const std::exception& error) {
    m_log.error(std::string("cannot resume update verification: ") + error.what());
    return;
  }
  if (!active ||
      (active->state() != UpdateState::installing && active->state() != UpdateState::verifying)) {
    return;
  }
  const UpdateTransaction resumed = active->resumedAfterLaunch(now());
  try {
    store.save(resumed);
  } catch (const std::exception& error) {
    m_log.error(std::string("cannot resume update verification: ") + error.what());
    return;
  }
  m_updateTransaction = resumed;
  // A relaunch starts counting healthy samples afresh.
  m_updateVerifier.emplace(resumed.targetVersion(), resumed.baseline());

  // Computed once: a relaunch while verifying keeps the original deadline.
  const Timestamp deadline =
      resumed.updatedAt() +
      std::chrono::duration_cast<std::chrono::milliseconds>(certificationWindow());
  stopVerificationTimer();
  m_verificationTimer = new QTimer(this);
  m_verificationTimer->setInterval(m_verificationInterval);
  m_tick = [self = QPointer(this), deadline] {
    if (self) self->verificationTick(deadline);
  };
  connect(m_verificationTimer, &QTimer::timeout, this, [this] { runTick(); });
  m_verificationTimer->start();
  runTick();  // the first check happens at once
}

void UpdateCoordinator::stopVerificationTimer() {
  // deleteLater: this may run inside the timer's own timeout.
  if (m_verificationTimer) {
    m_verificationTimer->stop();
    m_verificationTimer->deleteLater();
  }
  m_verificationTimer = nullptr;
  m_tick = nullptr;
}

void UpdateCoordinator::runTick() {
  // Through a copy: finishing inside a tick clears m_tick.
  const std::function<void()> tick = m_tick;
  if (tick) tick();
}

void UpdateCoordinator::verificationTick(Timestamp deadline) {
  if (now() >= deadline) {
    finishVerification(UpdateState::failed, timeoutReason());
    return;
  }
  // Ticks do not wait for each other; the request's time-out keeps them
  // from piling up.
  fetchUpdateHealth([self = QPointer(this)](std::optional<UpdateHealth> sample) {
    if (self) self->handleVerificationSample(sample);
  });
}

void UpdateCoordinator::handleVerificationSample(const std::optional<UpdateHealth>& sample) {
  // A missing sample changes nothing: the healthy count is not reset.
  if (sample && m_updateVerifier &&
      m_updateVerifier->observe(*sample) == VerificationProgress::certified) {
    finishVerification(UpdateState::certified, std::nullopt);
  }
  emit healthSampleHandled();
}

void UpdateCoordinator::finishVerification(UpdateState state, std::optional<std::string> reason) {
  stopVerificationTimer();
  if (!m_updateTransaction) return;

  UpdateTransaction transaction = *m_updateTransaction;
  transaction.setState(state);
  transaction.setFailureReason(std::move(reason));
  transaction.setUpdatedAt(now());
  try {
    UpdateTransactionStore(m_reliabilityDirectory()).save(transaction);
    pruneArchives();
  } catch (const std::exception& error) {
    m_log.error(std::string("update result persistence failed: ") + error.what());
  }
  m_updateTransaction.reset();
  m_updateVerifier.reset();
  m_log.info("update " + transaction.targetVersion() +
             " finished state=" + std::string(rawValue(state)));
  if (onUpdateFinished) onUpdateFinished(transaction);
  emit verificationFinished();
}

void UpdateCoordinator::pruneArchives() {
  const fs::path reliability = m_reliabilityDirectory();
  const std::vector<UpdateTransaction> transactions = UpdateTransactionStore(reliability).loadAll();
  std::vector<ArchiveRecord> records;
  records.reserve(transactions.size());
  for (const UpdateTransaction& transaction : transactions) {
    records.push_back({transaction.archivePath(), transaction.state(), transaction.updatedAt()});
  }
  const std::vector<std::string> kept = ArchiveRetention::pathsToKeep(records);
  const std::set<std::string> keep(kept.begin(), kept.end());
  const fs::path root = reliability / "archives";
  for (const ArchiveRecord& record : records) {
    if (keep.contains(record.path)) continue;
    ArchivePathValidator::validate(record.path, root);  // throws: stop here
    std::error_code ignored;                            // already gone, or not removable: go on
    fs::remove_all(record.path, ignored);
  }
}

}  // namespace zev
