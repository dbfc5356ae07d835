#include "status_page.h"

#include <cstdio>
#include <sstream>

namespace zev::sim {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kDash = "\u2014";

// A field as text, or an em dash when it is absent or not a plain value.
std::string field(const Json& object, std::string_view key) {
  if (!object.is_object()) return std::string(kDash);
  const auto it = object.find(key);
  if (it == object.end() || it->is_null() || it->is_object() || it->is_array()) {
    return std::string(kDash);
  }
  if (it->is_string()) return htmlEscaped(it->get<std::string>());
  if (it->is_boolean()) return it->get<bool>() ? "yes" : "no";
  return htmlEscaped(it->dump());
}

// A boolean field, or `fallback` when it is absent or not a boolean.
bool flag(const Json& object, std::string_view key, bool fallback) {
  if (!object.is_object()) return fallback;
  const auto it = object.find(key);
  return it != object.end() && it->is_boolean() ? it->get<bool>() : fallback;
}

std::string ageText(const Json& object, std::string_view key) {
  const auto it = object.is_object() ? object.find(key) : object.end();
  if (it == object.end() || !it->is_number_integer()) return std::string(kDash);
  const int64_t ms = it->get<int64_t>();
  if (ms < 0) return std::string(kDash);
  if (ms < 10000) return std::to_string(ms) + " ms";
  return std::to_string(ms / 1000) + " s";
}

// A number field scaled and printed with `format` ("%.1f MiB"), or a dash.
std::string scaled(const Json& object, std::string_view key, double scale, const char* format) {
  const auto it = object.is_object() ? object.find(key) : object.end();
  if (it == object.end() || !it->is_number()) return std::string(kDash);
  char text[64];
  std::snprintf(text, sizeof text, format, it->get<double>() * scale);
  return text;
}

std::string answerText(Scenario scenario) {
  switch (scenario) {
    case Scenario::http503:
      return "answers HTTP 503 (with the document below)";
    case Scenario::malformedJson:
      return "answers with cut-off JSON";
    case Scenario::missingCameras:
      return "answers with a document that has no \u201ccameras\u201d";
    case Scenario::slow:
      return "answers slowly";
    case Scenario::hang:
      return "never answers";
    case Scenario::oversized:
      return "answers with an oversized document";
    case Scenario::trickle:
      return "answers one byte at a time";
    default:
      return "answers normally";
  }
}

constexpr std::string_view kStyle = R"(
body{font:15px/1.45 system-ui,sans-serif;margin:2em auto;max-width:60em;padding:0 1em;color:#222}
h1{font-size:1.4em;margin-bottom:.2em} .sub{color:#666;margin-top:0}
table{border-collapse:collapse;margin:1em 0;width:100%}
th,td{text-align:left;padding:.3em .6em;border-bottom:1px solid #ddd} th{background:#f4f4f4}
.live{color:#1a7f37;font-weight:600} .down{color:#c62828;font-weight:600}
.warn{background:#fff4d6;border:1px solid #e0b300;padding:.6em 1em;border-radius:4px}
.bad{background:#fde7e7;border:1px solid #c62828;padding:.6em 1em;border-radius:4px}
form{display:inline} button{margin:.15em;padding:.3em .7em;cursor:pointer}
button.on{font-weight:700;outline:2px solid #1a73e8}
dl{display:grid;grid-template-columns:max-content auto;gap:.2em 1.2em} dt{color:#666}
)";

}  // namespace

std::string htmlEscaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string renderStatusPage(const Json& document, Scenario scenario, bool customAvailable) {
  std::ostringstream page;
  page << "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
          "<meta http-equiv=\"refresh\" content=\"2\">"
          "<title>zevd \u2014 simulated recording daemon</title><style>"
       << kStyle << "</style></head><body>\n";
  page << "<h1>zevd \u00b7 " << field(document, "version") << "</h1>\n";
  page << "<p class=\"sub\">Simulated recording daemon \u00b7 scenario <b>"
       << htmlEscaped(scenarioName(scenario)) << "</b>: "
       << htmlEscaped(scenarioDescription(scenario)) << "</p>\n";
  if (isMisbehaviour(scenario)) {
    page << "<p class=\"bad\">The health endpoint " << htmlEscaped(answerText(scenario))
         << ".</p>\n";
  }

  const Json& build = document.is_object() && document.contains("build") ? document["build"]
                                                                         : Json();
  const Json& route = document.is_object() && document.contains("default_route")
                          ? document["default_route"]
                          : Json();
  page << "<dl>"
       << "<dt>Streams live</dt><dd>" << field(document, "live_streams") << " of "
       << field(document, "total_streams") << "</dd>"
       << "<dt>Newest frame</dt><dd>" << ageText(document, "newest_frame_age_ms") << "</dd>"
       << "<dt>Worst frame</dt><dd>" << ageText(document, "worst_frame_age_ms") << "</dd>"
       << "<dt>CPU</dt><dd>" << scaled(document, "cpu_percent", 1, "%.1f %%") << "</dd>"
       << "<dt>Memory</dt><dd>" << scaled(document, "rss_bytes", 1.0 / (1024 * 1024), "%.0f MiB")
       << "</dd>"
       << "<dt>Thumbnail drops</dt><dd>" << scaled(document, "thumb_drop_ratio", 100, "%.1f %%")
       << "</dd>"
       << "<dt>Build</dt><dd>" << field(build, "version") << " (" << field(build, "revision")
       << ")</dd>"
       << "<dt>Network</dt><dd>" << field(route, "interface") << " " << field(route, "kind")
       << " " << field(route, "speed_mbps") << " Mb/s</dd>"
       << "</dl>\n";

  if (document.is_object() && document.contains("degraded")) {
    page << "<div class=\"warn\"><b>Degraded: " << field(document, "degraded") << "</b>";
    const auto reasons = document.find("degraded_reasons");
    if (reasons != document.end() && reasons->is_array()) {
      page << "<ul>";
      for (const Json& reason : *reasons) {
        page << "<li>" << htmlEscaped(reason.is_string() ? reason.get<std::string>() : reason.dump())
             << "</li>";
      }
      page << "</ul>";
    }
    page << "</div>\n";
  }

  const auto cameras = document.is_object() ? document.find("cameras") : document.end();
  if (cameras == document.end() || !cameras->is_array()) {
    page << "<p class=\"bad\">The document has no camera list.</p>\n";
  } else if (cameras->empty()) {
    page << "<p>No cameras are configured.</p>\n";
  } else {
    page << "<table><tr><th>Camera</th><th>State</th><th>Frame age</th><th>Streams</th></tr>\n";
    for (const Json& camera : *cameras) {
      const bool live = flag(camera, "live", false);
      page << "<tr><td>" << field(camera, "name") << "</td><td class=\""
           << (live ? "live\">live" : "down\">down") << "</td><td>"
           << ageText(camera, "frame_age_ms") << "</td><td>";
      const auto streams = camera.is_object() ? camera.find("streams") : camera.end();
      if (streams != camera.end() && streams->is_array()) {
        bool first = true;
        for (const Json& stream : *streams) {
          if (!first) page << " \u00b7 ";
          first = false;
          page << field(stream, "id");
          if (!flag(stream, "enabled", true)) {
            page << " (off)";
          } else if (flag(stream, "recording", false)) {
            page << " (recording)";
          }
        }
      }
      page << "</td></tr>\n";
    }
    page << "</table>\n";
  }

  page << "<p>Switch scenario:<br>";
  for (const Scenario each : allScenarios()) {
    if (each == Scenario::custom && !customAvailable) continue;
    const std::string name = htmlEscaped(scenarioName(each));
    page << "<form method=\"post\" action=\"/sim/scenario?name=" << name
         << "&amp;back=1\"><button" << (each == scenario ? " class=\"on\"" : "") << " title=\""
         << htmlEscaped(scenarioDescription(each)) << "\">" << name << "</button></form>";
  }
  page << "</p>\n<p class=\"sub\">Raw document: <a href=\"/api/health\">/api/health</a> \u00b7 "
          "state: <a href=\"/sim\">/sim</a></p>\n</body></html>\n";
  return page.str();
}

}  // namespace zev::sim
