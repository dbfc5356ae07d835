#include "platform/linux/system_log_linux.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace zev {
namespace {

TEST(JournalSystemLog, WritesCategoryPrefixedLinesToStandardError_WithoutAJournal) {
  JournalSystemLog log("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  ASSERT_FALSE(log.writesToJournal());

  ::testing::internal::CaptureStderr();
  log.info("daemon present at /opt/ZEV.app/Contents/Helpers/zevd");
  log.error("missing daemon at /x — with an em dash");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[launcher] daemon present at /opt/ZEV.app/Contents/Helpers/zevd\n"
            "[launcher] missing daemon at /x — with an em dash\n");
}


// The adapter against a real systemd-journald: a private journal namespace
// of this process's own (its socket and files never touch the default
// journal, nor another run of this test), and a child process that sees that
// namespace's socket at the default path through a private mount namespace.
// Needs root; skipped with the reason where journald or the mounts are not
// to be had.
namespace journal {

std::string run(const std::string& command) {
  std::string output;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
    ::pclose(pipe);
  }
  return output;
}

class PrivateJournal {
 public:
  PrivateJournal() : name("zevtest" + std::to_string(::getpid())) {
    directory = "/run/systemd/journal." + name;
    if (::access(kJournald, X_OK) != 0) {
      why = std::string(kJournald) + " is not installed";
      return;
    }
    m_pid = ::fork();
    if (m_pid == 0) {
      const int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, STDOUT_FILENO);
      ::dup2(null, STDERR_FILENO);
      ::execl(kJournald, kJournald, name.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    for (int i = 0; i < 100 && !std::filesystem::exists(directory + "/socket"); ++i) {
      ::usleep(50'000);
    }
    if (!std::filesystem::exists(directory + "/socket")) why = "systemd-journald did not start";
  }
  ~PrivateJournal() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGTERM);
      ::waitpid(m_pid, nullptr, 0);
    }
    std::error_code ignored;
    const std::string machine = run("cat /etc/machine-id 2>/dev/null").substr(0, 32);
    std::filesystem::remove_all(directory, ignored);
    if (machine.size() == 32) {
      std::filesystem::remove_all("/var/log/journal/" + machine + "." + name, ignored);
      std::filesystem::remove_all("/run/log/journal/" + machine + "." + name, ignored);
    }
  }

  // journalctl on this journal; `arguments` are those after it.
  std::string journalctl(const std::string& arguments) const {
    return run("timeout 10 journalctl --no-pager --namespace=" + name + " " + arguments);
  }

  static constexpr const char* kJournald = "/lib/systemd/systemd-journald";
  std::string name;
  std::string directory;
  std::string why;

 private:
  pid_t m_pid = -1;
};

struct Line {
  const char* category;
  bool error;
  std::string message;
};

// Child: the journal's socket at /run/systemd/journal, then every line
// through the real adapter. Exit 77: no private mount namespace here.
int writeThroughDefaultSocket(const PrivateJournal& journal, const std::vector<Line>& lines) {
  const std::string stash = "/tmp/" + journal.name + "-socket";
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mkdir(stash.c_str(), 0700) != 0 ||
      ::mount(journal.directory.c_str(), stash.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
      ::mount("tmpfs", "/run/systemd", "tmpfs", 0, nullptr) != 0 ||
      ::mkdir("/run/systemd/journal", 0755) != 0 ||
      ::mount(stash.c_str(), "/run/systemd/journal", nullptr, MS_BIND, nullptr) != 0) {
    return 77;
  }
  for (const Line& line : lines) {
    JournalSystemLog log("com.zev.zevd", line.category);
    if (!log.writesToJournal()) return 2;
    line.error ? log.error(line.message) : log.info(line.message);
    if (!log.writesToJournal()) return 3;
  }
  return 0;
}

TEST(JournalSystemLog, EntriesReadBackFromARealJournal_AsTheReadmeCommandsShowThem) {
  if (::geteuid() != 0) GTEST_SKIP() << "starting systemd-journald needs root";
  const PrivateJournal journal;
  if (!journal.why.empty()) GTEST_SKIP() << journal.why;

  const std::string nonce = std::to_string(::getpid());
  const std::vector<Line> lines = {
      {"launcher", false, "daemon present " + nonce},
      {"launcher", true, "Agent register failed: denied " + nonce},
      {"statusitem", false, "status item installed " + nonce},
      {"statusitem", true, "two lines — " + nonce + "\nsecond"},
  };
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(writeThroughDefaultSocket(journal, lines));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::rmdir(("/tmp/" + journal.name + "-socket").c_str());
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
    GTEST_SKIP() << "no private mount namespace to put the journal's socket in place";
  }
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;

  // journald writes asynchronously: wait for all of them.
  std::vector<nlohmann::json> entries;
  for (int attempt = 0; attempt < 50 && entries.size() < lines.size(); ++attempt) {
    if (attempt) ::usleep(100'000);
    entries.clear();
    std::istringstream json(journal.journalctl("-o json SYSLOG_IDENTIFIER=ZEVLauncher"));
    for (std::string row; std::getline(json, row);) {
      if (!row.empty()) entries.push_back(nlohmann::json::parse(row, nullptr, false));
    }
  }
  ASSERT_EQ(entries.size(), lines.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(lines[i].message);
    const nlohmann::json& entry = entries[i];
    // Non-printable text (the line break) comes back as an array of bytes.
    std::string message;
    if (entry["MESSAGE"].is_array()) {
      for (int byte : entry["MESSAGE"]) message += char(byte);
    } else {
      message = entry.value("MESSAGE", "");
    }
    EXPECT_EQ(message, lines[i].message);
    EXPECT_EQ(entry.value("PRIORITY", ""), lines[i].error ? "3" : "6");
    EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER", ""), "ZEVLauncher");
    EXPECT_EQ(entry.value("ZEV_SUBSYSTEM", ""), "com.zev.zevd");
    EXPECT_EQ(entry.value("ZEV_CATEGORY", ""), lines[i].category);
  }

  // The README's commands (with --namespace where a desktop says --user).
  const std::string everything = journal.journalctl("-t ZEVLauncher -o cat");
  for (const Line& line : lines) EXPECT_NE(everything.find(line.message), std::string::npos);
  const std::string supervision = journal.journalctl("ZEV_CATEGORY=launcher -o verbose");
  EXPECT_NE(supervision.find("MESSAGE=daemon present " + nonce), std::string::npos);
  EXPECT_NE(supervision.find("PRIORITY=3"), std::string::npos);
  EXPECT_NE(supervision.find("ZEV_SUBSYSTEM=com.zev.zevd"), std::string::npos);
  EXPECT_EQ(supervision.find("status item installed"), std::string::npos) << supervision;
  const std::string errors = journal.journalctl("-t ZEVLauncher -p err -o cat");
  EXPECT_EQ(errors.find("daemon present"), std::string::npos) << errors;
  EXPECT_NE(errors.find("Agent register failed: denied " + nonce), std::string::npos) << errors;
}

}  // namespace journal

}  // namespace
}  // namespace zev
