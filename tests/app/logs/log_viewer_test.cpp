#include "app/logs/log_viewer.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>

#include "app/fakes/fake_platform.h"
#include "app/fakes/qt_test_main.h"
#include "app/logs/byte_count_text.h"
#include "app/logs/log_line_list_model.h"
#include "app/logs/log_scratch.h"
#include "app/logs/log_window_controller.h"
#include "app/qt_printers.h"

namespace zev {
namespace {

using testing::LogScratch;
using testing::waitFor;

class LogViewerTest : public ::testing::Test {
 protected:
  void open() {
    controller.showWindow();
    ASSERT_TRUE(waitFor([&] { return !model().isLoading(); }));
  }
  LogViewerModel& model() { return controller.model(); }
  LogViewer& viewer() { return *controller.viewer(); }
  template <typename T>
  T* child(const char* name) {
    T* found = controller.window()->findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name;
    return found;
  }
  int rows() { return viewer().list()->model()->rowCount(); }
  void press(QWidget* target, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QTest::keyClick(target, static_cast<Qt::Key>(key), modifiers);
  }

  LogScratch scratch;
  testing::FakeWorkspace workspace;
  testing::FakeAppActivation activation;
  LogWindowController controller{scratch.home(), workspace, &activation};
};

TEST_F(LogViewerTest, IsOneWindowMadeOnceAndOnlyHiddenWhenClosed) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(3));
  open();
  QWidget* window = controller.window();
  EXPECT_EQ(window->windowTitle(), "ZEV Logs");
  EXPECT_EQ(window->size(), QSize(900, 600));
  EXPECT_EQ(activation.calls, std::vector<std::string>{"activate"});
  model().setSearch("line 1");
  window->close();
  EXPECT_FALSE(window->isVisible());
  // Reopening shows the same model, with its filter, and loads afresh.
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(1, "line", 10));
  open();
  EXPECT_EQ(controller.window(), window);
  EXPECT_EQ(child<QLineEdit>("search")->text(), "line 1");
  EXPECT_EQ(rows(), 2);  // "line 1" and "line 10"
}

TEST_F(LogViewerTest, ShowsTheControlsFooterAndEmptyStateAsTheUserReadsThem) {
  open();  // no log file at all
  EXPECT_EQ(child<QLineEdit>("search")->placeholderText(), "Search logs");
  QComboBox* source = child<QComboBox>("source");
  QComboBox* severity = child<QComboBox>("severity");
  QComboBox* camera = child<QComboBox>("camera");
  EXPECT_EQ(source->itemText(0), "Daemon");
  EXPECT_EQ(source->itemText(1), "Standard Error");
  QStringList severities;
  for (int i = 0; i < severity->count(); ++i) severities << severity->itemText(i);
  EXPECT_EQ(severities, (QStringList{"All", "Error", "Warn", "Info", "Debug"}));
  EXPECT_EQ(camera->count(), 1);
  EXPECT_EQ(camera->itemText(0), "All cameras");
  EXPECT_EQ(child<QPushButton>("reveal")->text(), LogViewer::revealTitle());
  EXPECT_EQ(child<QPushButton>("export")->text(), "Export…");
  EXPECT_EQ(child<QLabel>("emptyTitle")->text(), "No matching log lines");
  EXPECT_EQ(child<QLabel>("emptyText")->text(), "Change the filters or refresh the selected log.");
  EXPECT_TRUE(child<QWidget>("emptyState")->isVisible());
  EXPECT_FALSE(child<QPushButton>("copyFiltered")->isEnabled());
  EXPECT_FALSE(child<QPushButton>("export")->isEnabled());
  EXPECT_EQ(child<QLabel>("status")->text(),
            "Could not load zevd.log: No such file or directory");
  EXPECT_EQ(child<QLabel>("status")->accessibleName(),
            "Log status: Could not load zevd.log: No such file or directory");

  LogScratch::write(scratch.daemonLog(), LogScratch::lines(4));
  press(viewer().list(), Qt::Key_R, Qt::ControlModifier);  // Ctrl+R reloads
  ASSERT_TRUE(waitFor([&] { return rows() == 4; }));
  EXPECT_TRUE(viewer().list()->isVisible());
  EXPECT_TRUE(child<QPushButton>("copyFiltered")->isEnabled());
  EXPECT_TRUE(child<QPushButton>("export")->isEnabled());
  EXPECT_EQ(camera->count(), 4);  // All cameras, cam0, cam1, cam2
  EXPECT_EQ(camera->itemText(1), "cam0");
}

TEST_F(LogViewerTest, IdenticalLinesAreSeparateRows) {
  LogScratch::write(scratch.daemonLog(), "same=1\nsame=1\nsame=1\n");
  open();
  EXPECT_EQ(rows(), 3);
}

TEST_F(LogViewerTest, RowsCarryTheHeaderFieldsAndTheRawLine) {
  LogScratch::write(scratch.daemonLog(),
                    "time=T1 level=Warn camera=door msg=\"opened\"\nfree text\n");
  open();
  const QAbstractItemModel* list = viewer().list()->model();
  struct Case {
    int row;
    int role;
    QVariant value;
  };
  const Case cases[] = {
      {0, Qt::DisplayRole, "opened"},
      {0, LogLineListModel::TimestampRole, "T1"},
      {0, LogLineListModel::SeverityRole, "WARN"},
      {0, LogLineListModel::CameraRole, "door"},
      {0, LogLineListModel::RawRole, "time=T1 level=Warn camera=door msg=\"opened\""},
      {0, Qt::AccessibleTextRole, "T1 WARN door opened"},
      {1, Qt::DisplayRole, "free text"},
      {1, LogLineListModel::TimestampRole, QVariant()},
      {1, LogLineListModel::SeverityRole, QVariant()},
      {1, Qt::AccessibleTextRole, "free text"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.row * 1000 + c.role);
    EXPECT_EQ(list->index(c.row, 0).data(c.role), c.value);
  }
}

TEST_F(LogViewerTest, KeyboardFindsClearsAndCopies) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(20));
  open();
  QLineEdit* search = child<QLineEdit>("search");
  viewer().list()->setFocus();
  press(viewer().list(), Qt::Key_F, Qt::ControlModifier);
  EXPECT_TRUE(search->hasFocus());
  QTest::keyClicks(search, "line 1");
  EXPECT_EQ(model().search(), "line 1");
  EXPECT_EQ(rows(), 11);  // line 1, 10..19
  press(search, Qt::Key_Escape);
  EXPECT_EQ(search->text(), "");
  EXPECT_EQ(rows(), 20);

  viewer().list()->setFocus();
  viewer().list()->selectionModel()->select(viewer().list()->model()->index(2, 0),
                                            QItemSelectionModel::Select);
  viewer().list()->selectionModel()->select(viewer().list()->model()->index(0, 0),
                                            QItemSelectionModel::Select);
  press(viewer().list(), Qt::Key_C, Qt::ControlModifier);
  const QStringList copied = QGuiApplication::clipboard()->text().split('\n');
  ASSERT_EQ(copied.size(), 2);
  EXPECT_TRUE(copied[0].contains("\"line 0\""));
  EXPECT_TRUE(copied[1].contains("\"line 2\""));
}

TEST_F(LogViewerTest, ChoosingAnotherSourceResetsTheCameraPicker) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(6));
  LogScratch::write(scratch.stderrLog(), "panic: out of memory\n");
  open();
  QComboBox* camera = child<QComboBox>("camera");
  camera->setCurrentIndex(2);
  emit camera->activated(2);
  EXPECT_EQ(model().camera(), "cam1");
  QComboBox* source = child<QComboBox>("source");
  source->setCurrentIndex(1);
  emit source->activated(1);
  ASSERT_TRUE(waitFor([&] { return !model().isLoading(); }));
  EXPECT_EQ(model().source(), LogSource::standardError);
  EXPECT_EQ(camera->currentText(), "All cameras");
  EXPECT_EQ(camera->count(), 1);
  EXPECT_EQ(rows(), 1);
}

TEST_F(LogViewerTest, RevealShowsTheCurrentFile) {
  open();
  child<QPushButton>("reveal")->click();
  model().chooseSource(LogSource::standardError);
  child<QPushButton>("reveal")->click();
  EXPECT_EQ(workspace.revealedFiles,
            (std::vector<std::filesystem::path>{scratch.daemonLog(), scratch.stderrLog()}));
}

TEST_F(LogViewerTest, FollowStaysOnTheNewestLineUnlessScrolledUp) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(200));
  model().setFollowIntervalForTesting(std::chrono::milliseconds(20));
  open();
  EXPECT_TRUE(child<QCheckBox>("follow")->isChecked());
  EXPECT_TRUE(model().isFollowing());
  QScrollBar* scroll = viewer().list()->verticalScrollBar();
  ASSERT_TRUE(waitFor([&] { return scroll->maximum() > 0 && scroll->value() == scroll->maximum(); }));
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(5, "new", 200));
  ASSERT_TRUE(waitFor([&] { return rows() == 205; }));
  ASSERT_TRUE(waitFor([&] { return scroll->value() == scroll->maximum(); }));

  for (const char* search : {"line", ""}) {  // a new filter keeps a following list at the end
    model().setSearch(search);
    QTest::qWait(100);  // the list lays its rows out later
    EXPECT_EQ(scroll->value(), scroll->maximum()) << search;
  }

  scroll->setValue(10);  // the user reads older lines
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(5, "more", 205));
  ASSERT_TRUE(waitFor([&] { return rows() == 210; }));
  QTest::qWait(50);
  EXPECT_EQ(scroll->value(), 10);

  controller.window()->hide();  // a hidden window does not poll
  EXPECT_FALSE(model().isFollowing());
}

// The announcement a screen reader hears: Qt hands accessibility events to an
// update handler (the AT-SPI bridge on Linux); the test takes its place.
std::vector<std::pair<QAccessible::Event, QString>>* g_events = nullptr;

void recordEvent(QAccessibleEvent* event) {
  if (g_events == nullptr || event->object() == nullptr) return;
  if (event->object()->objectName() != QLatin1String("status")) return;
  QAccessibleInterface* target = event->accessibleInterface();
  g_events->emplace_back(event->type(), target ? target->text(QAccessible::Name) : QString());
}

TEST_F(LogViewerTest, AnnouncesEachNewStatusToScreenReaders) {
  std::vector<std::pair<QAccessible::Event, QString>> events;
  g_events = &events;
  QAccessible::setActive(true);
  // The AT-SPI bridge comes up once it has reached the accessibility bus.
  waitFor([] { return QAccessible::isActive(); }, qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS") ? 3000 : 0);
  if (!QAccessible::isActive()) {
    // Qt drops accessibility events before any handler sees them when the
    // platform has no accessibility bridge (the offscreen platform has none).
    GTEST_SKIP() << "no accessibility bridge on the "
                 << QGuiApplication::platformName().toStdString()
                 << " platform; tools/a11y-check runs this test with one";
  }
  const QAccessible::UpdateHandler previous = QAccessible::installUpdateHandler(&recordEvent);
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(2));
  open();
  model().setSaveFileChooser([&](const QString&) { return scratch.home() / "out.log"; });
  model().exportFiltered();
  QAccessible::installUpdateHandler(previous);
  g_events = nullptr;
  const QString size =
      byteCountText(static_cast<int64_t>(std::filesystem::file_size(scratch.daemonLog())));
  // Once more through the platform's own bridge (tools/a11y-check listens).
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(1));
  model().refresh();
  ASSERT_TRUE(waitFor([&] { return !model().isLoading(); }));
  QTest::qWait(200);

  std::vector<QString> alerts;
  for (const auto& [type, name] : events) {
    if (type == QAccessible::Alert) alerts.push_back(name);
  }
  EXPECT_EQ(alerts, (std::vector<QString>{"Log status: Showing 2 all lines · read " + size,
                                          "Log status: Exported 2 lines"}));
}

}  // namespace
}  // namespace zev
