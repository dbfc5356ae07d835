// The simulated daemon's health document and how the health endpoint answers,
// as pure functions of the simulation's state and the current time, so that a
// test can ask for the document at any instant.
//
// The document has four cameras (ten thousand in the crowd scenario) ("front-door", "driveway", "garage",
// "backyard"), each with a recording "main" stream and a "sub" stream (the
// back yard's is disabled). Frame ages tick with each stream's frame rate,
// recording streams close a segment every four seconds, and a camera that is
// down keeps the frame age and last segment of the moment it went down.
#ifndef ZEV_TOOLS_ZEVD_SIM_HEALTH_DOCUMENT_H_
#define ZEV_TOOLS_ZEVD_SIM_HEALTH_DOCUMENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "scenario.h"

namespace zev::sim {

// The daemon's build, as reported in "version" and "build".
struct DaemonBuild {
  std::string version = "1.8.3";
  std::string revision = revisionFor("1.8.3");
  bool modified = false;
  int64_t builtMS = 1762940400000;  // a fixed date, so documents are reproducible

  // A short, stable, hex revision for a version string.
  static std::string revisionFor(std::string_view version);
};

// Everything that decides the document apart from the clock.
struct SimState {
  Scenario scenario = Scenario::healthy;
  DaemonBuild build;
  // Merged over the healthy document (JSON merge patch) in the custom scenario.
  std::optional<nlohmann::ordered_json> customPatch;
  int slowSeconds = 6;
  int64_t oversizeBytes = 8 * 1024 * 1024;
};

inline constexpr int64_t kSegmentMS = 4000;
inline constexpr int kCrowdCameras = 10000;
inline constexpr int kTrickleMS = 50;

// The document for the state at `nowMS` (milliseconds since 1970) of a daemon
// started at `startMS`. Misbehaviour scenarios give the document their answer
// is built from (the healthy one; without "cameras" for missing-cameras).
nlohmann::ordered_json healthDocument(const SimState& state, int64_t startMS, int64_t nowMS);

// How the health endpoint answers.
struct HealthAnswer {
  int status = 200;
  std::string body;
  int delaySeconds = 0;  // answer only after this long
  bool hang = false;     // never answer
  int trickleMS = 0;     // send the body one byte per this many milliseconds
};

HealthAnswer healthAnswer(const SimState& state, int64_t startMS, int64_t nowMS);

// A scenario file's text: one JSON object, merged over the healthy document,
// nested at most kMaxScenarioNesting deep. Throws std::runtime_error saying
// what is wrong with it.
inline constexpr int kMaxScenarioNesting = 64;
nlohmann::ordered_json parseScenario(std::string_view text);
// Reads and parses a scenario file; the message names the path.
nlohmann::ordered_json readScenarioFile(const std::string& path);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_HEALTH_DOCUMENT_H_
