// Runs the zevd-sim executable for black-box tests: on an ephemeral port,
// with HOME pointed at a temporary directory, and always killed again, even
// when a test fails half-way (the destructor) or the test process dies (the
// child asks the kernel to kill it when its parent goes).
#ifndef ZEV_TESTS_TOOLS_SIM_PROCESS_H_
#define ZEV_TESTS_TOOLS_SIM_PROCESS_H_

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/scratch_directory.h"

#ifndef ZEVD_SIM_PATH
#error "ZEVD_SIM_PATH must name the zevd-sim executable"
#endif

namespace zev::testing {

using namespace std::chrono_literals;

using TempDir = ScratchDirectory;

class SimProcess {
 public:
  // Starts zevd-sim with `args` and HOME=`home`, its standard output and
  // error going to one pipe. Waits up to `startTimeout` for the line that
  // names the port; port() is 0 when it did not come.
  SimProcess(const std::vector<std::string>& args, const std::filesystem::path& home,
             std::chrono::milliseconds startTimeout = 20s) {
    ::signal(SIGPIPE, SIG_IGN);  // a test client writing to a stopped sim must not die
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;

    // Everything the child needs is built before fork: only exec-safe calls
    // after it. env(1) sets HOME and execs the simulator in the same process.
    std::vector<std::string> argStore = {"/usr/bin/env", "HOME=" + home.string(), ZEVD_SIM_PATH};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : argStore) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();

    m_pid = ::fork();
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) ::_exit(127);
      ::dup2(fds[1], STDOUT_FILENO);
      ::dup2(fds[1], STDERR_FILENO);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    m_out = fds[0];
    if (m_pid < 0) return;

    const auto deadline = std::chrono::steady_clock::now() + startTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto marker = m_output.find("listening on http://");
      const auto lineEnd = marker == std::string::npos ? marker : m_output.find('\n', marker);
      if (lineEnd != std::string::npos) {
        const auto colon = m_output.rfind(':', lineEnd);
        m_port = std::atoi(m_output.c_str() + colon + 1);
        return;
      }
      if (!readSome(100ms)) break;  // the process ended before saying where it listens
    }
  }

  ~SimProcess() {
    if (m_pid > 0 && !m_status) {
      if (!stop(SIGTERM, 5s)) {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
      }
    }
    if (m_out >= 0) ::close(m_out);
  }
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  int port() const { return m_port; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(m_port); }

  // Sends `signal` and waits up to `timeout` for the process to end. Returns
  // its exit code (see exitCode), or nothing when it is still running.
  std::optional<int> stop(int signal = SIGTERM, std::chrono::milliseconds timeout = 10s) {
    if (m_status) return m_status;
    if (m_pid <= 0) return std::nullopt;
    ::kill(m_pid, signal);
    return waitForExit(timeout);
  }

  std::optional<int> waitForExit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!m_status) {
      int status = 0;
      if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        // The exit code, or 128 plus the signal that ended the process.
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        break;
      }
      if (std::chrono::steady_clock::now() >= deadline) break;
      readSome(20ms);
    }
    while (m_status && readSome(0ms)) continue;
    return m_status;
  }

  // Everything it has printed so far (all of it, once it has exited).
  const std::string& output() {
    while (!m_status && readSome(0ms)) continue;
    return m_output;
  }

 private:
  // Reads what is available within `wait`; false at end of output.
  bool readSome(std::chrono::milliseconds wait) {
    if (m_out < 0) return false;
    pollfd pfd{m_out, POLLIN, 0};
    if (::poll(&pfd, 1, static_cast<int>(wait.count())) <= 0) return wait.count() > 0;
    char buffer[4096];
    const ssize_t got = ::read(m_out, buffer, sizeof buffer);
    if (got <= 0) return false;
    m_output.append(buffer, static_cast<std::size_t>(got));
    return true;
  }

  pid_t m_pid = -1;
  int m_out = -1;
  int m_port = 0;
  std::string m_output;
  std::optional<int> m_status;
};

// Runs zevd-sim to completion (killing it after `timeout`); returns its exit
// code and everything it printed.
struct SimRun {
  int code = -1;
  std::string output;
};

inline SimRun runSim(const std::vector<std::string>& args, const std::filesystem::path& home,
                     std::chrono::milliseconds timeout = 20s) {
  SimProcess process(args, home, 0ms);
  const int code = process.waitForExit(timeout).value_or(-1);
  return {code, process.output()};
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_TOOLS_SIM_PROCESS_H_
