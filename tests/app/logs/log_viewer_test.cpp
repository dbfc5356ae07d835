// The log window: its model (loads, filters, copy and export, follow) and
// the widgets over it.
#include "app/logs/log_viewer.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QAccessible>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <tuple>

#include "app/fakes/fake_platform.h"
#include "app/fakes/qt_test_main.h"
#include "app/logs/byte_count_text.h"
#include "app/logs/log_line_list_model.h"
#include "app/logs/log_window_controller.h"
#include "app/qt_printers.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& file, const std::string& text,
               std::ios::openmode mode = std::ios::trunc) {
  std::ofstream(file, std::ios::binary | mode) << text;
}
std::string readFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
// `count` logfmt lines of about 100 bytes, cameras cam0..cam2, levels cycling
// info, warn, error, debug; `tag` goes into each message.
std::string logLines(int count, const std::string& tag = "line", int first = 0) {
  static const char* const kLevels[] = {"info", "warn", "error", "debug"};
  std::string text;
  for (int i = first; i < first + count; ++i) {
    text += "time=2026-01-02T03:04:05." + std::to_string(100 + i % 900) +
            "Z level=" + kLevels[i % 4] + " camera=cam" + std::to_string(i % 3) + " msg=\"" + tag +
            " " + std::to_string(i) + "\" seg=184467 dur_ms=6000\n";
  }
  return text;
}

// A scratch home for the daemon's two log files. The window is made but shown
// only by open(): until then the model is driven alone.
class LogViewerTest : public ::testing::Test {
 protected:
  LogViewerModel& model() { return controller.model(); }
  bool loaded() {
    return QTest::qWaitFor([&] { return !model().isLoading(); });
  }
  // Each writes `text` to the daemon's log first, unless it is nothing.
  void load(const std::optional<std::string>& text = std::nullopt) {
    if (text) writeFile(daemonLog, *text);
    model().refresh();
    ASSERT_TRUE(loaded());
  }
  void open(const std::optional<std::string>& text = std::nullopt) {
    if (text) writeFile(daemonLog, *text);
    controller.showWindow();
    ASSERT_TRUE(loaded());
  }
  QListView* list() { return controller.viewer()->list(); }
  int rows() { return model().visibleLines()->rowCount(); }
  QStringList raws() {
    QStringList raws;
    for (int row = 0; row < rows(); ++row) {
      raws << model().visibleLines()->index(row).data(LogLineListModel::RawRole).toString();
    }
    return raws;
  }
  template <typename T>
  T* child(const char* name) {
    T* found = controller.window()->findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name;
    return found;
  }

  QTemporaryDir dir;
  const fs::path home = dir.path().toStdString();
  const bool made = fs::create_directories(home / ".zevd");  // before the controller
  const fs::path daemonLog = home / ".zevd" / "zevd.log";
  const fs::path stderrLog = home / ".zevd" / "zevd.err.log";
  testing::FakeWorkspace workspace;
  testing::FakeAppActivation activation;
  LogWindowController controller{home, workspace, &activation};
  // Checks every change of the list model against Qt's rules.
  QAbstractItemModelTester tester{model().visibleLines(),
                                  QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(LogViewerTest, ALoadShowsRowsWithTheirHeaderFields_StatusTellsWhatItShowed) {
  // name, the daemon's log, status, rows
  const std::tuple<const char*, std::string, QString, int> cases[] = {
      {"over 1 MiB: the newest 5000 lines of the last MiB", logLines(12000),
       "Showing 5000 recent lines · read 1 MB", 5000},
      {"an empty file", "\n", "Showing 0 all lines · read 1 byte", 0},
      // Identical lines are rows of their own.
      {"a line with header fields, free text twice",
       "time=T1 level=Warn camera=door msg=\"opened\"\nfree text\nfree text\n",
       "Showing 3 all lines · read 64 bytes", 3},
  };
  for (const auto& [name, text, status, lines] : cases) {
    SCOPED_TRACE(name);
    writeFile(daemonLog, text);
    model().refresh();
    EXPECT_EQ(model().status(), "Loading recent logs…");
    QSignalSpy announcements(&model(), &LogViewerModel::announcement);
    ASSERT_TRUE(loaded());
    EXPECT_EQ(rows(), lines);
    ASSERT_EQ(announcements.size(), 1);
    EXPECT_EQ(announcements[0][0].toString(), status);
    EXPECT_EQ(model().status(), status);
  }
  // The last load's rows carry the header fields and the raw line.
  const std::tuple<int, int, QVariant> roles[] = {
      // row, role, value
      {0, Qt::DisplayRole, "opened"},
      {0, LogLineListModel::TimestampRole, "T1"},
      {0, LogLineListModel::SeverityRole, "WARN"},
      {0, LogLineListModel::CameraRole, "door"},
      {0, LogLineListModel::RawRole, "time=T1 level=Warn camera=door msg=\"opened\""},
      {0, Qt::AccessibleTextRole, "T1 WARN door opened"},
      {1, Qt::DisplayRole, "free text"},
      {1, LogLineListModel::SeverityRole, QVariant()},
      {2, Qt::AccessibleTextRole, "free text"},
  };
  for (const auto& [row, role, value] : roles) {
    SCOPED_TRACE(row * 1000 + role);
    EXPECT_EQ(model().visibleLines()->index(row, 0).data(role), value);
  }
}

TEST(ByteCountText, WritesDecimalFileSizes) {
  const std::pair<int64_t, const char*> cases[] = {
      {0, "0 bytes"},        {999, "999 bytes"},      {1000, "1 kB"},
      {1499, "1 kB"},        {999'499, "999 kB"},     {999'500, "1 MB"},
      {1'200'000, "1.2 MB"}, {12'345'678, "12.3 MB"}, {3'400'000'000, "3.4 GB"},
      {-5, "0 bytes"},
  };
  for (const auto& [bytes, text] : cases) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(byteCountText(bytes), text);
  }
}

// Only the last load started is shown, and the model loads until it is in;
// the outcome of a load whose model is gone is dropped.
TEST_F(LogViewerTest, AnOlderLoadOrOneWhoseModelIsGoneIsDropped) {
  std::promise<void> gate;
  // Waits (ten seconds at most) for the gate before it loads.
  const LogViewerModel::Loader gated =
      [open = gate.get_future().share()](const fs::path& path, int64_t maxBytes, int64_t maxLines) {
        open.wait_for(std::chrono::seconds(10));
        return LogViewerModel::loadTail(path, maxBytes, maxLines);
      };
  writeFile(daemonLog, logLines(3));
  model().refresh();  // finishes at once (the loader is taken when a load starts)
  model().setLoaderForTesting(gated);
  model().refresh();  // held at the gate
  auto gone = std::make_unique<LogViewerModel>(daemonLog, stderrLog);
  gone->setLoaderForTesting(gated);
  gone->refresh();
  gone.reset();
  QTest::qWait(200);
  EXPECT_TRUE(model().isLoading());
  EXPECT_TRUE(model().lines().empty());
  writeFile(daemonLog, logLines(20));
  gate.set_value();
  ASSERT_TRUE(loaded());
  QTest::qWait(200);  // for the gone model's outcome too
  EXPECT_EQ(model().lines().size(), 20u);
}

TEST_F(LogViewerTest, CopyAndExportTakeTheFilteredLinesOrSayWhyNot) {
  load("a level=info\nb level=warn\nc level=info\n");
  writeFile(home / "a-file", "x");
  // Replaced whole, not written over: a link to the old file keeps it.
  writeFile(home / "old.log", "old\n");
  fs::create_hard_link(home / "old.log", home / "old-link");
  // name, severity, target (nothing: the user cancels), status, the target's
  // contents (the clipboard's, without the last \n)
  const std::tuple<const char*, LogSeverity, std::optional<fs::path>, QString, std::string>
      cases[] = {
      {"over an older file", LogSeverity::info, home / "old.log", "Exported 2 lines",
       "a level=info\nc level=info\n"},
      {"no line matches", LogSeverity::error, home / "empty.log", "Exported 0 lines", "\n"},
      {"under a file, not a directory", LogSeverity::all, home / "a-file" / "out.log",
       "Export failed: Not a directory", ""},
      {"cancelled", LogSeverity::all, std::nullopt, "Export failed: Not a directory", ""},
  };
  for (const auto& [name, severity, target, status, contents] : cases) {
    SCOPED_TRACE(name);
    model().setSeverity(severity);
    QString proposed;
    model().setSaveFileChooser([&, chosen = target](const QString& proposedName) {
      proposed = proposedName;
      return chosen;
    });
    QSignalSpy announcements(&model(), &LogViewerModel::announcement);
    model().exportFiltered();
    EXPECT_EQ(proposed, "zevd-filtered.log");
    EXPECT_EQ(model().status(), status);
    EXPECT_EQ(announcements.size(), contents.empty() ? 0 : 1);
    if (contents.empty()) continue;
    EXPECT_EQ(readFile(*target), contents);
    QGuiApplication::clipboard()->setText("stale");
    model().copyFiltered();
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString() + "\n", contents);
  }
  EXPECT_EQ(readFile(home / "old-link"), "old\n");
}

// The daemon appends, rotates and truncates while the model follows, with
// room for 10 lines.
TEST_F(LogViewerTest, FollowShowsWhatTheDaemonWritesNext) {
  model().setFollowIntervalForTesting(std::chrono::milliseconds(20));
  model().setBudgetsForTesting(1 << 20, 10);
  load(logLines(4));
  model().setFollowing(true);
  // Lines are numbered in the order the daemon writes them.
  const auto numbered = [](int number) { return QString("line %1\"").arg(number); };
  enum class First { nothing, rotate, truncate, filterErrors };
  struct Case {
    const char* name;
    First first;
    int count;  // lines then appended
    int number;  // of the first line appended
    int rows;
    int oldest;  // the number of the oldest line shown
  };
  const Case cases[] = {
      {"appended", First::nothing, 3, 4, 7, 0},
      {"rotated: renamed away, a new file made", First::rotate, 1, 7, 8, 0},
      {"truncated in place", First::truncate, 1, 8, 9, 0},
      {"one line past the budget", First::nothing, 2, 9, 10, 1},
      // New lines pass the filter like the rest: of lines 5 to 14, the
      // errors are 6, 10 and 14.
      {"under a severity filter", First::filterErrors, 4, 11, 3, 6},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.first == First::rotate) fs::rename(daemonLog, fs::path(daemonLog).concat(".1"));
    if (c.first == First::truncate) fs::resize_file(daemonLog, 0);
    if (c.first == First::filterErrors) model().setSeverity(LogSeverity::error);
    writeFile(daemonLog, logLines(c.count, "line", c.number), std::ios::app);
    EXPECT_TRUE(QTest::qWaitFor([&] {
      const QStringList shown = raws();
      return shown.size() == c.rows && shown.front().contains(numbered(c.oldest)) &&
             shown.back().contains(numbered(c.number + c.count - 1));
    })) << raws().join('\n').toStdString();
  }
}

TEST_F(LogViewerTest, AnEmptyListSaysWhy_KeysReloadFindClearAndCopy) {
  open();  // no log file at all
  EXPECT_EQ(activation.calls, std::vector<std::string>{"activate"});
  EXPECT_TRUE(child<QWidget>("emptyState")->isVisible());
  EXPECT_FALSE(child<QPushButton>("copyFiltered")->isEnabled());
  EXPECT_FALSE(child<QPushButton>("export")->isEnabled());
  EXPECT_EQ(child<QWidget>("status")->accessibleName(),
            "Log status: Could not load zevd.log: No such file or directory");

  writeFile(daemonLog, logLines(20));
  QTest::keyClick(list(), Qt::Key_R, Qt::ControlModifier);  // Ctrl+R reloads
  ASSERT_TRUE(QTest::qWaitFor([&] { return rows() == 20; }));
  EXPECT_TRUE(child<QPushButton>("copyFiltered")->isEnabled());
  EXPECT_TRUE(child<QPushButton>("export")->isEnabled());
  EXPECT_EQ(child<QComboBox>("camera")->count(), 4);  // All cameras, cam0, cam1, cam2

  QLineEdit* search = child<QLineEdit>("search");
  list()->setFocus();
  QTest::keyClick(list(), Qt::Key_F, Qt::ControlModifier);
  EXPECT_TRUE(search->hasFocus());
  QTest::keyClicks(search, "line 1");
  EXPECT_EQ(rows(), 11);  // line 1, 10..19
  QTest::keyClick(search, Qt::Key_Escape);
  EXPECT_EQ(rows(), 20);

  list()->setFocus();
  list()->selectionModel()->select(list()->model()->index(2, 0), QItemSelectionModel::Select);
  list()->selectionModel()->select(list()->model()->index(0, 0), QItemSelectionModel::Select);
  QTest::keyClick(list(), Qt::Key_C, Qt::ControlModifier);  // in the list's order
  EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString() + "\n",
            logLines(1) + logLines(1, "line", 2));
}

TEST_F(LogViewerTest, AnotherSourceKeepsSearchAndSeverityButNotTheCamera_RevealShowsIt) {
  writeFile(stderrLog, "level=warn camera=other msg=\"x 9\"\nlevel=info camera=cam0 msg=\"y 9\"\n");
  open(logLines(12));  // line 9: warn, cam0
  model().setSearch(" 9\"");
  model().setSeverity(LogSeverity::warn);
  QComboBox* camera = child<QComboBox>("camera");
  camera->setCurrentIndex(1);
  emit camera->activated(1);
  EXPECT_EQ(model().camera(), "cam0");
  EXPECT_EQ(rows(), 1);
  QComboBox* source = child<QComboBox>("source");
  child<QPushButton>("reveal")->click();
  source->setCurrentIndex(1);
  emit source->activated(1);
  ASSERT_TRUE(loaded());
  child<QPushButton>("reveal")->click();
  EXPECT_EQ(workspace.revealedFiles, (std::vector{daemonLog, stderrLog}));
  EXPECT_EQ(camera->currentText(), "All cameras");
  // Only the warn line, whatever its camera.
  EXPECT_EQ(raws(), QStringList{"level=warn camera=other msg=\"x 9\""});
}

TEST_F(LogViewerTest, FollowStaysOnTheNewestLineUnlessScrolledUp) {
  model().setFollowIntervalForTesting(std::chrono::milliseconds(20));
  open(logLines(200));
  EXPECT_TRUE(child<QCheckBox>("follow")->isChecked());
  QScrollBar* scroll = list()->verticalScrollBar();
  const auto atEnd = [&] { return scroll->maximum() > 0 && scroll->value() == scroll->maximum(); };
  ASSERT_TRUE(QTest::qWaitFor(atEnd));
  writeFile(daemonLog, logLines(5, "new", 200), std::ios::app);
  ASSERT_TRUE(QTest::qWaitFor([&] { return rows() == 205 && atEnd(); }));
  for (const char* search : {"line", ""}) {  // a new filter keeps a following list at the end
    model().setSearch(search);
    QTest::qWait(100);  // the list lays its rows out later
    EXPECT_TRUE(atEnd()) << search;
  }

  scroll->setValue(10);  // the user reads older lines
  writeFile(daemonLog, logLines(5, "more", 205), std::ios::app);
  ASSERT_TRUE(QTest::qWaitFor([&] { return rows() == 210; }));
  QTest::qWait(50);
  EXPECT_EQ(scroll->value(), 10);

  controller.window()->hide();  // a hidden window does not poll
  EXPECT_FALSE(model().isFollowing());
}

// The announcement a screen reader hears: Qt hands accessibility events to an
// update handler (the AT-SPI bridge on Linux); the test takes its place.
std::vector<QString> g_alerts;

void recordAlert(QAccessibleEvent* event) {
  if (event->type() == QAccessible::Alert && event->object() != nullptr &&
      event->object()->objectName() == QLatin1String("status")) {
    QAccessibleInterface* target = event->accessibleInterface();
    g_alerts.push_back(target ? target->text(QAccessible::Name) : QString());
  }
}

// tools/a11y-check runs this test with an accessibility bridge.
TEST_F(LogViewerTest, AnnouncesEachNewStatusToScreenReaders) {
  g_alerts.clear();
  QAccessible::setActive(true);
  // The AT-SPI bridge comes up once it has reached the accessibility bus.
  if (!QTest::qWaitFor([] { return QAccessible::isActive(); },
                       qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS") ? 3000 : 0)) {
    // Qt drops accessibility events before any handler sees them when the
    // platform has no accessibility bridge (the offscreen platform has none).
    GTEST_SKIP() << "no accessibility bridge on the "
                 << QGuiApplication::platformName().toStdString() << " platform";
  }
  const QAccessible::UpdateHandler previous = QAccessible::installUpdateHandler(&recordAlert);
  open(logLines(2));
  model().setSaveFileChooser([&](const QString&) { return home / "out.log"; });
  model().exportFiltered();
  QAccessible::installUpdateHandler(previous);
  // Once more through the platform's own bridge (tools/a11y-check listens).
  load(logLines(3));
  QTest::qWait(200);

  EXPECT_EQ(g_alerts, (std::vector<QString>{"Log status: Showing 2 all lines · read " +
                                              byteCountText(logLines(2).size()),
                                          "Log status: Exported 2 lines"}));
}

}  // namespace
}  // namespace zev
