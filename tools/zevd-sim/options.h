// zevd-sim's command line.
#ifndef ZEV_TOOLS_ZEVD_SIM_OPTIONS_H_
#define ZEV_TOOLS_ZEVD_SIM_OPTIONS_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "scenario.h"

namespace zev::sim {

inline constexpr std::string_view kDefaultSentinelPath = "/tmp/com.zev.zevd.update-trigger";

struct SimOptions {
  std::string host = "127.0.0.1";
  int port = 8085;  // 0: any free port
  bool allowRemote = false;
  Scenario scenario = Scenario::healthy;
  std::optional<std::filesystem::path> scenarioFile;
  std::string version = "1.8.3";
  bool versionGiven = false;   // --daemon-version on the command line
  bool scenarioGiven = false;  // --scenario or --scenario-file
  int slowSeconds = 6;
  int64_t oversizeBytes = 8 * 1024 * 1024;
  int hangMaxSeconds = 300;
  std::optional<std::filesystem::path> logDir;  // default $HOME/.zevd
  double logRate = 2;    // lines per second into zevd.log; 0: none
  double errRate = 0.2;  // lines per second into zevd.err.log; 0: none
  std::filesystem::path sentinelPath{std::string(kDefaultSentinelPath)};
  bool touchSentinel = false;
  std::optional<std::filesystem::path> generateLogPath;
  int64_t generateBytes = 1024 * 1024;
  uint64_t seed = 1;
  bool help = false;
};

// A command line that cannot be run; what() is the message for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Parses the arguments after the program name. Throws UsageError.
SimOptions parseOptions(std::span<const std::string_view> args);

std::string usageText();

// 127.0.0.0/8, ::1 and "localhost".
bool isLoopbackHost(std::string_view host);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_OPTIONS_H_
