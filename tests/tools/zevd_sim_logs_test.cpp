// The simulated daemon's logs: what the generator writes, checked against the
// log core's parser where that exists, and the files the executable writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/logs/log_line.h"
#include "log_generator.h"
#include "tools/sim_process.h"

namespace zev {
namespace {

using testing::TempDir;
using namespace std::chrono_literals;

constexpr int64_t kStartMS = 1795219200000;  // 2026-11-21T00:00:00Z

std::string readAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(ZevdSimLogs, GeneratedLinesParseAsIntended) {
  sim::LogLineGenerator generator(7);
  for (int i = 0; i < 4000 && !::testing::Test::HasFailure(); ++i) {
    const int64_t at = kStartMS + i * 137;
    const sim::GeneratedLine line = i % 10 == 9 ? generator.errorLine(at) : generator.daemonLine(at);
    SCOPED_TRACE(line.text);
    std::optional<std::string> level = line.level;  // a reader lower-cases it
    if (level) std::transform(level->begin(), level->end(), level->begin(), ::tolower);
    const LogLine parsed = LogLine::parse(line.text);
    EXPECT_EQ(parsed.timestamp(), line.timestamp);
    EXPECT_EQ(parsed.severity(), level ? logSeverityFromRawValue(*level) : std::nullopt);
    EXPECT_EQ(parsed.camera(), line.camera);
    EXPECT_EQ(parsed.message(), line.message);
  }
}

TEST(ZevdSimLogs, GeneratedLogHasExactlyTheRequestedBytes_AndDependsOnlyOnTheSeed) {
  TempDir dir;
  for (const int64_t bytes : {int64_t{0}, int64_t{1}, int64_t{1 << 20}}) {
    SCOPED_TRACE(bytes);
    const auto path = dir.path() / "zevd.log";
    testing::SimProcess run({"--generate-log", path.string(), "--bytes", std::to_string(bytes)},
                            dir.path(), 0ms);
    ASSERT_EQ(run.waitForExit(20s), 0) << run.output();
    const std::string text = readAll(path);
    EXPECT_EQ(static_cast<int64_t>(text.size()), bytes);
    EXPECT_TRUE(bytes == 0 || text.back() == '\n');
  }
  const auto write = [&](uint64_t seed) {
    sim::generateLog(dir.path() / "seeded.log", 100000, seed, kStartMS);
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
  const auto lineCount = [](const std::filesystem::path& path) {
    const std::string text = readAll(path);
    return std::count(text.begin(), text.end(), '\n');
  };
  for (int i = 0; i < 150 && (lineCount(daemonLog) < 200 || lineCount(errorLog) < 10); ++i) {
    std::this_thread::sleep_for(100ms);
  }
  ASSERT_EQ(sim.stop(), 0) << sim.output();
  const std::string daemonText = readAll(daemonLog);
  const std::string errorText = readAll(errorLog);
  ASSERT_FALSE(daemonText.empty() || errorText.empty());
  EXPECT_EQ(daemonText.back(), '\n');  // stopping never leaves half a line
  EXPECT_EQ(errorText.back(), '\n');
  EXPECT_GE(lineCount(daemonLog), 200);
  EXPECT_EQ(daemonText.find("msg=\"zevd started\""), daemonText.find("msg="));
  std::istringstream errors(errorText);
  for (std::string line; std::getline(errors, line);) {
    EXPECT_EQ(line.find('='), std::string::npos) << "free text only: " << line;
  }
}

}  // namespace
}  // namespace zev
