// Black-box tests of zevd-sim: each runs the real executable on an ephemeral
// port with HOME in a temporary directory and talks to it over HTTP.
#include <httplib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"
#include "tools/sim_process.h"

namespace zev {
namespace {

using testing::SimProcess;
using testing::TempDir;
using namespace std::chrono_literals;

class ZevdSim : public ::testing::Test {
 protected:
  void start(std::vector<std::string> args = {"--log-rate", "0", "--err-rate", "0"}) {
    args.insert(args.begin(), {"--listen", "127.0.0.1:0", "--sentinel",
                               (home.path() / "trigger").string()});
    sim = std::make_unique<SimProcess>(args, home.path());
    ASSERT_GT(sim->port(), 0) << "zevd-sim did not start:\n" << sim->output();
  }

  // The answer's status (0: none) and body.
  std::pair<int, std::string> get(const std::string& path, std::chrono::milliseconds timeout = 10s,
                                  bool post = false) {
    httplib::Client client("127.0.0.1", sim->port());
    client.set_connection_timeout(timeout);
    client.set_read_timeout(timeout);
    const auto result = post ? client.Post(path.c_str()) : client.Get(path.c_str());
    return result ? std::pair{result->status, result->body} : std::pair{0, std::string()};
  }
  int post(const std::string& path) { return get(path, 10s, true).first; }
  std::optional<HealthSummary> health() { return decodeHealth(get("/api/health").second); }

  TempDir home;
  std::unique_ptr<SimProcess> sim;
};

// What each scenario serves is checked on the document itself
// (zevd_sim_document_test) and through the status item polling the running
// simulator (StatusItemSimTest); here, the control endpoints.
TEST_F(ZevdSim, ControlEndpointsRefuseWhatTheyCannotServeAndPlayAnUpdate) {
  start({"--daemon-version", "1.8.3", "--log-rate", "0", "--err-rate", "0"});
  EXPECT_EQ(post("/sim/scenario?name=custom"), 409);  // no scenario file
  EXPECT_EQ(post("/sim/scenario?name=nonsense"), 400);
  EXPECT_EQ(post("/sim/scenario?name=slow&seconds=-1"), 400);
  EXPECT_EQ(post("/sim/version"), 400);
  const auto before = health();
  ASSERT_EQ(post("/sim/version?version=1.9.0"), 200);
  const auto after = health();
  ASSERT_TRUE(before && before->build && after && after->build);
  EXPECT_EQ(after->version, "1.9.0");
  EXPECT_EQ(after->build->version, "1.9.0");
  EXPECT_NE(after->build->revision, before->build->revision);
}

// More hung requests at once than a fixed pool of workers would survive; and
// a signal still stops the simulator cleanly while one hangs.
TEST_F(ZevdSim, HangingHealthEndpointLeavesTheRestAnsweringAndStopsOnSignal) {
  for (const int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(strsignal(signal));
    start({"--scenario", "hang", "--log-rate", "50"});
    std::vector<std::thread> hung;
    std::atomic<int> answered = 0;
    for (int i = 0; i < 12; ++i) {
      hung.emplace_back([&] { answered += get("/api/health", 1500ms).first != 0; });
    }
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(get("/sim", 2s).first, 200);
    for (std::thread& each : hung) each.join();
    EXPECT_EQ(answered.load(), 0);
    std::thread waiting([this] { get("/api/health", 30s); });
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(sim->stop(signal, 10s), 0) << sim->output();
    waiting.join();
  }
}

TEST_F(ZevdSim, ScenarioFileIsMergedOverTheHealthyDocument) {
  const std::pair<const char*, std::optional<HealthStatus>> cases[] = {
      {R"({"degraded": true, "degraded_reasons": ["from the file"]})", HealthStatus::yellow},
      {R"({"cameras": null})", std::nullopt},  // does not decode
      {R"({"live_streams": 0})", HealthStatus::red},
  };
  for (const auto& [patch, status] : cases) {
    SCOPED_TRACE(patch);
    std::ofstream(home.path() / "scenario.json") << patch;
    start({"--scenario-file", (home.path() / "scenario.json").string(), "--log-rate", "0"});
    const auto summary = health();
    EXPECT_EQ(summary ? std::optional(classifyHealth(summary)) : std::nullopt, status);
    // Other scenarios stay reachable and the file's can be returned to.
    EXPECT_EQ(post("/sim/scenario?name=healthy"), 200);
    EXPECT_EQ(classifyHealth(health()), HealthStatus::green);
    EXPECT_EQ(post("/sim/scenario?name=custom"), 200);
  }
}

TEST_F(ZevdSim, KeepsServingWhenTheLogsCannotBeWritten) {
  // HOME is a plain file, so $HOME/.zevd can never be created.
  const auto notADirectory = home.path() / "home-file";
  std::ofstream(notADirectory) << "x";
  sim = std::make_unique<SimProcess>(
      std::vector<std::string>{"--listen", "127.0.0.1:0", "--log-rate", "100"}, notADirectory);
  ASSERT_GT(sim->port(), 0) << sim->output();
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(get("/api/health").first, 200);
  EXPECT_EQ(sim->stop(), 0);
  const std::string output = sim->output();
  EXPECT_NE(output.find("cannot write the logs"), std::string::npos) << output;
  // Said once, not once per line.
  EXPECT_EQ(output.find("cannot write the logs"), output.rfind("cannot write the logs"));
}

TEST(ZevdSimCommandLine, RefusesWhatItCannotRun) {
  // What a scenario file may hold is zevd_sim_page_fuzzer's.
  TempDir home;
  const struct {
    std::vector<std::string> args;
    int code;
    const char* says;
  } cases[] = {
      {{"--frobnicate"}, 64, "unknown option '--frobnicate'"},
      {{"--listen", "0.0.0.0:0"}, 64, "not a loopback address"},
      {{"--listen", "127.0.0.1:65536"}, 64, "port"},
      {{"--scenario", "custom"}, 64, "needs --scenario-file"},
      {{"--scenario-file", (home.path() / "missing.json").string()}, 66, "No such file"},
      {{"--generate-log", (home.path() / "no" / "dir.log").string()}, 1, "cannot write the log"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.front() + (c.args.size() > 1 ? " " + c.args[1] : ""));
    std::vector<std::string> args = c.args;
    if (args.front() != "--listen") args.insert(args.begin(), {"--listen", "127.0.0.1:0"});
    SimProcess run(args, home.path(), 0ms);
    EXPECT_EQ(run.waitForExit(20s), c.code) << run.output();
    const std::string output = run.output();
    EXPECT_NE(output.find(c.says), std::string::npos) << output;
    EXPECT_EQ(output.find("listening on"), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace zev
