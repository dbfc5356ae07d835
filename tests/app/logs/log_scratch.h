// A scratch directory with the daemon's two log files, for log window tests.
#ifndef ZEV_TESTS_APP_LOGS_LOG_SCRATCH_H_
#define ZEV_TESTS_APP_LOGS_LOG_SCRATCH_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <QTest>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace zev::testing {

class LogScratch {
 public:
  LogScratch() {
    std::filesystem::remove_all(m_home);
    std::filesystem::create_directories(m_home / ".zevd");
  }
  ~LogScratch() {
    std::error_code ignored;
    std::filesystem::remove_all(m_home, ignored);
  }

  const std::filesystem::path& home() const { return m_home; }
  std::filesystem::path daemonLog() const { return m_home / ".zevd" / "zevd.log"; }
  std::filesystem::path stderrLog() const { return m_home / ".zevd" / "zevd.err.log"; }

  static void write(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
  }
  static void append(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary | std::ios::app) << text;
  }
  static std::string read(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
  }
  // `count` logfmt lines of about 100 bytes, cameras cam0..cam2, levels
  // cycling info, warn, error, debug; `tag` goes into each message.
  static std::string lines(int count, const std::string& tag = "line", int first = 0) {
    static const char* const kLevels[] = {"info", "warn", "error", "debug"};
    std::string text;
    for (int i = first; i < first + count; ++i) {
      text += "time=2026-01-02T03:04:05." + std::to_string(100 + i % 900) +
              "Z level=" + kLevels[i % 4] + " camera=cam" + std::to_string(i % 3) + " msg=\"" +
              tag + " " + std::to_string(i) + "\" seg=184467 dur_ms=6000\n";
    }
    return text;
  }

 private:
  const std::filesystem::path m_home =
      std::filesystem::temp_directory_path() /
      ("zev-logwin-" + std::to_string(::getpid()) + "-" +
       ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

// Runs the event loop until `done` holds or `ms` pass.
template <typename Predicate>
bool waitFor(Predicate done, int ms = 5000) {
  return QTest::qWaitFor(done, ms);
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_LOGS_LOG_SCRATCH_H_
