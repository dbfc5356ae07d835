// zevd-sim's scenario files, custom documents and status page on arbitrary
// bytes: a scenario file can turn the health document into anything, and the
// simulator must still answer and render its page, never throw or crash.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "health_document.h"
#include "status_page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  nlohmann::ordered_json patch;
  try {
    patch = zev::sim::parseScenario(text);
  } catch (const std::runtime_error&) {
    return 0;  // refused with a message, as the command line reports it
  }
  constexpr int64_t kStartMS = 1795219200000;
  zev::sim::SimState state;
  state.scenario = zev::sim::Scenario::custom;
  state.customPatch = patch;
  const auto document = zev::sim::healthDocument(state, kStartMS, kStartMS + 1234);
  volatile size_t sink = 0;
  sink = sink + zev::sim::renderStatusPage(document, state.scenario, true).size();
  sink = sink + zev::sim::healthAnswer(state, kStartMS, kStartMS + 1234).body.size();
  // The page also copes with the patch itself as a document: any shape at all.
  sink = sink + zev::sim::renderStatusPage(patch, state.scenario, true).size();
  return 0;
}
