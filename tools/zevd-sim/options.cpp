#include "options.h"

#include <arpa/inet.h>

#include <charconv>
#include <cmath>
#include <sstream>

namespace zev::sim {
namespace {

template <typename Number>
Number parseNumber(std::string_view option, std::string_view text, Number low, Number high) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) {
    std::ostringstream message;
    message << option << " takes a number from " << low << " to " << high << ", not '" << text
            << "'";
    throw UsageError(message.str());
  }
  return value;
}

double parseRate(std::string_view option, std::string_view text) {
  double value = 0;
  try {
    std::size_t used = 0;
    value = std::stod(std::string(text), &used);
    if (used != text.size()) value = -1;
  } catch (const std::exception&) {
    value = -1;  // reported below
  }
  if (!std::isfinite(value) || value < 0 || value > 100000) {
    throw UsageError(std::string(option) + " takes lines per second from 0 to 100000, not '" +
                     std::string(text) + "'");
  }
  return value;
}

// "127.0.0.1:8085", "[::1]:0", "localhost:9000".
void parseListen(std::string_view text, SimOptions& options) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0) {
    throw UsageError("--listen takes HOST:PORT, not '" + std::string(text) + "'");
  }
  std::string_view host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  options.host = std::string(host);
  options.port = parseNumber<int>("--listen's port", text.substr(colon + 1), 0, 65535);
}

}  // namespace

bool isLoopbackHost(std::string_view host) {
  if (host == "localhost") return true;
  const std::string text(host);
  in_addr v4{};
  if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
    return (ntohl(v4.s_addr) >> 24) == 127;
  }
  in6_addr v6{};
  if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
    return IN6_IS_ADDR_LOOPBACK(&v6);
  }
  return false;
}

SimOptions parseOptions(std::span<const std::string_view> args) {
  SimOptions options;
  bool scenarioGiven = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string_view arg = args[i];
    const auto value = [&]() -> std::string_view {
      if (i + 1 >= args.size()) throw UsageError(std::string(arg) + " needs a value");
      return args[++i];
    };
    if (arg == "-h" || arg == "--help") {
      options.help = true;
    } else if (arg == "--listen") {
      parseListen(value(), options);
    } else if (arg == "--allow-remote") {
      options.allowRemote = true;
    } else if (arg == "--scenario") {
      const std::string_view name = value();
      const auto scenario = scenarioFromName(name);
      if (!scenario) {
        throw UsageError("unknown scenario '" + std::string(name) + "' (see --help)");
      }
      options.scenario = *scenario;
      options.scenarioGiven = true;
      scenarioGiven = true;
    } else if (arg == "--scenario-file") {
      options.scenarioFile = std::filesystem::path(value());
      options.scenarioGiven = true;
    } else if (arg == "--daemon-version") {
      options.version = std::string(value());
      options.versionGiven = true;
      if (options.version.empty()) throw UsageError("--daemon-version must not be empty");
    } else if (arg == "--slow-seconds") {
      options.slowSeconds = parseNumber<int>(arg, value(), 0, 3600);
    } else if (arg == "--oversize-bytes") {
      options.oversizeBytes = parseNumber<int64_t>(arg, value(), 0, int64_t{1} << 31);
    } else if (arg == "--hang-max-seconds") {
      options.hangMaxSeconds = parseNumber<int>(arg, value(), 1, 86400);
    } else if (arg == "--log-dir") {
      options.logDir = std::filesystem::path(value());
    } else if (arg == "--log-rate") {
      options.logRate = parseRate(arg, value());
    } else if (arg == "--err-rate") {
      options.errRate = parseRate(arg, value());
    } else if (arg == "--sentinel") {
      options.sentinelPath = std::filesystem::path(value());
    } else if (arg == "--touch-sentinel") {
      options.touchSentinel = true;
    } else if (arg == "--generate-log") {
      options.generateLogPath = std::filesystem::path(value());
    } else if (arg == "--bytes") {
      options.generateBytes = parseNumber<int64_t>(arg, value(), 0, int64_t{1} << 40);
    } else if (arg == "--seed") {
      options.seed = parseNumber<uint64_t>(arg, value(), 0, UINT64_MAX);
    } else {
      throw UsageError("unknown option '" + std::string(arg) + "' (see --help)");
    }
  }
  if (options.help || options.generateLogPath) return options;
  if (!options.allowRemote && !isLoopbackHost(options.host)) {
    throw UsageError("refusing to listen on " + options.host +
                     ", which is not a loopback address; add --allow-remote to insist");
  }
  if (options.scenarioFile && !scenarioGiven) options.scenario = Scenario::custom;
  if (options.scenario == Scenario::custom && !options.scenarioFile) {
    throw UsageError("the custom scenario needs --scenario-file");
  }
  return options;
}

std::string usageText() {
  std::ostringstream out;
  out << "usage: zevd-sim [options]\n"
         "       zevd-sim --generate-log PATH [--bytes N] [--seed S]\n"
         "\n"
         "A simulated zevd recording daemon: serves a live health document at\n"
         "/api/health and a status page at /, appends logfmt lines to\n"
         "$HOME/.zevd/zevd.log and free text to $HOME/.zevd/zevd.err.log, and can be\n"
         "switched between scenarios while it runs.\n"
         "\n"
         "  --listen HOST:PORT     where to listen (default 127.0.0.1:8085); port 0 picks a\n"
         "                         free port. The chosen address is printed on the first line.\n"
         "  --allow-remote         allow a HOST that is not a loopback address\n"
         "  --scenario NAME        the scenario to start in (default healthy)\n"
         "  --scenario-file PATH   a JSON object merged over the healthy document (as a JSON\n"
         "                         merge patch: null removes a key); starts in 'custom'\n"
         "  --daemon-version V     the version to report (default: as a bundle's\n"
         "                         Contents/Helpers/zevd, the bundle's CFBundleVersion;\n"
         "                         else 1.8.3). The bundle's ZEVSimScenario key, when\n"
         "                         present, is the starting scenario unless --scenario\n"
         "                         is given\n"
         "  --slow-seconds N       how long the slow scenario waits (default 6)\n"
         "  --oversize-bytes N     body size of the oversized scenario (default 8388608)\n"
         "  --hang-max-seconds N   a hung request is let go after this long (default 300)\n"
         "  --log-dir DIR          where the logs go (default $HOME/.zevd)\n"
         "  --log-rate N           lines per second into zevd.log (default 2; 0: none)\n"
         "  --err-rate N           lines per second into zevd.err.log (default 0.2)\n"
         "  --sentinel PATH        the update sentinel (default "
      << kDefaultSentinelPath
      << ")\n"
         "  --touch-sentinel       touch the sentinel at start-up\n"
         "  --generate-log PATH    write a realistic zevd.log of --bytes N bytes (default\n"
         "                         1048576) to PATH and exit; --seed S varies it\n"
         "  -h, --help             this text\n"
         "\n"
         "Scenarios:\n";
  for (const Scenario scenario : allScenarios()) {
    std::string name(scenarioName(scenario));
    name.resize(18, ' ');
    out << "  " << name << scenarioDescription(scenario) << "\n";
  }
  out << "\n"
         "Control endpoints (POST, answered whatever the scenario):\n"
         "  /sim/scenario?name=NAME[&seconds=N][&bytes=N]   switch scenario\n"
         "  /sim/version?version=V[&revision=R]             report another build\n"
         "  /sim/sentinel                                   touch the update sentinel\n"
         "GET /sim gives the simulation's state as JSON.\n"
         "\n"
         "Exit status: 0 after SIGINT or SIGTERM, 64 for a bad command line, 66 for an\n"
         "unreadable scenario file, 1 when it cannot listen or write.\n";
  return out.str();
}

}  // namespace zev::sim
