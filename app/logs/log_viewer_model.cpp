#include "app/logs/log_viewer_model.h"

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
#include <QThreadPool>
#include <exception>
#include <system_error>

#include "app/logs/byte_count_text.h"
#include "app/logs/log_line_list_model.h"
#include "core/support/atomic_file.h"

namespace zev {

namespace {

constexpr std::chrono::milliseconds kDefaultFollowInterval{250};

// The system's own description of a failure, without our wording around it.
std::string describe(const std::exception& error) {
  if (const auto* fs = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    return fs->code().message();
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return system->code().message();
  }
  return error.what();
}

QString qtext(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Runs `work` on the global pool, then `done(result)` on the main thread.
// The main-thread hop goes through the application object, which outlives
// every model; `done` itself checks that its model is still there.
template <typename Work, typename Done>
void runInBackground(Work work, Done done) {
  QThreadPool::globalInstance()->start([work = std::move(work), done = std::move(done)]() mutable {
    auto result = work();
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [done = std::move(done), result = std::move(result)]() mutable { done(std::move(result)); },
        Qt::QueuedConnection);
  });
}

std::optional<std::filesystem::path> askForSaveFile(const QString& proposedName) {
  // Modal over the log window, whose Export… button asked.
  const QString chosen = QFileDialog::getSaveFileName(
      QApplication::activeWindow(), QStringLiteral("Export Filtered Lines"), proposedName,
      QStringLiteral("Plain text (*.log *.txt)"));
  if (chosen.isEmpty()) return std::nullopt;
  return std::filesystem::path(chosen.toStdString());
}

}  // namespace

LogViewerModel::LogViewerModel(std::filesystem::path daemonURL, std::filesystem::path stderrURL,
                               QObject* parent)
    : QObject(parent),
      m_daemonURL(std::move(daemonURL)),
      m_stderrURL(std::move(stderrURL)),
      m_loader([arena = m_arena](const std::filesystem::path& path, int64_t maxBytes,
                                 int64_t maxLines) {
        return loadTail(path, maxBytes, maxLines, arena.get());
      }),
      m_chooseSaveFile(&askForSaveFile),
      m_visible(new LogLineListModel(*this, this)) {
  m_followTimer.setInterval(kDefaultFollowInterval);
  connect(&m_followTimer, &QTimer::timeout, this, &LogViewerModel::pollFollow);
  connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this] {
    if (m_following) pollFollow();
  });
}

void LogViewerModel::watchCurrentFile() {
  const QString path = QString::fromStdString(currentURL().string());
  const QStringList watched = m_watcher.files();
  if (watched.size() == 1 && watched.front() == path) return;
  if (!watched.isEmpty()) m_watcher.removePaths(watched);
  // Fails quietly while the file is missing; the timer tries again.
  if (m_following && QFileInfo::exists(path)) m_watcher.addPath(path);
}

LogViewerModel::~LogViewerModel() = default;

LogViewerModel::LoadOutcome LogViewerModel::loadTail(const std::filesystem::path& path,
                                                     int64_t maxBytes, int64_t maxLines,
                                                     LogLoadArena* arena) {
  try {
    return {LogTailFollower::loadAndStart(path, maxBytes, maxLines, arena)};
  } catch (const std::exception& error) {
    return {describe(error)};
  }
}

LogFilter LogViewerModel::filter() const {
  return LogFilter{m_search.toStdString(), m_severity, m_camera.toStdString()};
}

void LogViewerModel::setSource(LogSource source) {
  if (source == m_source) return;
  m_source = source;
  emit sourceChanged();
}

void LogViewerModel::chooseSource(LogSource source) {
  setSource(source);
  setCamera(QString());
  refresh();
}

void LogViewerModel::setSearch(const QString& search) {
  if (search == m_search) return;
  m_search = search;
  m_visible->refilter();
  emit filterChanged();
}

void LogViewerModel::setSeverity(LogSeverity severity) {
  if (severity == m_severity) return;
  m_severity = severity;
  m_visible->refilter();
  emit filterChanged();
}

void LogViewerModel::setCamera(const QString& camera) {
  if (camera == m_camera) return;
  m_camera = camera;
  m_visible->refilter();
  emit filterChanged();
}

void LogViewerModel::setStatus(const QString& status) {
  if (status == m_status) return;
  m_status = status;
  emit statusChanged(m_status);
}

void LogViewerModel::setLoading(bool loading) {
  if (loading == m_isLoading) return;
  m_isLoading = loading;
  emit loadingChanged(m_isLoading);
}

void LogViewerModel::setBudgetsForTesting(int64_t maxBytes, int64_t maxLines) {
  m_maxBytes = maxBytes;
  m_maxLines = maxLines;
}

void LogViewerModel::refresh() {
  const QUuid generation = QUuid::createUuid();
  m_loadGeneration = generation;
  m_cursor.reset();  // following resumes from the new load
  setLoading(true);
  setStatus(QStringLiteral("Loading recent logs…"));
  const std::filesystem::path url = currentURL();
  const QPointer<LogViewerModel> self(this);
  runInBackground(
      [loader = m_loader, url, maxBytes = m_maxBytes, maxLines = m_maxLines] {
        return loader(url, maxBytes, maxLines);
      },
      [self, generation](LoadOutcome outcome) {
        if (self) self->applyLoad(generation, std::move(outcome));
      });
}

void LogViewerModel::applyLoad(const QUuid& generation, LoadOutcome outcome) {
  if (generation != m_loadGeneration) return;  // a newer load has started
  setLoading(false);
  QString status;
  std::vector<LogLine> lines;
  if (auto* loaded = std::get_if<0>(&outcome.value)) {
    LogTailResult& result = loaded->first;
    m_cursor = loaded->second;
    status = QStringLiteral("Showing %1 %2 lines · read %3")
                 .arg(result.lines.size())
                 .arg(result.wasTruncated ? QStringLiteral("recent") : QStringLiteral("all"))
                 .arg(byteCountText(result.bytesRead));
    lines = std::move(result.lines);
  } else {
    m_cursor.reset();
    status = QStringLiteral("Could not load %1: %2")
                 .arg(QString::fromStdString(currentURL().filename().string()),
                      QString::fromStdString(std::get<1>(outcome.value)));
  }
  m_visible->refilter([&] {
    m_firstSequence += m_lines.size();
    m_lines = std::move(lines);
  });
  emit linesReplaced();
  setStatus(status);
  emit announcement(m_status);
  watchCurrentFile();
}

std::vector<const LogLine*> LogViewerModel::filteredLines() const {
  return filter().apply(std::span<const LogLine>(m_lines));
}

std::string LogViewerModel::filteredText() const {
  std::string text;
  const std::vector<const LogLine*> kept = filteredLines();
  size_t size = 0;
  for (const LogLine* line : kept) size += line->raw().size() + 1;
  text.reserve(size);
  for (size_t i = 0; i < kept.size(); ++i) {
    if (i > 0) text += '\n';
    text += kept[i]->raw();
  }
  return text;
}

void LogViewerModel::copyFiltered() {
  QClipboard* clipboard = QGuiApplication::clipboard();
  clipboard->clear();
  clipboard->setText(qtext(filteredText()));
}

void LogViewerModel::exportFiltered() {
  if (!m_chooseSaveFile) return;
  const std::optional<std::filesystem::path> target = m_chooseSaveFile(exportFileName(m_source));
  if (!target || target->empty()) return;
  std::string text = filteredText();
  text += '\n';
  try {
    writeFileAtomically(*target, text);
  } catch (const std::exception& error) {
    setStatus(QStringLiteral("Export failed: %1").arg(QString::fromStdString(describe(error))));
    return;
  }
  setStatus(QStringLiteral("Exported %1 lines").arg(filteredLines().size()));
  emit announcement(m_status);
}

void LogViewerModel::setFollowing(bool following) {
  if (following == m_following) return;
  m_following = following;
  if (m_following) {
    m_followTimer.start();
  } else {
    m_followTimer.stop();
  }
  watchCurrentFile();
}

std::chrono::milliseconds LogViewerModel::followInterval() const {
  return m_followTimer.intervalAsDuration();
}

void LogViewerModel::setFollowIntervalForTesting(std::chrono::milliseconds interval) {
  m_followTimer.setInterval(interval);
}

void LogViewerModel::pollFollow() {
  // One read at a time, and only on top of an applied load.
  if (!m_following || m_isLoading || !m_cursor) return;
  if (m_followInFlight) {
    m_followAgain = true;
    return;
  }
  watchCurrentFile();  // again after a rotation replaced the file
  m_followInFlight = true;
  const QUuid generation = m_loadGeneration;
  const QPointer<LogViewerModel> self(this);
  runInBackground(
      [url = currentURL(), cursor = *m_cursor, maxBytes = m_maxBytes,
       maxLines = m_maxLines]() -> std::optional<LogFollowResult> {
        try {
          return LogTailFollower::readAppended(url, cursor, maxBytes, maxLines);
        } catch (const std::exception&) {
          return std::nullopt;  // rotated away and not yet recreated: next time
        }
      },
      [self, generation](std::optional<LogFollowResult> result) {
        if (self) self->applyFollow(generation, std::move(result));
      });
}

void LogViewerModel::applyFollow(const QUuid& generation, std::optional<LogFollowResult> result) {
  m_followInFlight = false;
  if (m_followAgain) {
    m_followAgain = false;
    QTimer::singleShot(0, this, &LogViewerModel::pollFollow);
  }
  if (generation != m_loadGeneration || !m_cursor || !result) return;
  m_cursor = result->cursor;
  if (result->replaced) {
    // More arrived than one read may hold: show the newest part alone.
    m_visible->refilter([&] {
      m_firstSequence += m_lines.size();
      m_lines = std::move(result->lines);
    });
    emit linesReplaced();
    return;
  }
  if (!result->lines.empty()) appendLines(std::move(result->lines));
}

void LogViewerModel::appendLines(std::vector<LogLine> lines) {
  const size_t budget = static_cast<size_t>(m_maxLines);
  if (lines.size() > budget) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(budget));
  const size_t total = m_lines.size() + lines.size();
  if (total > budget) {
    const size_t drop = total - budget;
    m_visible->dropBefore(m_firstSequence + drop);
    m_lines.erase(m_lines.begin(), m_lines.begin() + static_cast<std::ptrdiff_t>(drop));
    m_firstSequence += drop;
  }
  const uint64_t firstNew = m_firstSequence + m_lines.size();
  const size_t count = lines.size();
  m_lines.insert(m_lines.end(), std::make_move_iterator(lines.begin()),
                 std::make_move_iterator(lines.end()));
  m_visible->appendFrom(firstNew);
  emit linesAppended(count);
}

}  // namespace zev
