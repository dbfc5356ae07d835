// zevd-sim: a simulated zevd recording daemon for the demo and end-to-end
// tests. See usageText() in options.cpp, or run it with --help.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <thread>
#include <vector>

#include "bundle_settings.h"
#include "health_document.h"
#include "log_generator.h"
#include "options.h"
#include "sentinel.h"
#include "sim_server.h"

namespace {

constexpr int kUsageError = 64;
constexpr int kNoInput = 66;
constexpr int kFailure = 1;

int generateLogAndExit(const zev::sim::SimOptions& options) {
  try {
    const int64_t start = std::chrono::duration_cast<std::chrono::milliseconds>(
                              std::chrono::system_clock::now().time_since_epoch())
                              .count() -
                          int64_t{86400000};
    zev::sim::generateLog(*options.generateLogPath, options.generateBytes, options.seed, start);
  } catch (const std::exception& error) {
    std::cerr << "zevd-sim: cannot write the log: " << error.what() << "\n";
    return kFailure;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace zev::sim;
  const std::vector<std::string_view> args(argv + 1, argv + argc);
  SimOptions options;
  try {
    options = parseOptions(args);
  } catch (const UsageError& error) {
    std::cerr << "zevd-sim: " << error.what() << "\n";
    return kUsageError;
  }
  if (options.help) {
    std::cout << usageText();
    return 0;
  }
  if (options.generateLogPath) return generateLogAndExit(options);

  // As a bundle's daemon, report the bundle's version (see bundle_settings.h).
  std::error_code ignored;
  const BundleSettings bundle = readBundleSettings(std::filesystem::read_symlink("/proc/self/exe", ignored));
  if (!options.versionGiven && bundle.version) options.version = *bundle.version;
  if (!options.scenarioGiven && bundle.scenario) {
    if (const auto scenario = scenarioFromName(*bundle.scenario)) options.scenario = *scenario;
  }

  SimState state;
  state.scenario = options.scenario;
  state.build.version = options.version;
  state.build.revision = DaemonBuild::revisionFor(options.version);
  state.slowSeconds = options.slowSeconds;
  state.oversizeBytes = options.oversizeBytes;
  if (options.scenarioFile) {
    try {
      state.customPatch = readScenarioFile(options.scenarioFile->string());
    } catch (const std::exception& error) {
      std::cerr << "zevd-sim: cannot use the scenario file: " << error.what() << "\n";
      return kNoInput;
    }
  }

  // SIGINT and SIGTERM are taken with sigwait below, on this thread only:
  // block them before any other thread exists so every thread inherits the
  // mask. A client that hangs up mid-answer must not kill the process.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  if (options.touchSentinel) {
    try {
      touchSentinel(options.sentinelPath);
    } catch (const std::exception& error) {
      std::cerr << "zevd-sim: cannot touch the sentinel: " << error.what() << "\n";
      return kFailure;
    }
  }

  SimServer server(options, std::move(state));
  int port = 0;
  try {
    port = server.bind();
  } catch (const std::exception& error) {
    std::cerr << "zevd-sim: " << error.what() << "\n";
    return kFailure;
  }
  const std::string host =
      options.host.find(':') != std::string::npos ? "[" + options.host + "]" : options.host;
  std::cout << "zevd-sim: listening on http://" << host << ":" << port << std::endl;

  std::atomic<bool> serving = true;
  std::thread serve([&] {
    server.run();
    serving = false;
  });
  const timespec tick{0, 200 * 1000 * 1000};
  int received = -1;
  while (serving && received < 0) received = sigtimedwait(&stopSignals, nullptr, &tick);
  server.stop();
  serve.join();
  if (received < 0) {
    std::cerr << "zevd-sim: the server stopped unexpectedly\n";
    return kFailure;
  }
  return 0;
}
