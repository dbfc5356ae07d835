#include "scenario.h"

#include <array>

namespace zev::sim {
namespace {

struct Entry {
  Scenario scenario;
  std::string_view name;
  std::string_view description;
};

constexpr std::array kEntries = {
    Entry{Scenario::healthy, "healthy", "every camera live, fresh frames, few thumbnail drops"},
    Entry{Scenario::partial, "partial", "two of four cameras down, the others healthy"},
    Entry{Scenario::degraded, "degraded",
          "the daemon reports itself degraded, with reasons and a more:N marker"},
    Entry{Scenario::noStreams, "no-streams", "no cameras or streams configured"},
    Entry{Scenario::allDown, "all-down", "streams configured, none live"},
    Entry{Scenario::staleFrames, "stale-frames", "cameras live, newest frame seconds old"},
    Entry{Scenario::thumbDrops, "thumb-drops", "a quarter of the thumbnails dropped"},
    Entry{Scenario::hostile, "hostile",
          "markup in every text, absurd figures, a more:N marker past any count"},
    Entry{Scenario::crowd, "crowd", "ten thousand cameras"},
    Entry{Scenario::custom, "custom", "the scenario file merged over the healthy document"},
    Entry{Scenario::http503, "http-503", "HTTP 503 with a valid health document"},
    Entry{Scenario::malformedJson, "malformed-json", "HTTP 200 with a cut-off JSON document"},
    Entry{Scenario::missingCameras, "missing-cameras",
          "HTTP 200 with a document that has no \"cameras\""},
    Entry{Scenario::slow, "slow", "a valid document, after a delay (--slow-seconds)"},
    Entry{Scenario::hang, "hang", "accepts the request and never answers"},
    Entry{Scenario::oversized, "oversized",
          "a valid document padded to a huge size (--oversize-bytes)"},
    Entry{Scenario::trickle, "trickle", "a valid document, one byte every 50 ms"},
};

constexpr std::array<Scenario, kEntries.size()> kAll = [] {
  std::array<Scenario, kEntries.size()> all{};
  for (std::size_t i = 0; i < kEntries.size(); ++i) all[i] = kEntries[i].scenario;
  return all;
}();

const Entry& entryFor(Scenario scenario) {
  for (const Entry& entry : kEntries) {
    if (entry.scenario == scenario) return entry;
  }
  return kEntries.front();  // unreachable: every enumerator has an entry
}

}  // namespace

std::string_view scenarioName(Scenario scenario) { return entryFor(scenario).name; }

std::optional<Scenario> scenarioFromName(std::string_view name) {
  for (const Entry& entry : kEntries) {
    if (entry.name == name) return entry.scenario;
  }
  return std::nullopt;
}

std::span<const Scenario> allScenarios() { return kAll; }

std::string_view scenarioDescription(Scenario scenario) { return entryFor(scenario).description; }

bool isMisbehaviour(Scenario scenario) { return scenario >= Scenario::http503; }

}  // namespace zev::sim
