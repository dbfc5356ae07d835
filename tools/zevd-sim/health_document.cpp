#include "health_document.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <numbers>
#include <vector>

namespace zev::sim {
namespace {

using Json = nlohmann::ordered_json;

struct StreamModel {
  std::string_view id;
  bool enabled;
  bool records;
  int64_t framePeriodMS;  // 15 fps main, 5 fps sub
  int64_t phaseMS;
};

struct CameraModel {
  std::string_view id;
  std::string_view name;
  int64_t latencyMS;     // added to every frame age
  int64_t downBeforeMS;  // how long before start-up it went down, when it is down
  std::array<StreamModel, 2> streams;
};

constexpr std::array kCameras = {
    CameraModel{"front-door", "Front door", 24, 12000,
                {{{"main", true, true, 67, 0}, {"sub", true, false, 200, 35}}}},
    CameraModel{"driveway", "Driveway", 31, 13000,
                {{{"main", true, true, 67, 1300}, {"sub", true, false, 200, 80}}}},
    CameraModel{"garage", "Garage", 45, 95000,
                {{{"main", true, true, 67, 2100}, {"sub", true, false, 200, 150}}}},
    CameraModel{"backyard", "Back yard", 38, 41000,
                {{{"main", true, true, 67, 3350}, {"sub", false, false, 200, 0}}}},
};

bool isDown(Scenario scenario, std::string_view cameraID) {
  switch (scenario) {
    case Scenario::partial:
      return cameraID == "garage" || cameraID == "backyard";
    case Scenario::degraded:
      return cameraID == "garage";
    case Scenario::allDown:
      return true;
    default:
      return false;
  }
}

// A smooth wobble in [-1, 1] with the given period, so figures drift
// plausibly instead of jumping.
double wave(int64_t nowMS, double periodMS, double phase) {
  return std::sin(2 * std::numbers::pi * static_cast<double>(nowMS % 86400000) / periodMS + phase);
}

// Rounds to `decimals` places; dividing last keeps the result the double
// nearest the decimal, so the JSON reads 10.2 rather than 10.200000000000001.
double rounded(double value, int decimals) {
  const double scale = std::pow(10.0, decimals);
  return std::round(value * scale) / scale;
}

// Milliseconds since 1970 of the newest segment boundary at or before `atMS`.
int64_t segmentBoundary(int64_t atMS, int64_t phaseMS) {
  const int64_t shifted = atMS - phaseMS;
  const int64_t intoSegment = ((shifted % kSegmentMS) + kSegmentMS) % kSegmentMS;
  return atMS - intoSegment;
}

struct Totals {
  int64_t live = 0;
  int64_t total = 0;
  std::optional<int64_t> newestLive;
  std::optional<int64_t> newestAny;
  std::optional<int64_t> worst;

  void add(bool isLive, int64_t ageMS) {
    ++total;
    if (isLive) {
      ++live;
      newestLive = newestLive ? std::min(*newestLive, ageMS) : ageMS;
    }
    newestAny = newestAny ? std::min(*newestAny, ageMS) : ageMS;
    worst = worst ? std::max(*worst, ageMS) : ageMS;
  }
};

Json cameraDocument(const CameraModel& camera, std::size_t index, Scenario scenario,
                    int64_t startMS, int64_t nowMS, Totals& totals) {
  const bool down = isDown(scenario, camera.id);
  const int64_t downSinceMS = startMS - camera.downBeforeMS;
  const int64_t upMS = nowMS - startMS;
  Json streams = Json::array();
  std::optional<int64_t> newest, worst;
  bool recording = false;
  for (const StreamModel& stream : camera.streams) {
    Json doc;
    doc["id"] = stream.id;
    doc["enabled"] = stream.enabled;
    if (!stream.enabled) {
      doc["live"] = false;
      doc["recording"] = false;
      doc["frame_age_ms"] = -1;  // never had a frame
      streams.push_back(doc);
      continue;
    }
    int64_t ageMS = 0;
    if (down) {
      ageMS = nowMS - downSinceMS;
    } else if (scenario == Scenario::staleFrames) {
      // Frames arrive, but seconds late: 2.5 s and more, worse for each camera.
      ageMS = 2500 + 1700 * static_cast<int64_t>(index) + (upMS + stream.phaseMS) % 1000;
    } else {
      ageMS = camera.latencyMS + (upMS + stream.phaseMS) % stream.framePeriodMS;
    }
    doc["live"] = !down;
    doc["recording"] = stream.records && !down;
    doc["frame_age_ms"] = ageMS;
    if (stream.records) {
      doc["last_segment_ms"] = segmentBoundary(down ? downSinceMS : nowMS, stream.phaseMS);
    }
    streams.push_back(doc);
    totals.add(!down, ageMS);
    newest = newest ? std::min(*newest, ageMS) : ageMS;
    worst = worst ? std::max(*worst, ageMS) : ageMS;
    recording = recording || (stream.records && !down);
  }
  Json doc;
  doc["id"] = camera.id;
  doc["name"] = camera.name;
  doc["live"] = !down;
  doc["recording"] = recording;
  doc["streams"] = std::move(streams);
  doc["frame_age_ms"] = newest.value_or(-1);
  if (worst) doc["worst_frame_age_ms"] = *worst;
  return doc;
}

Json documentFor(Scenario scenario, const DaemonBuild& build, int64_t startMS, int64_t nowMS) {
  Totals totals;
  Json cameras = Json::array();
  if (scenario != Scenario::noStreams) {
    for (std::size_t i = 0; i < kCameras.size(); ++i) {
      cameras.push_back(cameraDocument(kCameras[i], i, scenario, startMS, nowMS, totals));
    }
  }

  double thumbDrops = 0.012 + 0.006 * wave(nowMS, 47000, 0.3);
  if (scenario == Scenario::thumbDrops) thumbDrops = 0.26 + 0.03 * wave(nowMS, 31000, 1.1);
  if (scenario == Scenario::noStreams || scenario == Scenario::allDown) thumbDrops = 0;
  const double cpu = 1.2 + 2.1 * static_cast<double>(totals.live) + 1.5 * wave(nowMS, 23000, 0);
  const int64_t rss = 88 * 1024 * 1024 + static_cast<int64_t>(cameras.size()) * 14 * 1024 * 1024 +
                      static_cast<int64_t>(3 * 1024 * 1024 * wave(nowMS, 61000, 2.0));

  Json doc;
  doc["ok"] = totals.live > 0 || totals.total == 0;
  doc["version"] = build.version;
  doc["live_streams"] = totals.live;
  doc["total_streams"] = totals.total;
  // With nothing live the newest frame is the newest of the dead streams;
  // with nothing configured there is no frame at all.
  doc["newest_frame_age_ms"] = totals.newestLive.value_or(totals.newestAny.value_or(-1));
  if (totals.worst) doc["worst_frame_age_ms"] = *totals.worst;
  doc["cpu_percent"] = rounded(std::max(cpu, 0.1), 1);
  doc["rss_bytes"] = rss / 4096 * 4096;
  doc["thumb_drop_ratio"] = rounded(thumbDrops, 3);
  doc["cameras"] = std::move(cameras);
  doc["build"] = Json{{"version", build.version},
                      {"revision", build.revision},
                      {"modified", build.modified},
                      {"built_ms", build.builtMS}};
  if (scenario == Scenario::degraded) {
    doc["degraded"] = true;
    doc["degraded_reasons"] = {"garage: reconnecting (RTSP 454 Session Not Found)",
                               "disk /var/lib/zevd 93% full",
                               "thumbnailer 12 s behind", "more:2"};
    doc["default_route"] =
        Json{{"interface", "wlan0"}, {"kind", "wifi"}, {"speed_mbps", 433}, {"media", "802.11ac"}};
  } else {
    doc["default_route"] = Json{{"interface", "eth0"},
                                {"kind", "ethernet"},
                                {"speed_mbps", 1000},
                                {"media", "1000baseT <full-duplex>"}};
  }
  return doc;
}

std::string serialized(const Json& doc) { return doc.dump(2) + "\n"; }

// Everything a launcher must not trust: markup where it would render, figures
// no person should see printed as they are, and a last reason whose count
// overflows any 64-bit sum. The daemon calls itself healthy.
Json hostileDocument(Json doc) {
  doc["version"] = "<b>1.8.3</b><img src=\"file:///etc/hostname\">";
  doc["cpu_percent"] = 1e308;
  doc["rss_bytes"] = -1;
  doc["thumb_drop_ratio"] = -0.5;
  doc["worst_frame_age_ms"] = std::numeric_limits<int64_t>::max();
  doc["degraded"] = false;
  doc["degraded_reasons"] = Json::array({"<b>disk</b> slow", "<a href=\"https://example.com\">click</a>",
                                         "more:9223372036854775807"});
  for (Json& camera : doc["cameras"]) {
    camera["name"] = "<h1>" + camera["name"].get<std::string>() + "</h1>\u202e<img src=x>";
    camera["frame_age_ms"] = std::numeric_limits<int64_t>::max();
  }
  doc["default_route"] = Json{{"interface", "<i>eth0</i>"}, {"kind", "wifi"},
                              {"speed_mbps", std::numeric_limits<int64_t>::max()},
                              {"media", "<u>x</u>"}};
  return doc;
}

}  // namespace

std::string DaemonBuild::revisionFor(std::string_view version) {
  uint64_t hash = 0xcbf29ce484222325ULL;
  for (const char c : version) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return std::string(text, 7);
}

nlohmann::ordered_json healthDocument(const SimState& state, int64_t startMS, int64_t nowMS) {
  switch (state.scenario) {
    case Scenario::custom: {
      Json doc = documentFor(Scenario::healthy, state.build, startMS, nowMS);
      if (state.customPatch) doc.merge_patch(*state.customPatch);
      return doc;
    }
    case Scenario::missingCameras: {
      Json doc = documentFor(Scenario::healthy, state.build, startMS, nowMS);
      doc.erase("cameras");
      return doc;
    }
    case Scenario::hostile:
      return hostileDocument(documentFor(Scenario::healthy, state.build, startMS, nowMS));
    case Scenario::crowd: {
      Json doc = documentFor(Scenario::healthy, state.build, startMS, nowMS);
      Json cameras = Json::array();
      int64_t live = 0;
      for (int i = 1; i <= kCrowdCameras; ++i) {
        const bool up = i % 10 != 0;
        live += up ? 1 : 0;
        cameras.push_back(Json{{"id", "cam-" + std::to_string(i)},
                               {"name", "Camera " + std::to_string(i)},
                               {"live", up},
                               {"frame_age_ms", up ? 40 + (i * 7919 + nowMS / 100) % 200 : 90000}});
      }
      doc["cameras"] = std::move(cameras);
      doc["live_streams"] = live;
      doc["total_streams"] = kCrowdCameras;
      return doc;
    }
    default:
      break;
  }
  const Scenario shape = isMisbehaviour(state.scenario) ? Scenario::healthy : state.scenario;
  return documentFor(shape, state.build, startMS, nowMS);
}

HealthAnswer healthAnswer(const SimState& state, int64_t startMS, int64_t nowMS) {
  HealthAnswer answer;
  if (state.scenario == Scenario::hang) {
    answer.hang = true;
    return answer;
  }
  Json doc = healthDocument(state, startMS, nowMS);
  switch (state.scenario) {
    case Scenario::http503:
      answer.status = 503;
      answer.body = serialized(doc);
      break;
    case Scenario::malformedJson: {
      // Cut off two thirds of the way in, as a daemon killed mid-write would.
      const std::string whole = serialized(doc);
      answer.body = whole.substr(0, whole.size() * 2 / 3);
      break;
    }
    case Scenario::slow:
      answer.delaySeconds = state.slowSeconds;
      answer.body = serialized(doc);
      break;
    case Scenario::crowd:
      // Compact: ten thousand cameras stay well under a megabyte.
      answer.body = doc.dump() + "\n";
      break;
    case Scenario::trickle:
      answer.trickleMS = kTrickleMS;
      answer.body = serialized(doc);
      break;
    case Scenario::oversized: {
      // A valid document: a reader that takes it all decodes it, a reader
      // with a size limit gives up.
      doc["padding"] = "";
      const int64_t bare = static_cast<int64_t>(serialized(doc).size());
      doc["padding"] = std::string(static_cast<std::size_t>(std::max<int64_t>(
                                       0, state.oversizeBytes - bare)), ' ');
      answer.body = serialized(doc);
      break;
    }
    default:
      answer.body = serialized(doc);
      break;
  }
  return answer;
}

nlohmann::ordered_json parseScenario(std::string_view text) {
  // Bounded nesting keeps every later walk of the document (merging,
  // dumping, the page) far from the end of the stack.
  const Json::parser_callback_t depthLimit = [](int depth, Json::parse_event_t, Json&) {
    if (depth > kMaxScenarioNesting) {
      throw std::runtime_error("nested deeper than " + std::to_string(kMaxScenarioNesting) +
                               " levels");
    }
    return true;
  };
  Json patch = Json::parse(text, depthLimit, /*allow_exceptions=*/false);
  if (patch.is_discarded()) throw std::runtime_error("not valid JSON");
  if (!patch.is_object()) throw std::runtime_error("not a JSON object");
  return patch;
}

nlohmann::ordered_json readScenarioFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": " + std::strerror(errno));
  const std::string text(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) throw std::runtime_error(path + ": read error");
  try {
    return parseScenario(text);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace zev::sim
