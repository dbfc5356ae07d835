// What applying a downloaded update costs, on the build's own bundle packed
// as an update archive (tar.xz, xz -6): reading and checking its Ed25519
// signature, unpacking it into a staging directory, and the swap of staged
// and installed bundle (renameat2 exchange, and the two-rename fallback).
//
//   build/release/bench/update_apply_bench [--benchmark_filter=...]
//   ZEV_BENCH_BUNDLE=/path/to/ZEV.app build/release/bench/update_apply_bench
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/linux/bundle_manifest.h"
#include "platform/linux/bundle_swap_linux.h"
#include "platform/linux/update_archive_linux.h"

namespace {

namespace fs = std::filesystem;

struct Packed {
  fs::path root;
  fs::path archive;
  std::string signature;
  std::string publicKey;
};

const Packed& packed() {
  static const Packed value = [] {
    const char* fromEnv = std::getenv("ZEV_BENCH_BUNDLE");
    const fs::path bundle = fromEnv ? fs::path(fromEnv) : fs::path(ZEV_BUNDLE);
    std::string root = (fs::temp_directory_path() / "zev-apply-bench-XXXXXX").string();
    if (!::mkdtemp(root.data())) std::abort();
    Packed p{root, fs::path(root) / "update.tar.xz", {}, {}};
    const std::string command = "XZ_OPT=-6 tar -C '" + bundle.parent_path().string() +
                                "' -cJf '" + p.archive.string() + "' '" +
                                bundle.filename().string() + "'";
    if (std::system(command.c_str()) != 0) std::abort();
    const zev::manifest::KeyPair key = zev::manifest::generateKeyPair();
    std::ifstream in(p.archive, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    p.signature = zev::manifest::sign(bytes, key.secretKey);
    p.publicKey = zev::manifest::toBase64(key.publicKey);
    std::printf("update archive: %zu bytes from %s\n", bytes.size(), bundle.c_str());
    return p;
  }();
  return value;
}

void BM_ReadAndVerifySignature(benchmark::State& state) {
  const Packed& p = packed();
  for (auto _ : state) {
    std::ifstream in(p.archive, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    if (!zev::manifest::verify(bytes, p.signature, p.publicKey)) state.SkipWithError("bad");
  }
}
BENCHMARK(BM_ReadAndVerifySignature)->Unit(benchmark::kMillisecond);

void BM_Unpack(benchmark::State& state) {
  const Packed& p = packed();
  const fs::path staging = p.root / "staging";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(staging);
    fs::create_directory(staging);
    state.ResumeTiming();
    if (zev::unpackUpdateArchive(p.archive, staging)) state.SkipWithError("unpack failed");
  }
  fs::remove_all(staging);
}
BENCHMARK(BM_Unpack)->Unit(benchmark::kMillisecond);

void BM_Swap(benchmark::State& state) {
  const Packed& p = packed();
  const fs::path apps = p.root / "apps";
  fs::create_directories(apps / "ZEV.app/Contents");
  const fs::path staging = zev::makeStagingDirectory(apps / "ZEV.app");
  fs::create_directories(staging / "ZEV.app/Contents");
  const auto method = state.range(0) ? zev::SwapMethod::twoRenames
                                     : zev::SwapMethod::exchangeWhereSupported;
  for (auto _ : state) {
    zev::SwapOutcome outcome;
    if (zev::swapInBundle(apps / "ZEV.app", staging, method, outcome)) {
      state.SkipWithError("swap failed");
      break;
    }
    if (outcome.oldBundle != staging / "ZEV.app") fs::rename(outcome.oldBundle, staging / "ZEV.app");
  }
  state.SetLabel(state.range(0) ? "two renames + note (fsyncs)" : "renameat2 exchange");
  fs::remove_all(apps);
}
BENCHMARK(BM_Swap)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
