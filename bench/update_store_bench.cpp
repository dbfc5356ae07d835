// The update store on the real file system: one durable save followed by
// loadActive (what every state change of an update costs), and loadAll over a
// history of 1000 attempts (what pruning archives costs). Records carry a
// realistic baseline of 32 streams. The scratch directory is created under
// $TMPDIR (default /tmp); durability makes save cost mostly fsync latency,
// which depends on the disk, so the encode/decode figure is given apart.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/updates/update_transaction_store.h"

namespace {

namespace fs = std::filesystem;

zev::UpdateTransaction realisticRecord(int n) {
  zev::UpdateBaseline baseline{zev::timestampFromMillisecondsSince1970(1763683199500), 32, {}};
  for (int c = 0; c < 16; ++c) {
    for (const char* stream : {"main", "sub"}) {
      baseline.streams.push_back({"cam-" + std::to_string(c + 1) + "/" + stream, stream[0] == 'm',
                                  1763683190000 + c * 1000});
    }
  }
  zev::UpdateTransaction t(
      "1.9.3", "1.10." + std::to_string(n), baseline,
      "/home/user/.zevd/reliability/archives/ZEV-1.9.3-" + std::to_string(n) + ".app",
      zev::timestampFromMillisecondsSince1970(1763683200000 + n), zev::Uuid::random());
  t.setState(n % 3 ? zev::UpdateState::certified : zev::UpdateState::failed);
  if (t.state() == zev::UpdateState::failed) t.setFailureReason("verification timed out");
  return t;
}

class Scratch {
 public:
  Scratch() {
    std::string name = (fs::temp_directory_path() / "zev-bench-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("mkdtemp failed");
    path = name;
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  fs::path path;
};

void BM_EncodeDecodeTransaction(benchmark::State& state) {
  const zev::UpdateTransaction t = realisticRecord(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(zev::decodeUpdateTransaction(zev::encodeUpdateTransaction(t)));
  }
  state.counters["record_bytes"] = static_cast<double>(zev::encodeUpdateTransaction(t).size());
}
BENCHMARK(BM_EncodeDecodeTransaction);

void BM_SaveThenLoadActive(benchmark::State& state) {
  Scratch scratch;
  const zev::UpdateTransactionStore store(scratch.path);
  zev::UpdateTransaction t = realisticRecord(1);
  for (auto _ : state) {
    store.save(t);
    benchmark::DoNotOptimize(store.loadActive());
  }
}
BENCHMARK(BM_SaveThenLoadActive)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LoadAllHistory(benchmark::State& state) {
  Scratch scratch;
  const zev::UpdateTransactionStore store(scratch.path);
  fs::create_directories(store.transactionsDirectory());
  const auto count = static_cast<int>(state.range(0));
  for (int n = 0; n < count; ++n) {
    // Written directly: a thousand durable saves would only time the disk.
    const zev::UpdateTransaction t = realisticRecord(n);
    std::ofstream(store.transactionsDirectory() / (t.id().string() + ".json"), std::ios::binary)
        << zev::encodeUpdateTransaction(t);
  }
  size_t loaded = 0;
  for (auto _ : state) {
    const auto all = store.loadAll();
    loaded = all.size();
    benchmark::DoNotOptimize(all.data());
  }
  if (loaded != static_cast<size_t>(count)) state.SkipWithError("loadAll lost records");
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_LoadAllHistory)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
