// The behaviours the simulated daemon can be switched between: health
// documents that classify a particular way, and ways of answering the health
// endpoint badly.
#ifndef ZEV_TOOLS_ZEVD_SIM_SCENARIO_H_
#define ZEV_TOOLS_ZEVD_SIM_SCENARIO_H_

#include <optional>
#include <span>
#include <string_view>

namespace zev::sim {

enum class Scenario {
  // Documents served with HTTP 200.
  healthy,       // every camera live, fresh frames, low thumbnail drops
  partial,       // two of four cameras down, the rest healthy
  degraded,      // the daemon's own verdict: degraded, with reasons and a "more:N" marker
  noStreams,     // nothing configured
  allDown,       // streams configured, none live
  staleFrames,   // cameras live but their newest frame is seconds old
  thumbDrops,    // a quarter of the thumbnails dropped
  hostile,       // markup in every text, absurd figures, a "more:N" marker that overflows
  crowd,         // ten thousand cameras, compact, under the launcher's size cap
  custom,        // the healthy document with a scenario file merged over it
  // Misbehaviour of the health endpoint.
  http503,         // HTTP 503 with a valid document
  malformedJson,   // HTTP 200 with a cut-off document
  missingCameras,  // HTTP 200 with a document without "cameras"
  slow,            // a valid document after a delay
  hang,            // accepts the request and never answers
  oversized,       // a valid document padded to a huge size
  trickle,         // a valid document, one byte at a time, never done in time
};

// The scenario's name on the command line and the control endpoint, e.g.
// "no-streams", "http-503".
std::string_view scenarioName(Scenario scenario);
std::optional<Scenario> scenarioFromName(std::string_view name);
// Every scenario, in declaration order.
std::span<const Scenario> allScenarios();
// One line for --help and the web page.
std::string_view scenarioDescription(Scenario scenario);
// True for the scenarios that answer the health endpoint badly.
bool isMisbehaviour(Scenario scenario);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_SCENARIO_H_
