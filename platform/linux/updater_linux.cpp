#include "platform/linux/updater_linux.h"

#include <QCoreApplication>
#include <QFile>
#include <QMetaObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QThreadPool>
#include <QTimer>
#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <system_error>

#include "app/ports/bundle_info.h"
#include "app/ports/system_log.h"
#include "core/updates/version_comparator.h"
#include "platform/linux/bundle_manifest.h"
#include "platform/linux/bundle_swap_linux.h"
#include "platform/linux/update_archive_linux.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

constexpr qint64 readBufferBytes = 256 * 1024;
constexpr std::chrono::seconds minCheckInterval{3600};
constexpr std::chrono::seconds firstScheduledCheck{60};
// A staged update handed to the application is not handed over again before
// this long: its preparation (health, archive copy, checks) may still run.
constexpr std::chrono::minutes reofferAfter{5};

// A version as part of a file name: anything but [A-Za-z0-9._-] becomes '_'.
std::string fileNamePart(const std::string& version) {
  std::string out = version.substr(0, 64);
  for (char& c : out) {
    const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '.' || c == '-' || c == '_';
    if (!keep) c = '_';
  }
  return out;
}

void removeQuietly(const fs::path& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

// Removes staging directories that earlier runs left beside the bundle: the
// previous bundle after an exchange, or a refused update's remains. Skipped
// while a swap note says a two-rename swap still needs one of them.
void removeLeftoverStaging(const fs::path& bundle) {
  std::error_code ec;
  const fs::path parent = bundle.parent_path();
  if (fs::exists(parent / swapNoteName, ec)) return;
  for (fs::directory_iterator it(parent, ec), end; !ec && it != end; it.increment(ec)) {
    if (it->path().filename().string().rfind(stagingPrefix, 0) == 0) removeQuietly(it->path());
  }
}

struct CheckedArchive {
  std::optional<std::string> error;
  fs::path staging;
};

// Signature, then unpacking; on the thread pool.
CheckedArchive checkAndUnpack(const fs::path& file, const std::string& signature,
                              const std::string& publicKey, const fs::path& bundle) {
  CheckedArchive result;
  if (signature.empty()) {
    result.error = "the archive is not signed (no sparkle:edSignature)";
    return result;
  }
  if (publicKey.empty()) {
    result.error = "this build has no SUPublicEDKey to check the archive with";
    return result;
  }
  std::ifstream in(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (!in.good() && !in.eof()) {
    result.error = "cannot read the downloaded archive";
    return result;
  }
  if (!manifest::verify(bytes, signature, publicKey)) {
    result.error = "the archive's Ed25519 signature does not verify with SUPublicEDKey";
    return result;
  }
  try {
    result.staging = makeStagingDirectory(bundle);
  } catch (const fs::filesystem_error& e) {
    result.error = std::string("cannot make a staging directory beside the bundle: ") + e.what();
    return result;
  }
  if (auto error = unpackUpdateArchive(file, result.staging)) {
    removeQuietly(result.staging);
    result.staging.clear();
    result.error = *error;
  }
  return result;
}

}  // namespace

struct LinuxUpdater::Staged {
  AppcastItem item;
  fs::path staging;
  // When it was last handed to the application.
  std::optional<std::chrono::steady_clock::time_point> offeredAt;
};

LinuxUpdater::LinuxUpdater(BundleInfo& bundleInfo, SystemLog& log, fs::path cacheDirectory,
                           QObject* parent)
    : QObject(parent),
      m_bundleInfo(bundleInfo),
      m_log(log),
      m_cacheDirectory(std::move(cacheDirectory)),
      m_session(std::make_unique<QNetworkAccessManager>()) {
  m_session->setProxy(QNetworkProxy::NoProxy);
  launchExecutable = [](const fs::path& executable) {
    return QProcess::startDetached(QString::fromStdString(executable.string()), {});
  };
  quitApplication = [] {
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
  };
}

LinuxUpdater::~LinuxUpdater() {
  for (QNetworkReply* reply : m_session->findChildren<QNetworkReply*>()) {
    reply->disconnect(this);
    reply->abort();
  }
  if (m_staged) removeQuietly(m_staged->staging);
}

void LinuxUpdater::start(UpdaterDelegate& delegate) {
  m_delegate = &delegate;
  const fs::path bundle = m_bundleInfo.bundlePath();
  if (auto error = recoverInterruptedSwap(bundle)) m_log.error("updater: " + *error);
  // Leftovers can be a whole bundle; remove them off the main thread.
  QThreadPool::globalInstance()->start([bundle] { removeLeftoverStaging(bundle); });
}

void LinuxUpdater::setAutomaticallyChecksForUpdates(bool on) {
  if (!on) {
    delete m_scheduleTimer;
    m_scheduleTimer = nullptr;
    return;
  }
  if (m_scheduleTimer) return;
  std::chrono::seconds interval = defaultCheckInterval;
  if (const auto text = m_bundleInfo.stringValue(checkIntervalKey)) {
    long long seconds = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), seconds);
    if (error == std::errc() && end == text->data() + text->size() && seconds > 0) {
      interval = std::chrono::seconds(std::min<long long>(seconds, 30LL * 86400));
    }
  }
  interval = std::max(interval, minCheckInterval);
  m_scheduleTimer = new QTimer(this);
  m_scheduleTimer->setSingleShot(true);
  connect(m_scheduleTimer, &QTimer::timeout, this, [this, interval] {
    checkForUpdatesInBackground();
    m_scheduleTimer->start(interval);
  });
  m_scheduleTimer->start(std::min<std::chrono::milliseconds>(firstScheduledCheck, interval));
}

std::optional<std::string> LinuxUpdater::feedURL() const {
  std::optional<std::string> feed = m_bundleInfo.stringValue(feedURLKey);
  if (feed && feed->empty()) return std::nullopt;
  return feed;
}

std::string LinuxUpdater::currentVersion() const {
  return m_bundleInfo.stringValue("CFBundleVersion").value_or("0");
}

void LinuxUpdater::checkForUpdatesInBackground() { beginCheck(Origin::background); }

void LinuxUpdater::checkForUpdates() { beginCheck(Origin::user); }

void LinuxUpdater::tell(const UpdateCheckFeedback& feedback, Origin origin) {
  if (origin == Origin::user && m_delegate) m_delegate->showUserInitiatedCheckFeedback(feedback);
}

void LinuxUpdater::endCheck(Origin origin, const std::string& error) {
  m_busy = false;
  if (!error.empty()) {
    m_log.error("update check failed: " + error);
    UpdateCheckFeedback feedback;
    feedback.kind = UpdateCheckFeedback::Kind::error;
    feedback.errorDescription = error;
    tell(feedback, origin);
  }
  emit checkEnded();
}

void LinuxUpdater::beginCheck(Origin origin) {
  if (!m_delegate) return;
  if (m_busy) {
    m_log.info("update check skipped: another one is running");
    return;
  }
  if (m_staged) {
    // Offered before and not installed (the application held it back):
    // offer the same staged bundle again rather than downloading it anew,
    // but not while the application may still be preparing it.
    if (m_staged->offeredAt &&
        std::chrono::steady_clock::now() - *m_staged->offeredAt < reofferAfter) {
      m_log.info("update check skipped: update " + m_staged->item.versionString +
                 " is being prepared");
      return;
    }
    if (origin == Origin::user) {
      UpdateCheckFeedback offer;
      offer.kind = UpdateCheckFeedback::Kind::updateAvailable;
      offer.item = UpdateItem{m_staged->item.versionString, m_staged->item.displayVersionString};
      offer.releaseNotes = m_staged->item.releaseNotes;
      offer.install = [self = QPointer(this), staging = m_staged->staging] {
        if (self && self->m_staged && self->m_staged->staging == staging && !self->m_busy) {
          self->staged(Origin::user, self->m_staged->item, staging);
        }
      };
      tell(offer, origin);
      return;
    }
    staged(origin, m_staged->item, m_staged->staging);
    return;
  }
  const std::optional<std::string> feed = feedURL();
  if (!feed) {
    m_log.info("update check skipped: no SUFeedURL in Info.plist");
    UpdateCheckFeedback feedback;
    feedback.kind = UpdateCheckFeedback::Kind::error;
    feedback.errorDescription = "This build has no update feed configured.";
    tell(feedback, origin);
    return;
  }
  const QUrl url(QString::fromStdString(*feed));
  if (!url.isValid() || (url.scheme() != u"https" && url.scheme() != u"http")) {
    m_busy = true;
    endCheck(origin, "the feed address is not an http(s) URL: " + *feed);
    return;
  }
  m_busy = true;
  tell(UpdateCheckFeedback{}, origin);  // "checking…"
  m_log.info("update check: reading " + *feed);

  QNetworkRequest request(url);
  request.setTransferTimeout(static_cast<int>(m_stallTimeout.count()));
  QNetworkReply* reply = m_session->get(request);
  reply->setReadBufferSize(readBufferBytes);
  auto body = std::make_shared<QByteArray>();
  auto tooLarge = std::make_shared<bool>(false);
  connect(reply, &QNetworkReply::readyRead, this, [reply, body, tooLarge] {
    body->append(reply->read(static_cast<qint64>(maxAppcastBytes) + 1 - body->size()));
    if (body->size() > static_cast<qsizetype>(maxAppcastBytes)) {
      *tooLarge = true;
      reply->abort();
    }
  });
  QTimer::singleShot(m_feedTimeout, reply, [reply] { reply->abort(); });
  connect(reply, &QNetworkReply::finished, this, [this, reply, body, tooLarge, origin] {
    reply->deleteLater();
    if (*tooLarge) return endCheck(origin, "the feed is larger than 1 MiB");
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status != 0 && status != 200) {
      return endCheck(origin, "the feed answered HTTP " + std::to_string(status));
    }
    if (reply->error() != QNetworkReply::NoError) {
      return endCheck(origin, "cannot read the feed: " + reply->errorString().toStdString());
    }
    feedArrived(origin, *body);
  });
}

void LinuxUpdater::feedArrived(Origin origin, const QByteArray& body) {
  const auto parsed = parseAppcast(std::string_view(body.constData(), body.size()));
  if (const auto* error = std::get_if<AppcastError>(&parsed)) {
    return endCheck(origin, error->description);
  }
  const AppcastItem* newest = newestItem(std::get<Appcast>(parsed));
  const std::string running = currentVersion();
  if (!newest || compareVersions(newest->versionString, running) <= 0) {
    m_log.info("update check: " + running + " is the newest version");
    UpdateCheckFeedback feedback;
    feedback.kind = UpdateCheckFeedback::Kind::upToDate;
    tell(feedback, origin);
    m_busy = false;
    emit checkEnded();
    return;
  }
  const AppcastItem item = *newest;
  const fs::path bundle = m_bundleInfo.bundlePath();
  if (!bundleIsUsersOwn(bundle)) {
    m_log.error("update " + item.versionString + " is available, but " + bundle.string() +
                " is not this user's to replace; update it the way it was installed");
    return endCheck(origin, "ZEV " + item.displayVersionString +
                                " is available. This copy was installed for the whole system; "
                                "update it with the system's package manager.");
  }
  const QUrl base(QString::fromStdString(*feedURL()));
  const QUrl url = base.resolved(QUrl(QString::fromStdString(item.url)));
  if (url.scheme() != u"https" && url.scheme() != u"http") {
    return endCheck(origin, "update " + item.versionString + " refused: its archive address is "
                                                             "not an http(s) URL");
  }
  if (origin == Origin::background) {
    if (!m_automaticDownloads) {
      m_log.info("update " + item.versionString + " is available; automatic downloads are off");
      m_busy = false;
      emit checkEnded();
      return;
    }
    return download(origin, item, url);
  }
  UpdateCheckFeedback offer;
  offer.kind = UpdateCheckFeedback::Kind::updateAvailable;
  offer.item = UpdateItem{item.versionString, item.displayVersionString};
  offer.releaseNotes = item.releaseNotes;
  offer.install = [self = QPointer(this), item, url] {
    if (self && !self->m_busy) {
      self->m_busy = true;
      self->download(Origin::user, item, url);
    }
  };
  m_log.info("update " + item.versionString + " offered to the user");
  m_busy = false;  // until the user accepts
  tell(offer, origin);
  emit checkEnded();
}

void LinuxUpdater::download(Origin origin, const AppcastItem& item, const QUrl& url) {
  if (item.length && static_cast<std::int64_t>(*item.length) > maxArchiveBytes) {
    return endCheck(origin, "update " + item.versionString + " refused: its archive is larger "
                                                             "than 512 MiB");
  }
  std::error_code ec;
  fs::create_directories(m_cacheDirectory, ec);
  const fs::path file = m_cacheDirectory / ("ZEV-" + fileNamePart(item.versionString) + ".download");
  auto out = std::make_shared<QFile>(QString::fromStdString(file.string()));
  if (ec || !out->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
    return endCheck(origin, "cannot write the download to " + file.string());
  }
  m_log.info("update " + item.versionString + " found (running " + currentVersion() +
             "); downloading " + url.toString().toStdString());

  const qint64 cap = item.length ? static_cast<qint64>(*item.length) : maxArchiveBytes;
  QNetworkRequest request(url);
  request.setTransferTimeout(static_cast<int>(m_stallTimeout.count()));
  QNetworkReply* reply = m_session->get(request);
  reply->setReadBufferSize(readBufferBytes);
  auto written = std::make_shared<qint64>(0);
  auto failure = std::make_shared<std::string>();
  auto nextReport = std::make_shared<int>(25);
  connect(reply, &QNetworkReply::readyRead, this,
          [this, reply, out, written, failure, nextReport, cap, item] {
            const QByteArray chunk = reply->read(cap + 1 - *written);
            *written += chunk.size();
            if (*written > cap) {
              *failure = "the download is larger than the feed announced";
              reply->abort();
              return;
            }
            if (out->write(chunk) != chunk.size()) {
              *failure = "cannot write the download: " + out->errorString().toStdString();
              reply->abort();
              return;
            }
            if (item.length && *item.length > 0) {
              const int percent = static_cast<int>(*written * 100 / cap);
              if (percent >= *nextReport) {
                m_log.info("update " + item.versionString + " download: " +
                           std::to_string(percent) + "% (" + std::to_string(*written) + " of " +
                           std::to_string(cap) + " bytes)");
                while (*nextReport <= percent) *nextReport += 25;
              }
            }
          });
  connect(reply, &QNetworkReply::finished, this,
          [this, reply, out, written, failure, item, file, origin] {
            reply->deleteLater();
            const bool closed = out->flush() && (out->close(), out->error() == QFile::NoError);
            std::string error = *failure;
            const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            if (error.empty() && status != 0 && status != 200) {
              error = "download failed: HTTP " + std::to_string(status);
            }
            if (error.empty() && reply->error() != QNetworkReply::NoError) {
              error = "download failed: " + reply->errorString().toStdString();
            }
            if (error.empty() && item.length && static_cast<std::uint64_t>(*written) != *item.length) {
              error = "truncated download: " + std::to_string(*written) + " of " +
                      std::to_string(*item.length) + " bytes";
            }
            if (error.empty() && !closed) error = "cannot write the download";
            if (!error.empty()) {
              removeQuietly(file);
              return endCheck(origin, "update " + item.versionString + " refused: " + error);
            }
            verifyAndUnpack(origin, item, file);
          });
}

void LinuxUpdater::verifyAndUnpack(Origin origin, const AppcastItem& item, const fs::path& file) {
  const std::string publicKey = m_bundleInfo.stringValue(publicKeyKey).value_or("");
  const fs::path bundle = m_bundleInfo.bundlePath();
  QPointer<LinuxUpdater> self(this);
  QThreadPool::globalInstance()->start([self, origin, item, file, publicKey, bundle] {
    CheckedArchive checked = checkAndUnpack(file, item.edSignature, publicKey, bundle);
    removeQuietly(file);
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [self, origin, item, checked] {
          if (!self) {
            if (!checked.staging.empty()) removeQuietly(checked.staging);
            return;
          }
          if (checked.error) {
            return self->endCheck(origin,
                                  "update " + item.versionString + " refused: " + *checked.error);
          }
          self->staged(origin, item, checked.staging);
        },
        Qt::QueuedConnection);
  });
}

void LinuxUpdater::staged(Origin origin, const AppcastItem& item, const fs::path& staging) {
  if (!m_staged || m_staged->staging != staging) {
    if (m_staged) removeQuietly(m_staged->staging);
    m_staged = std::make_unique<Staged>(Staged{item, staging, std::nullopt});
    m_log.info("update " + item.versionString + " verified and staged in " + staging.string());
  }
  m_busy = false;
  m_staged->offeredAt = std::chrono::steady_clock::now();
  emit checkEnded();
  if (!m_delegate) return;
  const UpdateItem offered{item.versionString, item.displayVersionString};
  auto release = [self = QPointer(this), staging] {
    // At most once, and only for the bundle still staged.
    if (self && self->m_staged && self->m_staged->staging == staging) self->install();
  };
  const bool held = origin == Origin::user
                        ? m_delegate->shouldPostponeRelaunchForUpdate(offered, release)
                        : m_delegate->willInstallUpdateOnQuit(offered, release);
  if (!held) install();
}

void LinuxUpdater::install() {
  if (!m_staged) return;
  const std::unique_ptr<Staged> staged = std::move(m_staged);
  const std::string& version = staged->item.versionString;
  const fs::path bundle = m_bundleInfo.bundlePath();
  if (!bundleIsUsersOwn(bundle)) {
    m_log.error("update " + version + " not installed: " + bundle.string() +
                " is not this user's to replace");
    removeQuietly(staged->staging);
    emit installEnded(false);
    return;
  }
  SwapOutcome outcome;
  const auto started = std::chrono::steady_clock::now();
  if (auto error = swapInBundle(bundle, staged->staging, SwapMethod::exchangeWhereSupported,
                                outcome)) {
    m_log.error("update " + version + " not installed: " + *error);
    // A note left behind means the staging directory still holds a bundle
    // that recovery needs; otherwise it is only the refused update.
    std::error_code ec;
    if (!fs::exists(bundle.parent_path() / swapNoteName, ec)) removeQuietly(staged->staging);
    emit installEnded(false);
    return;
  }
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - started);
  m_log.info("update " + version + " installed in " + bundle.string() + " (" +
             (outcome.exchanged ? "exchanged in one step" : "two renames") + ", " +
             std::to_string(elapsed.count()) + " us); starting the new launcher");
  const std::string executableName =
      m_bundleInfo.stringValue("CFBundleExecutable").value_or("ZEVLauncher");
  const fs::path executable = bundle / "Contents" / "Linux" / fs::path(executableName).filename();
  emit installEnded(true);
  if (!launchExecutable || !launchExecutable(executable)) {
    m_log.error("cannot start the new launcher " + executable.string() +
                "; it starts at the next login or when started by hand");
    return;
  }
  if (quitApplication) quitApplication();
}

}  // namespace zev
