// zev-health: fetches the daemon's health document (or reads one from a file)
// and prints the launcher's verdict on it. Exit status: 0 green, 1 yellow,
// 2 red, 64 for a usage error.
#include <httplib.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

namespace {

constexpr std::string_view kDefaultBase = "http://127.0.0.1:8085";
constexpr int kUsageError = 64;

void printUsage(std::ostream& out) {
  out << "usage: zev-health [--url BASE] [--timeout SECONDS] [FILE | -]\n"
         "\n"
         "Prints how ZEV Launcher classifies the recording daemon's health.\n"
         "With no FILE it fetches BASE/api/health (BASE defaults to "
      << kDefaultBase
      << ").\n"
         "With FILE (or - for standard input) it reads a health document instead.\n"
         "\n"
         "Exit status: 0 green, 1 yellow, 2 red, 64 usage error.\n";
}

struct Fetched {
  std::optional<std::string> body;  // set only for HTTP 200 with a body
  std::string description;          // where it came from, or why it failed
  bool fromDaemon = true;
};

// httplib names its errors in one word ("Connection"); say what happened.
std::string describe(httplib::Error error) {
  switch (error) {
    case httplib::Error::Connection:
      return "could not connect (nothing listening, or refused)";
    case httplib::Error::ConnectionTimeout:
      return "timed out while connecting";
    case httplib::Error::Read:
      return "no complete answer before the time-out";
    default:
      return httplib::to_string(error);
  }
}

Fetched fetch(const std::string& base, int timeoutSeconds) {
  httplib::Client client(base);
  client.set_connection_timeout(timeoutSeconds, 0);
  client.set_read_timeout(timeoutSeconds, 0);
  const std::string url = base + "/api/health";
  const auto result = client.Get("/api/health");
  if (!result) {
    return {std::nullopt, url + ": " + describe(result.error())};
  }
  if (result->status != 200 || result->body.empty()) {
    return {std::nullopt, url + ": HTTP " + std::to_string(result->status) +
                              (result->body.empty() ? " with an empty body" : "")};
  }
  return {result->body, url + " (HTTP 200, " + std::to_string(result->body.size()) + " bytes)"};
}

Fetched readFile(const std::string& path) {
  if (path == "-") {
    std::ostringstream all;
    all << std::cin.rdbuf();
    return {all.str(), "standard input", false};
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) return {std::nullopt, path + ": cannot be read", false};
  return {std::string(std::istreambuf_iterator<char>(in), {}), path, false};
}

void printVerdict(const Fetched& source, const std::optional<zev::HealthSummary>& summary,
                  zev::HealthStatus status) {
  std::cout << "source:  " << source.description << "\n";
  std::cout << "status:  " << zev::rawValue(status);
  if (!source.body) {
    std::cout << (source.fromDaemon ? " \u2014 daemon unreachable\n" : " \u2014 no document\n");
    return;
  }
  if (!summary) {
    std::cout << " \u2014 the document does not decode as a health summary\n";
    return;
  }
  std::cout << "\n";
  std::cout << "cameras: " << summary->liveCameras() << "/" << summary->totalCameras()
            << " live (streams " << summary->liveStreams << "/" << summary->totalStreams << ")\n";
  std::cout << "version: " << summary->version;
  if (summary->build) std::cout << " (" << summary->build->revision << ")";
  std::cout << "\n";
  std::cout << "newest frame: " << summary->newestFrameAgeMS
            << " ms, worst: " << summary->worstFrameAgeText() << "\n";
  std::cout << "thumbnail drops: " << summary->thumbDropRatio * 100 << " %\n";
  if (summary->degraded) std::cout << "daemon says degraded: " << (*summary->degraded ? "yes" : "no") << "\n";
  if (!summary->degradedReasons.empty()) {
    const int64_t issues = zev::degradedIssueCountOverflows(summary->degradedReasons)
                               ? -1
                               : summary->degradedIssueCount();
    std::cout << "issues:  " << (issues < 0 ? std::string("too many to count") : std::to_string(issues)) << "\n";
    for (const std::string& reason : summary->visibleDegradedReasons()) {
      std::cout << "  - " << reason << "\n";
    }
  }
  if (summary->defaultRoute) {
    std::cout << "network: " << summary->defaultRoute->summaryText()
              << (summary->defaultRoute->isWarning() ? "  (not a wired gigabit link)" : "") << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string base(kDefaultBase);
  std::optional<std::string> file;
  int timeoutSeconds = 4;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "-h" || arg == "--help") {
      printUsage(std::cout);
      return 0;
    } else if (arg == "--url" && hasValue) {
      base = argv[++i];
      while (!base.empty() && base.back() == '/') base.pop_back();
      if (!base.starts_with("http://")) {
        std::cerr << "zev-health: --url takes an http:// base URL, not '" << base << "'\n";
        return kUsageError;
      }
    } else if (arg == "--timeout" && hasValue) {
      try {
        timeoutSeconds = std::stoi(argv[++i]);
      } catch (const std::exception&) {
        timeoutSeconds = 0;
      }
      if (timeoutSeconds < 1) {
        std::cerr << "zev-health: --timeout takes a whole number of seconds, at least 1\n";
        return kUsageError;
      }
    } else if ((arg == "-" || !arg.starts_with("-")) && !file) {
      file = std::string(arg);
    } else {
      std::cerr << "zev-health: unknown or incomplete option '" << arg << "'\n";
      printUsage(std::cerr);
      return kUsageError;
    }
  }

  const Fetched source = file ? readFile(*file) : fetch(base, timeoutSeconds);
  const auto summary = source.body ? zev::decodeHealth(*source.body) : std::nullopt;
  const zev::HealthStatus status = zev::classifyHealth(summary);
  printVerdict(source, summary, status);
  return static_cast<int>(status);
}
