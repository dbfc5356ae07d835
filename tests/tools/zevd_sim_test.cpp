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

struct Fetched {
  bool answered = false;
  int status = 0;
  std::string body;
};

class ZevdSim : public ::testing::Test {
 protected:
  // Starts the simulator with `args` after the listen address and no logs
  // unless asked for.
  void start(std::vector<std::string> args = {}) {
    args.insert(args.begin(), {"--listen", "127.0.0.1:0", "--sentinel",
                               (home.path() / "trigger").string()});
    sim = std::make_unique<SimProcess>(args, home.path());
    ASSERT_GT(sim->port(), 0) << "zevd-sim did not start:\n" << sim->output();
  }

  Fetched get(const std::string& path, std::chrono::milliseconds timeout = 10s, bool post = false) {
    httplib::Client client("127.0.0.1", sim->port());
    client.set_connection_timeout(timeout);
    client.set_read_timeout(timeout);
    const auto result = post ? client.Post(path.c_str()) : client.Get(path.c_str());
    if (!result) return {};
    return {true, result->status, result->body};
  }
  Fetched post(const std::string& path) { return get(path, 10s, true); }

  void switchTo(const std::string& scenario, const std::string& extra = "") {
    const Fetched answer = post("/sim/scenario?name=" + scenario + extra);
    ASSERT_EQ(answer.status, 200) << answer.body;
  }

  TempDir home;
  std::unique_ptr<SimProcess> sim;
};

// What each scenario serves is checked on the document itself
// (zevd_sim_document_test) and through the status item polling the running
// simulator (status_item_sim_test); here, what the simulator refuses.
TEST_F(ZevdSim, ControlEndpointRefusesWhatItCannotServe) {
  start({"--log-rate", "0", "--err-rate", "0"});
  EXPECT_EQ(post("/sim/scenario?name=custom").status, 409);  // no scenario file
  EXPECT_EQ(post("/sim/scenario?name=nonsense").status, 400);
  EXPECT_EQ(post("/sim/scenario?name=slow&seconds=-1").status, 400);
  EXPECT_EQ(post("/sim/version").status, 400);
}

TEST_F(ZevdSim, HangingHealthEndpointLeavesTheRestAnswering) {
  start({"--scenario", "hang", "--log-rate", "0", "--err-rate", "0"});
  // More hung requests at once than a fixed pool of workers would survive.
  std::vector<std::thread> hung;
  std::atomic<int> answered = 0;
  for (int i = 0; i < 12; ++i) {
    hung.emplace_back([&] {
      if (get("/api/health", 1500ms).answered) ++answered;
    });
  }
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(get("/", 2s).status, 200);
  EXPECT_EQ(get("/sim", 2s).status, 200);
  for (std::thread& each : hung) each.join();
  EXPECT_EQ(answered.load(), 0);

  switchTo("healthy");
  EXPECT_EQ(get("/api/health", 2s).status, 200);
}

TEST_F(ZevdSim, StopsCleanlyOnSignalEvenWithARequestHanging) {
  for (const int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(strsignal(signal));
    start({"--scenario", "hang", "--log-rate", "50"});
    std::thread waiting([this] { get("/api/health", 30s); });
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(sim->stop(signal, 10s), 0) << sim->output();
    waiting.join();
  }
}

TEST_F(ZevdSim, VersionEndpointPlaysTheDaemonSideOfAnUpdate) {
  start({"--daemon-version", "1.8.3", "--log-rate", "0", "--err-rate", "0"});
  const auto before = decodeHealth(get("/api/health").body);
  ASSERT_TRUE(before && before->build);
  ASSERT_EQ(post("/sim/version?version=1.9.0").status, 200);
  const auto after = decodeHealth(get("/api/health").body);
  ASSERT_TRUE(after && after->build);
  EXPECT_EQ(after->version, "1.9.0");
  EXPECT_EQ(after->build->version, "1.9.0");
  EXPECT_NE(after->build->revision, before->build->revision);
}

TEST_F(ZevdSim, ScenarioFileIsMergedOverTheHealthyDocument) {
  struct Case {
    const char* name;
    const char* patch;
    std::optional<HealthStatus> status;  // nothing: does not decode
  };
  const std::vector<Case> cases = {
      {"own verdict", R"({"degraded": true, "degraded_reasons": ["from the file"]})",
       HealthStatus::yellow},
      {"key removed", R"({"cameras": null})", std::nullopt},
      {"figures", R"({"live_streams": 0})", HealthStatus::red},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto file = home.path() / "scenario.json";
    std::ofstream(file) << c.patch;
    start({"--scenario-file", file.string(), "--log-rate", "0", "--err-rate", "0"});
    const Fetched answer = get("/api/health");
    ASSERT_EQ(answer.status, 200);
    const auto summary = decodeHealth(answer.body);
    EXPECT_EQ(summary.has_value(), c.status.has_value()) << answer.body;
    if (summary && c.status) {
      EXPECT_EQ(classifyHealth(summary), *c.status);
    }
    // The page copes with whatever the file made of the document.
    EXPECT_EQ(get("/").status, 200);
    // Other scenarios stay reachable and the file's can be returned to.
    switchTo("healthy");
    EXPECT_EQ(classifyHealth(decodeHealth(get("/api/health").body)), HealthStatus::green);
    switchTo("custom");
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
  EXPECT_EQ(get("/api/health").status, 200);
  EXPECT_EQ(sim->stop(), 0);
  const std::string output = sim->output();
  EXPECT_NE(output.find("cannot write the logs"), std::string::npos) << output;
  // Said once, not once per line.
  EXPECT_EQ(output.find("cannot write the logs"), output.rfind("cannot write the logs"));
}

TEST(ZevdSimCommandLine, RefusesWhatItCannotRun) {
  TempDir home;
  const auto invalid = home.path() / "invalid.json";
  std::ofstream(invalid) << R"({"ok": tru)";
  const auto deep = home.path() / "deep.json";
  std::ofstream(deep) << "{\"a\": " << std::string(100, '[') << std::string(100, ']') << "}";
  struct Case {
    std::vector<std::string> args;
    int code;
    const char* says;
  };
  const std::vector<Case> cases = {
      {{"--frobnicate"}, 64, "unknown option '--frobnicate'"},
      {{"--listen", "0.0.0.0:0"}, 64, "not a loopback address"},
      {{"--listen", "127.0.0.1:65536"}, 64, "port"},
      {{"--scenario", "sunny"}, 64, "unknown scenario 'sunny'"},
      {{"--scenario", "custom"}, 64, "needs --scenario-file"},
      {{"--scenario-file", (home.path() / "missing.json").string()}, 66, "No such file"},
      {{"--scenario-file", invalid.string()}, 66, "not valid JSON"},
      {{"--scenario-file", deep.string()}, 66, "nested deeper than 64 levels"},
      {{"--generate-log", (home.path() / "no" / "such" / "dir.log").string()}, 1,
       "cannot write the log"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.front() + (c.args.size() > 1 ? " " + c.args[1] : ""));
    std::vector<std::string> args = c.args;
    if (args.front() != "--listen") args.insert(args.begin(), {"--listen", "127.0.0.1:0"});
    const auto run = testing::runSim(args, home.path());
    EXPECT_EQ(run.code, c.code) << run.output;
    EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("listening on"), std::string::npos) << run.output;
  }
}

}  // namespace
}  // namespace zev
