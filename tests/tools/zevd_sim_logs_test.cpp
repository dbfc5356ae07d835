// The simulated daemon's logs: what the generator writes, checked against the
// log core's parser where that exists, and the files the executable writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "log_generator.h"
#include "tools/sim_process.h"

#include "core/logs/log_line.h"

namespace zev {
namespace {

using testing::TempDir;
using namespace std::chrono_literals;

constexpr int64_t kStartMS = 1795219200000;  // 2026-11-21T00:00:00Z

std::string readAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// The severity a reader gives a level as written: its lower-case form when
// that names one, else none.
std::optional<LogSeverity> severityFor(std::optional<std::string> level) {
  if (!level) return std::nullopt;
  std::transform(level->begin(), level->end(), level->begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return logSeverityFromRawValue(*level);
}

TEST(ZevdSimLogs, GeneratedLinesParseAsIntended) {
  sim::LogLineGenerator generator(7);
  for (int i = 0; i < 4000; ++i) {
    const bool errorLog = i % 10 == 9;
    const sim::GeneratedLine line =
        errorLog ? generator.errorLine(kStartMS + i * 137) : generator.daemonLine(kStartMS + i * 137);
    SCOPED_TRACE(line.text);
    const LogLine parsed = LogLine::parse(line.text);
    EXPECT_EQ(parsed.timestamp(), line.timestamp);
    EXPECT_EQ(parsed.severity(), severityFor(line.level));
    EXPECT_EQ(parsed.camera(), line.camera);
    EXPECT_EQ(parsed.message(), line.message);
    if (::testing::Test::HasFailure()) break;  // one broken line says enough
  }
}

TEST(ZevdSimLogs, GeneratedLogHasExactlyTheRequestedBytes_AndDependsOnlyOnTheSeed) {
  TempDir dir;
  for (const int64_t bytes : {int64_t{0}, int64_t{1}, int64_t{1 << 20}}) {
    SCOPED_TRACE(bytes);
    const auto path = dir.path() / "zevd.log";
    const auto run = testing::runSim(
        {"--generate-log", path.string(), "--bytes", std::to_string(bytes)}, dir.path());
    ASSERT_EQ(run.code, 0) << run.output;
    const std::string text = readAll(path);
    EXPECT_EQ(static_cast<int64_t>(text.size()), bytes);
    EXPECT_TRUE(bytes == 0 || text.back() == '\n');
  }
  const auto write = [&](int64_t seed) {
    sim::generateLog(dir.path() / "seeded.log", 100000, static_cast<uint64_t>(seed), kStartMS);
    return readAll(dir.path() / "seeded.log");
  };
  EXPECT_EQ(write(5), write(5));
  EXPECT_NE(write(5), write(6));
}

TEST(ZevdSimLogs, RunningSimAppendsToBothLogsUnderHome) {
  TempDir home;
  testing::SimProcess sim({"--listen", "127.0.0.1:0", "--log-rate", "400", "--err-rate", "40",
                           "--sentinel", (home.path() / "trigger").string()},
                          home.path());
  ASSERT_GT(sim.port(), 0) << sim.output();
  const auto daemonLog = home.path() / ".zevd" / "zevd.log";
  const auto errorLog = home.path() / ".zevd" / "zevd.err.log";
  const auto deadline = std::chrono::steady_clock::now() + 15s;
  while (std::chrono::steady_clock::now() < deadline &&
         (lines(readAll(daemonLog)).size() < 200 || lines(readAll(errorLog)).size() < 10)) {
    std::this_thread::sleep_for(100ms);
  }
  ASSERT_EQ(sim.stop(), 0) << sim.output();

  const std::string daemonText = readAll(daemonLog);
  const std::string errorText = readAll(errorLog);
  ASSERT_FALSE(daemonText.empty());
  ASSERT_FALSE(errorText.empty());
  EXPECT_EQ(daemonText.back(), '\n');  // stopping never leaves half a line
  EXPECT_EQ(errorText.back(), '\n');
  const auto daemonLines = lines(daemonText);
  EXPECT_GE(daemonLines.size(), 200u);
  EXPECT_NE(daemonLines.front().find("msg=\"zevd started\""), std::string::npos);
  for (const std::string& line : lines(errorText)) {
    EXPECT_EQ(line.find('='), std::string::npos) << "free text only: " << line;
  }
}

}  // namespace
}  // namespace zev
