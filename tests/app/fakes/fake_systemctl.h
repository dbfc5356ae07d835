// A fake `systemctl` put first on PATH for the life of the object. It appends
// each call's arguments, space-separated, as one line to a journal, and
// answers each subcommand (is-enabled, link, enable, restart, …) as told:
//
//   FakeSystemctl systemctl;
//   systemctl.answer("enable", 1, "Failed to enable unit: already enabled");
//   … exercise the adapter …
//   EXPECT_THAT(systemctl.calls(), ElementsAre("--user is-enabled com.zev.zevd.service", …));
//
// Unanswered subcommands print nothing and exit 0.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_
#define ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_

#include <sys/stat.h>

#include <QTemporaryDir>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "app/fakes/scoped_env.h"

namespace zev::testing {

class FakeSystemctl {
 public:
  FakeSystemctl() {
    m_bin = m_dir.path().toStdString() + "/bin";
    std::filesystem::create_directories(m_bin);
    const std::filesystem::path script = m_bin / "systemctl";
    std::ofstream(script) << "#!/bin/sh\n"
                             "dir='"
                          << m_dir.path().toStdString()
                          << "'\n"
                             "echo \"$*\" >> \"$dir/calls\"\n"
                             "sub=\"$2\"\n"
                             "[ -f \"$dir/$sub.sleep\" ] && sleep \"$(cat \"$dir/$sub.sleep\")\"\n"
                             "[ -f \"$dir/$sub.out\" ] && cat \"$dir/$sub.out\"\n"
                             "[ -f \"$dir/$sub.exit\" ] && exit \"$(cat \"$dir/$sub.exit\")\"\n"
                             "exit 0\n";
    ::chmod(script.c_str(), 0755);
    const char* path = std::getenv("PATH");
    m_path =
        std::make_unique<ScopedEnv>("PATH", m_bin.string() + ":" + (path ? path : "/usr/bin:/bin"));
  }

  // `subcommand` prints `output` and exits with `exitStatus`.
  void answer(const std::string& subcommand, int exitStatus, const std::string& output = {}) {
    std::ofstream(file(subcommand + ".exit")) << exitStatus;
    std::ofstream(file(subcommand + ".out")) << output;
  }
  // `subcommand` sleeps this long before answering.
  void delay(const std::string& subcommand, int seconds) {
    std::ofstream(file(subcommand + ".sleep")) << seconds;
  }

  std::vector<std::string> calls() const {
    std::vector<std::string> lines;
    std::ifstream in(file("calls"));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

 private:
  std::filesystem::path file(const std::string& name) const {
    return std::filesystem::path(m_dir.path().toStdString()) / name;
  }

  QTemporaryDir m_dir;
  std::filesystem::path m_bin;
  std::unique_ptr<ScopedEnv> m_path;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_
