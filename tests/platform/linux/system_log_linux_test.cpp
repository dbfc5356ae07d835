#include "platform/linux/system_log_linux.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <string>

namespace zev {
namespace {

TEST(JournalSystemLog, WritesCategoryPrefixedLinesToStandardError_WithoutAJournal) {
  JournalSystemLog log("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  ::testing::internal::CaptureStderr();
  log.info("daemon present at /opt/ZEV.app/Contents/Helpers/zevd");
  log.error("missing daemon at /x — with an em dash");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[launcher] daemon present at /opt/ZEV.app/Contents/Helpers/zevd\n"
            "[launcher] missing daemon at /x — with an em dash\n");
}

// What the adapter hands journald, as journald receives it: a child process
// binds a socket of its own at the journal's path, inside a private mount
// namespace (so the real journal never sees it), logs through the adapter
// and passes each datagram on, "|"-terminated. Needs root; exit 77 where the
// mount namespace is not to be had.
TEST(JournalSystemLog, SendsPriorityIdentifierAndFieldsToTheJournalSocket) {
  if (::geteuid() != 0) GTEST_SKIP() << "a private mount namespace needs root";
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipe[0]);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", journalSocketPath);
    const int journal = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/run/systemd", "tmpfs", 0, nullptr) != 0 ||
        ::mkdir("/run/systemd/journal", 0755) != 0 ||
        ::bind(journal, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      ::_exit(77);
    }
    JournalSystemLog("com.zev.zevd", "launcher").info("daemon present");
    JournalSystemLog("com.zev.zevd", "statusitem").error("missing — 100%");
    char datagram[4096];
    for (ssize_t n; (n = ::recv(journal, datagram, sizeof datagram, 0)) > 0;) {
      if (::write(pipe[1], datagram, size_t(n)) != n || ::write(pipe[1], "|", 1) != 1) ::_exit(1);
    }
    ::_exit(0);
  }
  ::close(pipe[1]);
  std::string received;
  char buffer[4096];
  for (ssize_t n; (n = ::read(pipe[0], buffer, sizeof buffer)) > 0;) received.append(buffer, size_t(n));
  ::close(pipe[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private mount namespace";
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  // libsystemd adds where in the adapter the call was made; that is its own.
  EXPECT_EQ(std::regex_replace(received, std::regex("CODE_(FILE|LINE|FUNC)=.*\n"), ""),
            "MESSAGE=daemon present\nPRIORITY=6\nSYSLOG_IDENTIFIER=ZEVLauncher\n"
            "ZEV_SUBSYSTEM=com.zev.zevd\nZEV_CATEGORY=launcher\n|"
            "MESSAGE=missing — 100%\nPRIORITY=3\nSYSLOG_IDENTIFIER=ZEVLauncher\n"
            "ZEV_SUBSYSTEM=com.zev.zevd\nZEV_CATEGORY=statusitem\n|");
}

}  // namespace
}  // namespace zev
