// Synchronous process running for the delegate: the restart command, whose
// combined output is logged, and the external tools of the update machinery,
// whose output goes straight to our own standard streams.
//
// Both block the calling thread until the child has exited; both may be
// called from any thread (each call owns its QProcess).
#ifndef ZEV_APP_PROCESS_RUNNER_H_
#define ZEV_APP_PROCESS_RUNNER_H_

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zev {

// The process could not be started (no such file, not executable, …).
// what() is the system's description.
class ProcessLaunchError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A process ran and exited with a non-zero status (or was killed by a signal,
// whose number is then the code). The description reads
// "<path> exited <status>", e.g. "/usr/bin/ditto exited 1".
class ReliabilityError : public std::runtime_error {
 public:
  static constexpr std::string_view domain = "ZEVUpdateReliability";

  ReliabilityError(const std::string& path, int status);

  int code() const { return m_code; }
  std::string localizedDescription() const { return what(); }

 private:
  int m_code;
};

// Runs `path` with `arguments`, standard input, output and error inherited,
// and waits for it. Throws ProcessLaunchError or ReliabilityError.
void runInheritingOutput(const std::string& path, const std::vector<std::string>& arguments);

struct CapturedRun {
  int exitStatus = 0;
  // Standard output and standard error through one pipe, decoded as UTF-8;
  // empty when the bytes are not valid UTF-8.
  std::string output;
};

// Runs `path` with `arguments`, output and error merged into one pipe, and
// waits for it (without limit when `timeout` is empty; a child still running
// at the limit is killed and reported as a ProcessLaunchError). Only launching
// throws; a non-zero exit is returned.
CapturedRun runCapturingOutput(const std::string& path, const std::vector<std::string>& arguments,
                               std::optional<std::chrono::milliseconds> timeout = std::nullopt);

}  // namespace zev

#endif  // ZEV_APP_PROCESS_RUNNER_H_
