// Decode + classify of a realistic document: 16 cameras, 2 streams each.
#include <benchmark/benchmark.h>

#include <string>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

namespace {

std::string realisticDocument() {
  std::string cameras;
  for (int c = 0; c < 16; ++c) {
    if (c) cameras += ",";
    const std::string id = "cam-" + std::to_string(c + 1);
    cameras += R"({"id":")" + id + R"(","name":"Camera )" + std::to_string(c + 1) +
               R"( \u2014 yard","live":)" + (c % 5 == 4 ? "false" : "true") +
               R"(,"recording":true,"frame_age_ms":)" + std::to_string(40 + c * 7) +
               R"(,"worst_frame_age_ms":)" + std::to_string(900 + c * 31) + R"(,"streams":[)";
    for (int s = 0; s < 2; ++s) {
      if (s) cameras += ",";
      cameras += R"({"id":")" + std::string(s ? "sub" : "main") +
                 R"(","enabled":true,"live":true,"recording":)" + (s ? "false" : "true") +
                 R"(,"frame_age_ms":)" + std::to_string(33 + s * 200 + c) +
                 R"(,"last_segment_ms":)" + std::to_string(1763683200000LL + c * 1000) + "}";
    }
    cameras += "]}";
  }
  return R"({"ok":true,"version":"1.9.3","live_streams":29,"total_streams":32,)"
         R"("newest_frame_age_ms":33,"worst_frame_age_ms":1365,"cpu_percent":23.75,)"
         R"("rss_bytes":214958080,"thumb_drop_ratio":0.012,"cameras":[)" +
         cameras +
         R"(],"build":{"version":"1.9.3","revision":"8f2c1d7e","modified":false,)"
         R"("built_ms":1763000000000},"degraded":false,"degraded_reasons":[],)"
         R"("default_route":{"interface":"en0","kind":"ethernet","speed_mbps":1000,)"
         R"("media":"1000baseT <full-duplex>"}})";
}

void BM_DecodeAndClassifyHealth(benchmark::State& state) {
  const std::string document = realisticDocument();
  if (!zev::decodeHealth(document)) {
    state.SkipWithError("benchmark document does not decode");
    return;
  }
  for (auto _ : state) {
    const auto summary = zev::decodeHealth(document);
    benchmark::DoNotOptimize(zev::classifyHealth(summary));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document.size()));
  state.counters["doc_bytes"] = static_cast<double>(document.size());
}
BENCHMARK(BM_DecodeAndClassifyHealth);

}  // namespace
