// The state behind the log window: which of the daemon's two log files is
// shown, the filter choices, the loaded lines and a one-line status, plus
// copy and export of the filtered lines.
//
// Main thread only. Loads run on the global thread pool and come back as
// queued calls; each carries the generation token it started with, and only
// the newest load's outcome is applied (the last started load wins, whatever
// finishes first). A load that finishes after the model is gone is dropped.
//
// While following, the file is read when the file system reports a change
// and, as a fallback (rotation, file systems without change notification),
// four times a second; only the bytes appended since the last read are
// parsed (core/logs/log_tail_follower.h). New lines are appended, the oldest
// drop out beyond the line budget.
#ifndef ZEV_APP_LOGS_LOG_VIEWER_MODEL_H_
#define ZEV_APP_LOGS_LOG_VIEWER_MODEL_H_

#include <QFileSystemWatcher>
#include <QObject>
#include <chrono>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/logs/log_source.h"
#include "core/logs/log_filter.h"
#include "core/logs/log_line.h"
#include "core/logs/log_load_arena.h"
#include "core/logs/log_severity.h"
#include "core/logs/log_tail_follower.h"

namespace zev {

class LogLineListModel;

class LogViewerModel : public QObject {
  Q_OBJECT

 public:
  // What a tail load gives back: the result and the follow cursor, or the
  // system's description of why it failed.
  struct LoadOutcome {
    std::variant<std::pair<LogTailResult, LogFollowCursor>, std::string> value;
  };
  using Loader = std::function<LoadOutcome(const std::filesystem::path&, int64_t maxBytes,
                                           int64_t maxLines)>;
  // Asks for the export's target; nothing when the user cancels.
  using SaveFileChooser =
      std::function<std::optional<std::filesystem::path>(const QString& proposedName)>;

  LogViewerModel(std::filesystem::path daemonURL, std::filesystem::path stderrURL,
                 QObject* parent = nullptr);
  ~LogViewerModel() override;

  // Starts a new load of currentURL() and returns at once.
  void refresh();
  // The filtered raw lines, joined by line feeds, on the clipboard.
  void copyFiltered();
  // Asks for a file, then writes the filtered raw lines to it atomically.
  void exportFiltered();

  // The source picker's setter: the new source, all cameras, and a load.
  void chooseSource(LogSource source);

  LogSource source() const { return m_source; }
  void setSource(LogSource source);
  const QString& search() const { return m_search; }
  void setSearch(const QString& search);
  LogSeverity severity() const { return m_severity; }
  void setSeverity(LogSeverity severity);
  const QString& camera() const { return m_camera; }
  void setCamera(const QString& camera);

  const std::vector<LogLine>& lines() const { return m_lines; }
  const QString& status() const { return m_status; }
  bool isLoading() const { return m_isLoading; }
  const std::filesystem::path& daemonURL() const { return m_daemonURL; }
  const std::filesystem::path& stderrURL() const { return m_stderrURL; }
  const std::filesystem::path& currentURL() const {
    return m_source == LogSource::daemon ? m_daemonURL : m_stderrURL;
  }
  LogFilter filter() const;
  const QUuid& loadGeneration() const { return m_loadGeneration; }
  int64_t maxBytes() const { return m_maxBytes; }
  int64_t maxLines() const { return m_maxLines; }

  // The visible (filtered) lines, for the list view.
  LogLineListModel* visibleLines() const { return m_visible; }
  // The line at sequence number `sequence` (see firstSequence()).
  const LogLine& lineAt(uint64_t sequence) const { return m_lines[sequence - m_firstSequence]; }
  // Lines are numbered in the order they arrived; lines()[0] has this number.
  uint64_t firstSequence() const { return m_firstSequence; }

  // Following: appends what is written to the file while on.
  bool isFollowing() const { return m_following; }
  void setFollowing(bool following);
  std::chrono::milliseconds followInterval() const;

  // Tests and benchmarks: replace the tail load, the save dialog, the
  // budgets, the follow interval.
  void setLoaderForTesting(Loader loader) { m_loader = std::move(loader); }
  void setSaveFileChooser(SaveFileChooser chooser) { m_chooseSaveFile = std::move(chooser); }
  void setBudgetsForTesting(int64_t maxBytes, int64_t maxLines);
  void setFollowIntervalForTesting(std::chrono::milliseconds interval);

  // The default loader: LogTailFollower::loadAndStart, with the model's
  // arena so that loads in a row reuse warm memory.
  static LoadOutcome loadTail(const std::filesystem::path& path, int64_t maxBytes,
                              int64_t maxLines, LogLoadArena* arena = nullptr);

 signals:
  void sourceChanged();
  void filterChanged();      // search, severity or camera
  void linesReplaced();      // a load was applied: lines() is new
  void linesAppended(size_t count);  // follow: `count` lines at the end are new
  void statusChanged(const QString& status);
  void loadingChanged(bool isLoading);
  // A status a screen reader should speak (each applied load, each export).
  void announcement(const QString& text);

 private:
  void setStatus(const QString& status);
  void setLoading(bool loading);
  void applyLoad(const QUuid& generation, LoadOutcome outcome);
  void pollFollow();
  void applyFollow(const QUuid& generation, std::optional<LogFollowResult> result);
  void appendLines(std::vector<LogLine> lines);
  std::vector<const LogLine*> filteredLines() const;
  std::string filteredText() const;

  std::filesystem::path m_daemonURL;
  std::filesystem::path m_stderrURL;
  LogSource m_source = LogSource::daemon;
  QString m_search;
  LogSeverity m_severity = LogSeverity::all;
  QString m_camera;
  std::vector<LogLine> m_lines;
  uint64_t m_firstSequence = 0;
  QString m_status = QStringLiteral("Loading recent logs…");
  bool m_isLoading = false;
  int64_t m_maxBytes = 1048576;
  int64_t m_maxLines = 5000;
  QUuid m_loadGeneration = QUuid::createUuid();

  std::shared_ptr<LogLoadArena> m_arena = std::make_shared<LogLoadArena>();
  Loader m_loader;
  SaveFileChooser m_chooseSaveFile;
  LogLineListModel* m_visible = nullptr;

  bool m_following = false;
  QTimer m_followTimer;
  bool m_followInFlight = false;
  bool m_followAgain = false;  // a change arrived while a read was in flight
  QFileSystemWatcher m_watcher;
  void watchCurrentFile();
  std::optional<LogFollowCursor> m_cursor;  // set by the applied load
};

}  // namespace zev

#endif  // ZEV_APP_LOGS_LOG_VIEWER_MODEL_H_
