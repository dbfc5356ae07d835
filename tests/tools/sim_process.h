// Runs the zevd-sim executable for black-box tests: on an ephemeral port,
// with HOME pointed at a temporary directory, and always killed again, even
// when a test fails half-way (the destructor) or the test process dies (the
// child asks the kernel to kill it when its parent goes).
#ifndef ZEV_TESTS_TOOLS_SIM_PROCESS_H_
#define ZEV_TESTS_TOOLS_SIM_PROCESS_H_

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
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
  // error going to one file. Waits up to `startTimeout` for the line that
  // names the port; port() is 0 when it did not come. (A run that is meant
  // to end by itself passes 0 and waits with waitForExit.)
  SimProcess(const std::vector<std::string>& args, const std::filesystem::path& home,
             std::chrono::milliseconds startTimeout = 20s) {
    ::signal(SIGPIPE, SIG_IGN);  // a test client writing to a stopped sim must not die
    // Everything the child needs is built before fork: only exec-safe calls after it.
    std::vector<std::string> argStore = {"/usr/bin/env", "HOME=" + home.string(), ZEVD_SIM_PATH};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : argStore) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int out = ::open(m_outputPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) ::_exit(127);
      ::dup2(out, STDOUT_FILENO);
      ::dup2(out, STDERR_FILENO);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(out);
    const auto deadline = std::chrono::steady_clock::now() + startTimeout;
    while (m_pid > 0 && std::chrono::steady_clock::now() < deadline && !waitForExit(20ms)) {
      const std::string text = output();
      const auto at = text.find("listening on http://");
      if (at != std::string::npos && text.find('\n', at) != std::string::npos) {
        m_port = std::atoi(text.c_str() + text.rfind(':', text.find('\n', at)) + 1);
        return;
      }
    }
  }

  ~SimProcess() {
    if (!stop(SIGTERM, 5s)) stop(SIGKILL, 1h);
  }
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  int port() const { return m_port; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(m_port); }

  // Sends `signal` and waits up to `timeout` for the process to end: its
  // exit code (128 plus the signal that ended it), or nothing while it runs.
  std::optional<int> stop(int signal = SIGTERM, std::chrono::milliseconds timeout = 10s) {
    if (!m_status && m_pid > 0) ::kill(m_pid, signal);
    return waitForExit(timeout);
  }

  std::optional<int> waitForExit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (int status = 0; !m_status && m_pid > 0; std::this_thread::sleep_for(5ms)) {
      if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      } else if (std::chrono::steady_clock::now() >= deadline) {
        break;
      }
    }
    return m_status;
  }

  // Everything it has printed so far.
  std::string output() const {
    std::ifstream in(m_outputPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  TempDir m_dir;
  std::filesystem::path m_outputPath = m_dir.path() / "output";
  pid_t m_pid = -1;
  int m_port = 0;
  std::optional<int> m_status;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_TOOLS_SIM_PROCESS_H_
