// The log window with a realistic daemon log: window open → first rows
// painted (first and later opens), keystroke in the search field → list
// repainted at 5000 lines (median and worst of 50), follow latency (line
// appended → painted), and the process's resident memory with 5000 lines.
//
//   QT_QPA_PLATFORM=offscreen build/release/bench/log_window_bench
// (or on a display: DISPLAY=:1 QT_QPA_PLATFORM=xcb …). With --grab DIR it
// only writes the window in a light and a dark palette to DIR, to check that
// the severity colours read well in both.
#include <sys/resource.h>
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QStyle>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QListView>
#include <QKeyEvent>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "app/logs/log_line_list_model.h"
#include "app/logs/log_window_controller.h"
#include "app/ports/workspace.h"
#include "bench/log_sample.h"

namespace {

namespace fs = std::filesystem;

struct NoWorkspace : zev::Workspace {
  void openURL(const std::string&) override {}
  void revealFile(const fs::path&) override {}
};

// Counts paints of a widget.
struct PaintCounter : QObject {
  int paints = 0;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
};

long residentKiB() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

long minorFaults() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

double ms(const QElapsedTimer& timer) { return static_cast<double>(timer.nsecsElapsed()) / 1e6; }

template <typename Done>
bool spinUntil(Done done, int timeoutMS = 10000) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > timeoutMS) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
  }
  return true;
}

void report(const char* what, std::vector<double> values, const char* unit = "ms") {
  std::sort(values.begin(), values.end());
  std::printf("%-48s median %7.2f %-6s worst %7.2f %-6s (n=%zu)\n", what,
              values[values.size() / 2], unit, values.back(), unit, values.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const fs::path home = fs::temp_directory_path() / ("zev-window-bench-" + std::to_string(::getpid()));
  fs::create_directories(home / ".zevd");
  const fs::path log = home / ".zevd" / "zevd.log";
  std::ofstream(log, std::ios::binary) << zev::bench::generateLog(2 << 20, 42);

  if (argc > 2 && QString::fromLocal8Bit(argv[1]) == QLatin1String("--grab")) {
    QApplication::setStyle(QStringLiteral("Fusion"));
    NoWorkspace workspace;
    for (const bool dark : {false, true}) {
      QPalette palette = QApplication::style()->standardPalette();
      if (dark) {
        palette.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2b));
        palette.setColor(QPalette::WindowText, QColor(0xe6, 0xe6, 0xe6));
        palette.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
        palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x26));
        palette.setColor(QPalette::Text, QColor(0xe6, 0xe6, 0xe6));
        palette.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3a));
        palette.setColor(QPalette::ButtonText, QColor(0xe6, 0xe6, 0xe6));
        palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0x9a));
        palette.setColor(QPalette::Highlight, QColor(0x2f, 0x65, 0xca));
      }
      QApplication::setPalette(palette);
      zev::LogWindowController window(home, workspace, nullptr);
      window.showWindow();
      spinUntil([&] { return !window.model().isLoading(); });
      QCoreApplication::processEvents();
      const QString file = QDir(QString::fromLocal8Bit(argv[2]))
                               .filePath(dark ? QStringLiteral("log-window-dark.png")
                                              : QStringLiteral("log-window-light.png"));
      window.window()->grab().save(file);
      std::printf("wrote %s\n", qPrintable(file));
    }
    fs::remove_all(home);
    return 0;
  }

  const long rssBefore = residentKiB();
  NoWorkspace workspace;
  zev::LogWindowController controller(home, workspace, nullptr);
  QListView* list = controller.viewer()->list();
  PaintCounter painted;
  list->viewport()->installEventFilter(&painted);
  const zev::LogViewerModel& model = controller.model();

  std::vector<double> opens;
  for (int i = 0; i < 6; ++i) {
    const int paintsBefore = painted.paints;
    QElapsedTimer timer;
    timer.start();
    controller.showWindow();
    spinUntil([&] {
      return !model.isLoading() && model.visibleLines()->rowCount() > 0 &&
             painted.paints > paintsBefore;
    });
    opens.push_back(ms(timer));
    if (i == 0) std::printf("%-48s %7.2f ms\n", "open -> first rows painted (first open)", opens[0]);
    controller.window()->hide();
    QCoreApplication::processEvents();
  }
  report("open -> rows painted (later opens)", std::vector<double>(opens.begin() + 1, opens.end()));
  controller.showWindow();
  spinUntil([&] { return !model.isLoading(); });
  QCoreApplication::processEvents();
  std::printf("%-48s %7ld KiB (%zu lines)\n", "window memory with the lines (RSS growth)",
              residentKiB() - rssBefore, model.lines().size());

  // Refresh again and again, as the Refresh button does: the load on the
  // pool, applied on the main thread, the list reset and repainted.
  {
    std::vector<double> refreshes;
    std::vector<double> faults;
    for (int i = 0; i < 100; ++i) {
      const long faultsBefore = minorFaults();
      const int paintsBefore = painted.paints;
      QElapsedTimer timer;
      timer.start();
      controller.model().refresh();
      spinUntil([&] { return !model.isLoading() && painted.paints > paintsBefore; });
      refreshes.push_back(ms(timer));
      faults.push_back(static_cast<double>(minorFaults() - faultsBefore));
    }
    report("refresh -> new rows painted (100 in a row)", refreshes);
    report("  minor page faults per refresh (whole process)", faults, "faults");
  }

  // Keystrokes: type and erase, one key at a time, each until the list
  // has repainted.
  auto* search = controller.window()->findChild<QLineEdit*>(QStringLiteral("search"));
  search->setFocus();
  const char* keys = "garage";
  std::vector<double> keystrokes;
  for (int i = 0; i < 50; ++i) {
    const int paintsBefore = painted.paints;
    QElapsedTimer timer;
    timer.start();
    const int step = i % 12;
    const int key = step < 6 ? Qt::Key_A + (keys[step] - 'a') : Qt::Key_Backspace;
    const QString text = step < 6 ? QString(QChar(keys[step])) : QString();
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QApplication::sendEvent(search, &press);
    QApplication::sendEvent(search, &release);
    spinUntil([&] { return painted.paints > paintsBefore; }, 2000);
    keystrokes.push_back(ms(timer));
  }
  report("keystroke -> list repainted (5000 lines)", keystrokes);
  search->clear();
  QCoreApplication::processEvents();

  // Follow: one line appended, until it is painted.
  std::vector<double> follows;
  size_t appended = 0;
  QObject::connect(&controller.model(), &zev::LogViewerModel::linesAppended,
                   [&](size_t count) { appended += count; });
  for (int i = 0; i < 20; ++i) {
    const size_t appendedBefore = appended;
    const int paintsBefore = painted.paints;
    QElapsedTimer timer;
    timer.start();
    std::ofstream(log, std::ios::binary | std::ios::app)
        << "time=2026-01-01T00:00:00Z level=info camera=bench msg=\"appended " << i << "\"\n";
    spinUntil([&] {
      return appended > appendedBefore && painted.paints > paintsBefore;
    });
    follows.push_back(ms(timer));
    QElapsedTimer pause;  // land at different points of the poll interval
    pause.start();
    spinUntil([&] { return pause.elapsed() >= 37; });
  }
  report("follow: line appended -> painted", follows);
  fs::remove_all(home);
  return 0;
}
