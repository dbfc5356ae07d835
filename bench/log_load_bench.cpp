// Repeated tail loads of the newest 1 MiB / 5000 lines of a 2 MiB daemon log,
// one after another in one process as the log window's Refresh and source
// switches do, with the page faults each load costs; and, in the same run,
// github.com/go-logfmt/logfmt parsing the same 5000 lines from memory as the
// yardstick. Prints per-load medians and the ratio.
//
//   build/release/bench/log_load_bench [loads] [path of the Go parser binary]
//
// bench/go/logfmtparse builds the Go side from Debian's
// golang-github-go-logfmt-logfmt-dev without a network (see its README line in
// the top-level README). Without the binary the Go side is left out.
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/log_sample.h"
#include "core/logs/log_load_arena.h"
#include "core/logs/log_tail_loader.h"

namespace {

namespace fs = std::filesystem;

long minorFaults() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int loads = argc > 1 ? std::atoi(argv[1]) : 300;
  const std::string goParser = argc > 2 ? argv[2] : "";
  const fs::path dir = fs::temp_directory_path() / ("zev-load-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const fs::path log = dir / "zevd.log";
  std::ofstream(log, std::ios::binary) << zev::bench::generateLog(2 << 20, 42);

  // As the window loads: on a pool thread, while the previous load's lines
  // are still shown; they go once the new ones are applied.
  double loadMicros = 0;
  enum Mode { kSameThread, kAsTheWindowDoes, kColdHeap };
  double coldMicros = 0;
  for (const bool withArena : {false, true})
  for (const Mode mode : {kSameThread, kAsTheWindowDoes, kColdHeap}) {
    zev::LogLoadArena arena;
    const bool asTheWindowDoes = mode != kSameThread;
    std::vector<double> micros;
    std::vector<double> faults;
    size_t lines = 0;
    zev::LogTailResult shown;
    for (int i = 0; i < loads; ++i) {
      double micro = 0;
      long faultCount = 0;
      auto once = [&] {
        const long faultsBefore = minorFaults();
        const auto start = std::chrono::steady_clock::now();
        zev::LogTailResult result = withArena
                                        ? zev::LogTailLoader::load(log, 1 << 20, 5000, arena)
                                        : zev::LogTailLoader::load(log, 1 << 20, 5000);
        const auto end = std::chrono::steady_clock::now();
        micro = std::chrono::duration<double, std::micro>(end - start).count();
        faultCount = minorFaults() - faultsBefore;  // the whole process's: run alone
        lines = result.lines.size();
        if (asTheWindowDoes) shown = std::move(result);
      };
      // Cold: the allocator has handed its free memory back to the system
      // since the last load, as it does once the window has dropped lines.
      if (mode == kColdHeap) ::malloc_trim(0);
      if (asTheWindowDoes) {
        std::thread(once).join();
      } else {
        once();
      }
      micros.push_back(micro);
      faults.push_back(static_cast<double>(faultCount));
    }
    const double m = median(micros);
    if (withArena && mode == kAsTheWindowDoes) loadMicros = m;
    if (withArena && mode == kColdHeap) coldMicros = m;
    static const char* const kModes[] = {"same thread, result dropped",
                                         "new thread, previous lines kept",
                                         "same, heap trimmed before each load"};
    std::printf("tail load, %s (%s): %zu lines, median %.0f us per load (first %.0f us), "
                "%.0f minor page faults per load (first %.0f)\n",
                withArena ? "arena" : "plain", kModes[mode],
                lines, m, micros.front(), median(faults), faults.front());
  }

  if (!goParser.empty()) {
    const std::string command = goParser + " " + log.string() + " " + std::to_string(loads);
    FILE* pipe = ::popen(command.c_str(), "r");
    char output[256] = {};
    const bool read = pipe != nullptr && std::fgets(output, sizeof output, pipe) != nullptr;
    if (pipe != nullptr) ::pclose(pipe);
    long goLines = 0;
    double goNanos = 0;
    double scanNanos = 0;
    if (read && std::sscanf(output, "lines=%ld median_ns=%lf scan_only_median_ns=%lf", &goLines,
                            &goNanos, &scanNanos) == 3) {
      std::printf("go-logfmt:  %ld lines, median %.0f us per parse into records from memory, "
                  "%.0f us decoding only\n", goLines, goNanos / 1000, scanNanos / 1000);
      std::printf("ratio: arena load as the window does / go-logfmt parse = %.2f "
                  "(/ decoding only = %.2f)\n",
                  loadMicros / (goNanos / 1000), loadMicros / (scanNanos / 1000));
      std::printf("ratio: arena load on a trimmed heap / go-logfmt parse = %.2f "
                  "(/ decoding only = %.2f)\n",
                  coldMicros / (goNanos / 1000), coldMicros / (scanNanos / 1000));
    } else {
      std::printf("go-logfmt: no result from %s\n", goParser.c_str());
    }
  }
  fs::remove_all(dir);
  return 0;
}
