// What the popover costs with many cameras: the time from a click to the
// popover painted on screen, the time to apply one poll while it is open, and
// the resident memory it adds, for 4, 100 and 10 000 cameras.
//
//   build/release/bench/popover_bench            # each count in a fresh process
//   build/release/bench/popover_bench 10000      # one count
//
// Runs on the offscreen platform unless QT_QPA_PLATFORM says otherwise.
// Prints figures; asserts nothing.
#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "app/status/health_figures.h"
#include "app/status/health_state.h"
#include "app/status/popover_view.h"

namespace {

long residentKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string key; status >> key;) {
    if (key == "VmRSS:") {
      long kib = 0;
      status >> kib;
      return kib;
    }
  }
  return -1;
}

zev::HealthSummary summaryWith(int cameras, int64_t tick) {
  zev::HealthSummary s;
  s.version = "1.8.3";
  s.liveStreams = s.totalStreams = cameras;
  s.newestFrameAgeMS = 40;
  s.worstFrameAgeMS = 180;
  s.cpuPercent = 16.9;
  s.rssBytes = 153'354'240;
  s.thumbDropRatio = 0.015;
  s.degraded = false;
  s.degradedReasons = {"disk slow", "cam-7 reconnecting", "more:12"};
  s.defaultRoute = zev::HealthDefaultRoute{"eth0", "ethernet", 1000, "1000baseT"};
  for (int i = 1; i <= cameras; ++i) {
    zev::HealthCamera c;
    c.id = "cam-" + std::to_string(i);
    c.name = "Camera " + std::to_string(i);
    c.live = i % 10 != 0;
    c.frameAgeMS = 40 + (i * 7919 + tick) % 200;
    s.cameras.push_back(std::move(c));
  }
  return s;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

int runOne(int cameras) {
  zev::HealthState state;
  state.update(summaryWith(cameras, 0), zev::HealthStatus::green, {});
  const long before = residentKiB();
  std::unique_ptr<zev::PopoverView> popover;

  // Open: show and paint, as a click does. The first opening builds the
  // widgets; later ones only refill them.
  std::vector<double> opens;
  for (int round = 0; round < 7; ++round) {
    state.update(summaryWith(cameras, round), zev::HealthStatus::green, {});
    QElapsedTimer timer;
    timer.start();
    if (!popover) popover = std::make_unique<zev::PopoverView>(state, zev::PopoverActions{});
    zev::PopoverView& view = *popover;
    view.showAnchored(QRect(600, 0, 24, 24));
    view.grab();  // paints the whole popover
    QCoreApplication::processEvents();
    opens.push_back(double(timer.nsecsElapsed()) / 1e6);
    if (round == 0) std::printf("%6d cameras  first open %8.2f ms", cameras, opens.back());
    view.close();
    QCoreApplication::processEvents();
  }
  // A poll landing while it is open.
  zev::PopoverView& view = *popover;
  view.showAnchored(QRect(600, 0, 24, 24));
  std::vector<double> polls;
  for (int round = 0; round < 7; ++round) {
    QElapsedTimer timer;
    timer.start();
    state.update(summaryWith(cameras, 100 + round), zev::HealthStatus::green, {});
    view.grab();
    QCoreApplication::processEvents();
    polls.push_back(double(timer.nsecsElapsed()) / 1e6);
  }
  std::printf("  open %8.2f ms  poll while open %8.2f ms  popover RSS +%6ld KiB\n",
              median(std::vector(opens.begin() + 1, opens.end())), median(polls),
              residentKiB() - before);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  // The offscreen platform says it cannot raise or grab; that is not news.
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  if (argc > 1) return runOne(std::max(0, std::atoi(argv[1])));
  std::printf("popover with at most %d camera rows (median of 6 openings, 7 polls)\n",
              zev::PopoverView::maxCameraRows);
  std::fflush(stdout);
  for (const char* count : {"4", "100", "10000"}) {
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {count});
    child.waitForFinished(120000);
  }
  return 0;
}
