// The simulated daemon's HTTP server and log writer.
//
// Health requests answer according to the current scenario; the control
// endpoints under /sim and the page at / answer whatever the scenario, so a
// hung health endpoint can always be switched back. Every connection gets its
// own thread, so hung and slow requests never starve the others; they are let
// go when the scenario changes, when the server stops, or after
// --hang-max-seconds.
//
// bind() and run() are called from one thread; stop() may be called from any
// thread, once run() has started or before.
#ifndef ZEV_TOOLS_ZEVD_SIM_SIM_SERVER_H_
#define ZEV_TOOLS_ZEVD_SIM_SIM_SERVER_H_

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "health_document.h"
#include "options.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace zev::sim {

class SimServer {
 public:
  // `state` is the starting state (scenario, build, custom patch, limits).
  SimServer(const SimOptions& options, SimState state);
  ~SimServer();
  SimServer(const SimServer&) = delete;
  SimServer& operator=(const SimServer&) = delete;

  // Binds the listening socket and returns the port (the chosen one for
  // port 0). Throws std::runtime_error with a message for the user.
  int bind();
  // Serves until stop(); writes the logs meanwhile.
  void run();
  void stop();

 private:
  void handleHealth(const httplib::Request& request, httplib::Response& response);
  void handleSwitch(const httplib::Request& request, httplib::Response& response);
  void handleVersion(const httplib::Request& request, httplib::Response& response);
  void handleSentinel(const httplib::Request& request, httplib::Response& response);
  void handleState(httplib::Response& response);
  void handlePage(httplib::Response& response);
  void writeLogs();

  const SimOptions m_options;
  const int64_t m_startMS;
  std::optional<std::filesystem::path> m_logDir;
  std::unique_ptr<httplib::Server> m_server;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  SimState m_state;            // guarded by m_mutex
  uint64_t m_generation = 0;   // guarded; bumped on every switch
  uint64_t m_healthRequests = 0;  // guarded
  bool m_stopping = false;     // guarded
  std::thread m_logWriter;
};

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_SIM_SERVER_H_
