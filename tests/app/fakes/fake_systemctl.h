// A fake `systemctl` put first on PATH for the life of the object. It appends
// each call's arguments, space-separated, as one line to a journal, and
// answers each subcommand as told:
//
//   FakeSystemctl systemctl;
//   systemctl.answer("link", 1, "Failed to link unit: Read-only file system\n");
//   … exercise the adapter …
//   EXPECT_THAT(systemctl.calls(), ElementsAre("--user is-enabled com.zev.zevd.service", …));
//
// Subcommands not answered behave as systemd 252's do on a user unit's files:
// is-enabled fails with "Failed to get unit file state for U: No such file or
// directory" until `enable` (then "enabled", exit 0); enable fails for a unit
// never written into the user's unit directory (a `daemon-reload` stands for
// the manager having read one written there); disable forgets the unit;
// enable, disable, daemon-reload and everything else say nothing and exit 0.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_
#define ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_

#include <sys/stat.h>

#include <QTemporaryDir>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "app/fakes/scoped_env.h"

namespace zev::testing {

class FakeSystemctl {
 public:
  FakeSystemctl() {
    const std::filesystem::path bin = file("bin");
    std::filesystem::create_directories(bin);
    std::ofstream(bin / "systemctl")
        << "#!/bin/sh\ndir='" << m_dir.path().toStdString() << "'\n"
        << R"sh(echo "$*" >> "$dir/calls"
sub="$2" unit="${3##*/}"
[ -f "$dir/$sub.sleep" ] && sleep "$(cat "$dir/$sub.sleep")"
[ -f "$dir/$sub.exit" ] && { cat "$dir/$sub.out"; exit "$(cat "$dir/$sub.exit")"; }
state="$dir/$unit.state"
case "$sub" in
  is-enabled) [ -f "$state" ] || { echo "Failed to get unit file state for $unit: No such file or directory" >&2; exit 1; }
              cat "$state"; grep -qx enabled "$state"; exit ;;
  daemon-reload) touch "$dir/reloaded" ;;
  enable) [ -f "$state" ] || [ -f "$dir/reloaded" ] || { echo "Failed to enable unit: Unit file $unit does not exist." >&2; exit 1; }
          echo enabled > "$state" ;;
  disable) rm -f "$state" ;;
esac
exit 0
)sh";
    ::chmod((bin / "systemctl").c_str(), 0755);
    const char* path = std::getenv("PATH");
    m_path = std::make_unique<ScopedEnv>("PATH", bin.string() + ":" + (path ? path : "/usr/bin:/bin"));
  }

  // `subcommand` prints `output` and exits with `exitStatus`.
  void answer(const std::string& subcommand, int exitStatus, const std::string& output = {}) {
    std::ofstream(file(subcommand + ".out")) << output;
    std::ofstream(file(subcommand + ".exit")) << exitStatus;
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
  std::unique_ptr<ScopedEnv> m_path;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_SYSTEMCTL_H_
