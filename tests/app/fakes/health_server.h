// A stand-in daemon for tests that need exact control over each answer (its
// timing above all): an HTTP server on an ephemeral loopback port. Tests of
// ordinary daemon behaviour drive zevd-sim instead.
#ifndef ZEV_TESTS_APP_FAKES_HEALTH_SERVER_H_
#define ZEV_TESTS_APP_FAKES_HEALTH_SERVER_H_

#include <httplib.h>

#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace zev::testing {

// A daemon stand-in: answers GET /api/health with whatever `respond` returns
// for the n-th request (counting from 0). A response may ask to be held back
// for a while (cut short when the server stops).
class HealthServer {
 public:
  struct Response {
    int status = 200;
    std::string body;
    std::chrono::milliseconds delay{0};
  };

  explicit HealthServer(std::function<Response(int)> respond) : m_respond(std::move(respond)) {
    m_server.Get("/api/health", [this](const httplib::Request&, httplib::Response& res) {
      const Response answer = m_respond(m_requests++);
      std::unique_lock lock(m_mutex);
      m_stopping.wait_for(lock, answer.delay, [this] { return m_stop; });
      res.status = answer.status;
      res.set_content(answer.body, "application/json");
    });
    m_port = m_server.bind_to_any_port("127.0.0.1");
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
    // A stop() that comes before the loop runs is lost, and the destructor
    // would then wait for ever: let the loop start first.
    while (!m_server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  ~HealthServer() {
    {
      std::lock_guard lock(m_mutex);
      m_stop = true;
    }
    m_stopping.notify_all();
    m_server.stop();
    m_thread.join();
  }

  QString baseURL() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }

 private:
  std::function<Response(int)> m_respond;
  httplib::Server m_server;
  int m_port = 0;
  std::thread m_thread;
  std::atomic<int> m_requests{0};
  std::mutex m_mutex;
  std::condition_variable m_stopping;
  bool m_stop = false;
};

// A loopback port with nothing listening on it.
inline int closedPort() {
  return httplib::Server().bind_to_any_port("127.0.0.1");  // closed again with the server
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_HEALTH_SERVER_H_
