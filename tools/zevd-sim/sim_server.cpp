#include "sim_server.h"

#include <httplib.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <list>
#include <stdexcept>
#include <system_error>

#include "log_generator.h"
#include "sentinel.h"
#include "status_page.h"

namespace zev::sim {
namespace {

using Clock = std::chrono::system_clock;

int64_t nowMS() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch())
      .count();
}

// One thread per connection, joined at shutdown. httplib's own pool has a
// fixed size, which a few hung requests would use up.
class ThreadPerConnection : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> task) override {
    std::lock_guard lock(m_mutex);
    reapFinished();
    auto done = std::make_shared<std::atomic<bool>>(false);
    m_workers.push_back({std::thread([task = std::move(task), done] {
                           task();
                           done->store(true);
                         }),
                         done});
  }

  void shutdown() override {
    std::list<Worker> workers;
    {
      std::lock_guard lock(m_mutex);
      workers.swap(m_workers);
    }
    for (Worker& worker : workers) worker.thread.join();
  }

 private:
  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  void reapFinished() {
    for (auto it = m_workers.begin(); it != m_workers.end();) {
      if (it->done->load()) {
        it->thread.join();
        it = m_workers.erase(it);
      } else {
        ++it;
      }
    }
  }

  std::mutex m_mutex;
  std::list<Worker> m_workers;
};

// httplib's default sets SO_REUSEPORT, which would let a second simulator
// share a port that is already taken; a taken port must be an error.
void socketOptions(int socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

// httplib does not say why a bind failed; try it once more to find out.
std::string bindFailureReason(const std::string& host, int port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  addrinfo* found = nullptr;
  const int lookup = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (lookup != 0) return ::gai_strerror(lookup);
  std::string reason = "unknown reason";
  for (addrinfo* each = found; each; each = each->ai_next) {
    const int fd = ::socket(each->ai_family, each->ai_socktype, each->ai_protocol);
    if (fd < 0) {
      reason = std::strerror(errno);
      continue;
    }
    socketOptions(fd);
    if (::bind(fd, each->ai_addr, each->ai_addrlen) != 0) reason = std::strerror(errno);
    ::close(fd);
  }
  ::freeaddrinfo(found);
  return reason;
}

std::string urlHost(const std::string& host) {
  return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

std::optional<std::filesystem::path> defaultLogDir(const SimOptions& options) {
  if (options.logDir) return options.logDir;
  const char* home = std::getenv("HOME");
  if (!home || !*home) return std::nullopt;
  return std::filesystem::path(home) / ".zevd";
}

void appendLines(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  out << text;
  out.flush();
  if (!out) throw std::system_error(errno, std::generic_category(), path.string());
}

void plain(httplib::Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text + "\n", "text/plain; charset=utf-8");
}

}  // namespace

SimServer::SimServer(const SimOptions& options, SimState state)
    : m_options(options),
      m_startMS(nowMS()),
      m_logDir(defaultLogDir(options)),
      m_server(std::make_unique<httplib::Server>()),
      m_state(std::move(state)) {
  httplib::Server& server = *m_server;
  server.new_task_queue = [] { return new ThreadPerConnection; };
  server.set_socket_options(socketOptions);
  // Bounds how long stop() waits for idle keep-alive connections.
  server.set_keep_alive_timeout(1);

  server.Get("/api/health", [this](const httplib::Request& request, httplib::Response& response) {
    handleHealth(request, response);
  });
  server.Get("/", [this](const httplib::Request&, httplib::Response& response) {
    handlePage(response);
  });
  server.Get("/sim", [this](const httplib::Request&, httplib::Response& response) {
    handleState(response);
  });
  server.Post("/sim/scenario",
              [this](const httplib::Request& request, httplib::Response& response) {
                handleSwitch(request, response);
              });
  server.Post("/sim/version", [this](const httplib::Request& request, httplib::Response& response) {
    handleVersion(request, response);
  });
  server.Post("/sim/sentinel",
              [this](const httplib::Request& request, httplib::Response& response) {
                handleSentinel(request, response);
              });
}

SimServer::~SimServer() {
  stop();
  if (m_logWriter.joinable()) m_logWriter.join();
}

int SimServer::bind() {
  const int port = m_options.port == 0 ? m_server->bind_to_any_port(m_options.host)
                                       : (m_server->bind_to_port(m_options.host, m_options.port)
                                              ? m_options.port
                                              : -1);
  if (port < 0) {
    throw std::runtime_error("cannot listen on " + urlHost(m_options.host) + ":" +
                             std::to_string(m_options.port) + ": " +
                             bindFailureReason(m_options.host, m_options.port));
  }
  return port;
}

void SimServer::run() {
  if (m_logDir && (m_options.logRate > 0 || m_options.errRate > 0)) {
    m_logWriter = std::thread([this] { writeLogs(); });
  }
  m_server->listen_after_bind();
  stop();  // the listener can also end on its own, on a socket error
  if (m_logWriter.joinable()) m_logWriter.join();
}

void SimServer::stop() {
  {
    std::lock_guard lock(m_mutex);
    m_stopping = true;
  }
  m_changed.notify_all();
  m_server->stop();
}

void SimServer::handleHealth(const httplib::Request&, httplib::Response& response) {
  SimState state;
  uint64_t generation = 0;
  {
    std::lock_guard lock(m_mutex);
    state = m_state;
    generation = m_generation;
    ++m_healthRequests;
  }
  HealthAnswer answer = healthAnswer(state, m_startMS, nowMS());
  if (answer.hang || answer.delaySeconds > 0) {
    std::unique_lock lock(m_mutex);
    const auto wait = std::chrono::seconds(answer.hang ? m_options.hangMaxSeconds
                                                       : answer.delaySeconds);
    m_changed.wait_for(lock, wait, [&] {
      return m_stopping || (answer.hang && m_generation != generation);
    });
    if (m_stopping || answer.hang) {
      // Whoever asked has long given up; this answer only frees the thread.
      plain(response, 503, "released");
      return;
    }
    lock.unlock();
    answer = healthAnswer(state, m_startMS, nowMS());
  }
  response.status = answer.status;
  if (answer.trickleMS > 0) {
    // One byte at a time, until done, switched away from, or stopped.
    auto body = std::make_shared<std::string>(std::move(answer.body));
    const auto pause = std::chrono::milliseconds(answer.trickleMS);
    response.set_content_provider(
        body->size(), "application/json",
        [this, body, pause, generation](size_t offset, size_t, httplib::DataSink& sink) {
          std::unique_lock lock(m_mutex);
          if (m_changed.wait_for(lock, pause,
                                 [&] { return m_stopping || m_generation != generation; })) {
            return false;
          }
          lock.unlock();
          return sink.write(body->data() + offset, 1);
        });
    return;
  }
  response.set_content(answer.body, "application/json");
}

void SimServer::handleSwitch(const httplib::Request& request, httplib::Response& response) {
  const std::string name = request.get_param_value("name");
  const auto scenario = scenarioFromName(name);
  if (!scenario) {
    std::string known;
    for (const Scenario each : allScenarios()) known += " " + std::string(scenarioName(each));
    plain(response, 400, "unknown scenario '" + name + "'; known:" + known);
    return;
  }
  const auto number = [&](const char* key, int64_t low, int64_t high) -> std::optional<int64_t> {
    if (!request.has_param(key)) return std::nullopt;
    try {
      const int64_t value = std::stoll(request.get_param_value(key));
      if (value >= low && value <= high) return value;
    } catch (const std::exception&) {
      // reported as a bad value below, like one out of range
    }
    throw std::invalid_argument(key);
  };
  std::optional<int64_t> seconds, bytes;
  try {
    seconds = number("seconds", 0, 3600);
    bytes = number("bytes", 0, int64_t{1} << 31);
  } catch (const std::invalid_argument& bad) {
    plain(response, 400, std::string("bad value for ") + bad.what());
    return;
  }
  {
    std::lock_guard lock(m_mutex);
    if (*scenario == Scenario::custom && !m_state.customPatch) {
      plain(response, 409, "the custom scenario needs --scenario-file at start-up");
      return;
    }
    m_state.scenario = *scenario;
    if (seconds) m_state.slowSeconds = static_cast<int>(*seconds);
    if (bytes) m_state.oversizeBytes = *bytes;
    ++m_generation;
  }
  m_changed.notify_all();
  if (request.has_param("back")) {
    response.set_redirect("/", 303);  // from the web page's buttons
    return;
  }
  plain(response, 200, "scenario " + name);
}

void SimServer::handleVersion(const httplib::Request& request, httplib::Response& response) {
  const std::string version = request.get_param_value("version");
  if (version.empty()) {
    plain(response, 400, "version= is required");
    return;
  }
  {
    std::lock_guard lock(m_mutex);
    DaemonBuild& build = m_state.build;
    build.version = version;
    build.revision = request.has_param("revision") ? request.get_param_value("revision")
                                                   : DaemonBuild::revisionFor(version);
    build.modified = request.get_param_value("modified") == "true";
    build.builtMS = nowMS();
    ++m_generation;
  }
  m_changed.notify_all();
  plain(response, 200, "version " + version);
}

void SimServer::handleSentinel(const httplib::Request&, httplib::Response& response) {
  try {
    touchSentinel(m_options.sentinelPath);
    plain(response, 200, "touched " + m_options.sentinelPath.string());
  } catch (const std::system_error& error) {
    plain(response, 500, std::string("cannot touch the sentinel: ") + error.what());
  }
}

void SimServer::handleState(httplib::Response& response) {
  nlohmann::ordered_json state;
  {
    std::lock_guard lock(m_mutex);
    state["scenario"] = scenarioName(m_state.scenario);
    state["version"] = m_state.build.version;
    state["revision"] = m_state.build.revision;
    state["slow_seconds"] = m_state.slowSeconds;
    state["oversize_bytes"] = m_state.oversizeBytes;
    state["health_requests"] = m_healthRequests;
    state["custom_available"] = m_state.customPatch.has_value();
  }
  state["started_ms"] = m_startMS;
  state["sentinel"] = m_options.sentinelPath.string();
  state["log_dir"] = m_logDir ? nlohmann::ordered_json(m_logDir->string()) : nullptr;
  nlohmann::ordered_json names = nlohmann::ordered_json::array();
  for (const Scenario each : allScenarios()) names.push_back(scenarioName(each));
  state["scenarios"] = std::move(names);
  response.set_content(state.dump(2) + "\n", "application/json");
}

void SimServer::handlePage(httplib::Response& response) {
  SimState state;
  {
    std::lock_guard lock(m_mutex);
    state = m_state;
  }
  const auto document = healthDocument(state, m_startMS, nowMS());
  response.set_content(renderStatusPage(document, state.scenario, state.customPatch.has_value()),
                       "text/html; charset=utf-8");
}

void SimServer::writeLogs() {
  using namespace std::chrono;
  LogLineGenerator generator(static_cast<uint64_t>(m_startMS));
  const std::filesystem::path daemonLog = *m_logDir / "zevd.log";
  const std::filesystem::path errorLog = *m_logDir / "zevd.err.log";
  const auto period = [](double rate) {
    return rate > 0 ? duration_cast<steady_clock::duration>(duration<double>(1.0 / rate))
                    : steady_clock::duration::max();
  };
  const auto daemonPeriod = period(m_options.logRate);
  const auto errorPeriod = period(m_options.errRate);
  auto nextDaemon = steady_clock::now();
  // Both logs get a line at once, so even a short run leaves both files.
  auto nextError = steady_clock::now();
  if (daemonPeriod == steady_clock::duration::max()) nextDaemon += hours(24 * 365);
  if (errorPeriod == steady_clock::duration::max()) nextError += hours(24 * 365);

  bool reported = false;

  std::unique_lock lock(m_mutex);
  std::string scenario(scenarioName(m_state.scenario));
  std::string version = m_state.build.version;
  std::string pending = "time=" + formatTimestamp(nowMS()) +
                        " level=info msg=\"zevd started\" version=" + version +
                        " scenario=" + scenario + "\n";
  while (!m_stopping) {
    // Wake at least every 200 ms so a switch shows in the log soon.
    m_changed.wait_until(lock, std::min({nextDaemon, nextError,
                                         steady_clock::now() + milliseconds(200)}));
    if (m_stopping) break;
    const int64_t stamp = nowMS();
    if (scenarioName(m_state.scenario) != scenario) {
      scenario = std::string(scenarioName(m_state.scenario));
      pending += "time=" + formatTimestamp(stamp) +
                 " level=info msg=\"simulation scenario set\" scenario=" + scenario + "\n";
    }
    if (m_state.build.version != version) {
      version = m_state.build.version;
      pending += "time=" + formatTimestamp(stamp) + " level=info msg=\"build changed\" version=" +
                 version + " revision=" + m_state.build.revision + "\n";
    }
    lock.unlock();

    std::string daemonText, errorText;
    if (m_options.logRate > 0) daemonText.swap(pending);
    pending.clear();
    const auto now = steady_clock::now();
    for (int i = 0; nextDaemon <= now && i < 100000; ++i, nextDaemon += daemonPeriod) {
      daemonText += generator.daemonLine(stamp).text + "\n";
    }
    // A writer that fell behind (a stalled disk) skips ahead instead of flooding.
    if (nextDaemon < now - seconds(1)) nextDaemon = now;
    for (int i = 0; nextError <= now && i < 100000; ++i, nextError += errorPeriod) {
      errorText += generator.errorLine(stamp).text + "\n";
    }
    if (nextError < now - seconds(1)) nextError = now;

    try {
      if (!daemonText.empty() || !errorText.empty()) {
        std::filesystem::create_directories(*m_logDir);
        if (!daemonText.empty()) appendLines(daemonLog, daemonText);
        if (!errorText.empty()) appendLines(errorLog, errorText);
      }
      reported = false;
    } catch (const std::exception& error) {
      // Health keeps being served; say so once, not on every line.
      if (!reported) {
        std::cerr << "zevd-sim: cannot write the logs in " << m_logDir->string() << ": "
                  << error.what() << "; going on without them\n";
        reported = true;
      }
    }
    lock.lock();
  }
}

}  // namespace zev::sim
