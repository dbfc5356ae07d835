// Log viewer core on a realistic daemon log: tail load + parse of a 1 MiB,
// 5000-line budget (also from a sparse 10 GiB file), and filtering 5000
// lines per keystroke. Run from the release preset with repetitions and read
// the medians:
//   build/release/bench/log_bench --benchmark_repetitions=15
//       --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "core/logs/log_filter.h"
#include "core/logs/log_line.h"
#include "core/logs/log_tail_loader.h"
#include "bench/log_sample.h"

namespace {

namespace fs = std::filesystem;

constexpr int64_t kMaxBytes = int64_t{1} << 20;
constexpr int64_t kMaxLines = 5000;

using zev::bench::generateLog;

struct Fixture {
  fs::path dir = fs::temp_directory_path() / ("zev-log-bench-" + std::to_string(::getpid()));
  fs::path small = dir / "zevd.log";
  fs::path huge = dir / "zevd-10g.log";
  std::vector<zev::LogLine> lines;

  Fixture() {
    fs::create_directories(dir);
    const std::string log = generateLog(2 * kMaxBytes, 42);
    std::ofstream(small, std::ios::binary) << log;
    // 10 GiB, all holes but the last 2 MiB.
    std::ofstream(huge, std::ios::binary).close();
    const int fd = ::open(huge.c_str(), O_WRONLY);
    const off_t size = off_t{10} << 30;
    if (fd < 0 || ::pwrite(fd, log.data(), log.size(), size - static_cast<off_t>(log.size())) !=
                      static_cast<ssize_t>(log.size())) {
      std::fprintf(stderr, "cannot write %s\n", huge.c_str());
      std::abort();
    }
    ::close(fd);
    lines = zev::LogTailLoader::load(small, kMaxBytes, kMaxLines).lines;
  }
  ~Fixture() {
    std::error_code ignored;
    fs::remove_all(dir, ignored);
  }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

void loadTail(benchmark::State& state, const fs::path& path) {
  size_t lines = 0;
  for (auto _ : state) {
    zev::LogTailResult result = zev::LogTailLoader::load(path, kMaxBytes, kMaxLines);
    lines = result.lines.size();
    benchmark::DoNotOptimize(result);
  }
  // Heap held by one result, and the largest block the load asks for.
  const size_t before = mallinfo2().uordblks;
  const zev::LogTailResult kept = zev::LogTailLoader::load(path, kMaxBytes, kMaxLines);
  state.counters["result_heap_KiB"] = static_cast<double>(mallinfo2().uordblks - before) / 1024;
  state.counters["lines"] = static_cast<double>(lines);
  size_t rawBytes = 0;
  for (const zev::LogLine& line : kept.lines) rawBytes += line.raw().size();
  state.counters["line_bytes"] = static_cast<double>(rawBytes) / static_cast<double>(kept.lines.size());
  state.counters["file_MiB"] = static_cast<double>(kept.fileSize) / (1 << 20);
  state.SetBytesProcessed(state.iterations() * kMaxBytes);
}

void BM_LoadTail_1MiB(benchmark::State& state) { loadTail(state, fixture().small); }
BENCHMARK(BM_LoadTail_1MiB)->Unit(benchmark::kMicrosecond);

void BM_LoadTail_10GiBSparse(benchmark::State& state) { loadTail(state, fixture().huge); }
BENCHMARK(BM_LoadTail_10GiBSparse)->Unit(benchmark::kMicrosecond);

// The parts of a load, to show where the time goes.
void BM_ReadOnly_1MiB(benchmark::State& state) {
  const int fd = ::open(fixture().small.c_str(), O_RDONLY);
  std::vector<char> buffer(kMaxBytes);
  const off_t size = static_cast<off_t>(fs::file_size(fixture().small));
  for (auto _ : state) {
    benchmark::DoNotOptimize(::pread(fd, buffer.data(), buffer.size(), size - kMaxBytes));
  }
  ::close(fd);
}
BENCHMARK(BM_ReadOnly_1MiB)->Unit(benchmark::kMicrosecond);

void BM_ParseOnly_5000Lines(benchmark::State& state) {
  std::vector<std::string> raws;
  for (const zev::LogLine& line : fixture().lines) raws.emplace_back(line.raw());
  std::vector<zev::LogLine> parsed;
  parsed.reserve(raws.size());
  for (auto _ : state) {
    parsed.clear();
    for (const std::string& raw : raws) parsed.push_back(zev::LogLine::parse(raw));
    benchmark::DoNotOptimize(parsed.data());
  }
}
BENCHMARK(BM_ParseOnly_5000Lines)->Unit(benchmark::kMicrosecond);

void BM_HashOnly_5000Lines(benchmark::State& state) {
  std::vector<std::string_view> raws;
  for (const zev::LogLine& line : fixture().lines) raws.push_back(line.raw());
  std::vector<uint64_t> hashes(raws.size());
  for (auto _ : state) {
    if (state.range(0) == 1) {
      for (size_t i = 0; i < raws.size(); ++i) hashes[i] = zev::stableHash(raws[i]);
    } else {
      zev::stableHashes(raws.data(), raws.size(), hashes.data());
    }
    benchmark::DoNotOptimize(hashes.data());
  }
}
BENCHMARK(BM_HashOnly_5000Lines)->Arg(1)->Arg(4)->Unit(benchmark::kMicrosecond);

void filter(benchmark::State& state, zev::LogFilter f) {
  const std::vector<zev::LogLine>& lines = fixture().lines;
  size_t kept = 0;
  for (auto _ : state) {
    const auto visible = f.apply(lines, "en_US");
    kept = visible.size();
    benchmark::DoNotOptimize(visible.data());
  }
  state.counters["lines"] = static_cast<double>(lines.size());
  state.counters["kept"] = static_cast<double>(kept);
}

void BM_Filter_SeverityAndCamera(benchmark::State& state) {
  filter(state, {"", zev::LogSeverity::warn, "garage"});
}
BENCHMARK(BM_Filter_SeverityAndCamera)->Unit(benchmark::kMicrosecond);

void BM_Filter_Camera(benchmark::State& state) {
  filter(state, {"", zev::LogSeverity::all, "front-door"});
}
BENCHMARK(BM_Filter_Camera)->Unit(benchmark::kMicrosecond);

void BM_Filter_SearchASCII(benchmark::State& state) {
  filter(state, {"Timeout", zev::LogSeverity::all, ""});
}
BENCHMARK(BM_Filter_SearchASCII)->Unit(benchmark::kMicrosecond);

void BM_Filter_SearchASCIIManyHits(benchmark::State& state) {
  filter(state, {"front", zev::LogSeverity::all, ""});
}
BENCHMARK(BM_Filter_SearchASCIIManyHits)->Unit(benchmark::kMicrosecond);

void BM_Filter_SearchNonASCII(benchmark::State& state) {
  filter(state, {"t\xC3\x9C" "r", zev::LogSeverity::all, ""});
}
BENCHMARK(BM_Filter_SearchNonASCII)->Unit(benchmark::kMicrosecond);

void BM_Filter_SearchTurkishLocale(benchmark::State& state) {
  const std::vector<zev::LogLine>& lines = fixture().lines;
  const zev::LogFilter f{"info", zev::LogSeverity::all, ""};
  for (auto _ : state) benchmark::DoNotOptimize(f.apply(lines, "tr_TR").data());
}
BENCHMARK(BM_Filter_SearchTurkishLocale)->Unit(benchmark::kMicrosecond);

void BM_AvailableCameras(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(zev::LogFilter::availableCameras(fixture().lines));
}
BENCHMARK(BM_AvailableCameras)->Unit(benchmark::kMicrosecond);

}  // namespace
