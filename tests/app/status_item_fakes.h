// Fakes for the status item's ports and a small health daemon for tests:
// a StatusItem that records what it was given, a SystemLog that keeps its
// lines, a settable clock, and an HTTP server on an ephemeral loopback port
// whose answer each test chooses.
#ifndef ZEV_TESTS_APP_STATUS_ITEM_FAKES_H_
#define ZEV_TESTS_APP_STATUS_ITEM_FAKES_H_

#include <httplib.h>

#include <QImage>
#include <QRect>
#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "app/clock.h"
#include "app/ports/status_item.h"
#include "app/ports/system_log.h"

namespace zev::testing {

struct StatusItemRecord {
  std::vector<QImage> images;
  QString title;
  QString toolTip;
  std::function<void()> onClick;
  std::optional<QRect> anchor;
};

// Records into a shared record, so the test can still read it once the
// controller owns the item.
class FakeStatusItem : public StatusItem {
 public:
  FakeStatusItem(std::shared_ptr<StatusItemRecord> record, bool hasButton = true)
      : m_record(std::move(record)), m_hasButton(hasButton) {}
  bool hasButton() const override { return m_hasButton; }
  void setImage(const QImage& image) override { m_record->images.push_back(image); }
  void setTitle(const QString& title) override { m_record->title = title; }
  void setToolTip(const QString& toolTip) override { m_record->toolTip = toolTip; }
  void setClickHandler(std::function<void()> onClick) override {
    m_record->onClick = std::move(onClick);
  }
  std::optional<QRect> anchorRect() const override { return m_record->anchor; }

 private:
  std::shared_ptr<StatusItemRecord> m_record;
  bool m_hasButton;
};

class RecordingLog : public SystemLog {
 public:
  void info(std::string_view message) override { infos.emplace_back(message); }
  void error(std::string_view message) override { errors.emplace_back(message); }
  std::vector<std::string> infos;
  std::vector<std::string> errors;
};

// A clock that moves only when the test says so.
struct ManualClock {
  std::chrono::system_clock::time_point now{std::chrono::seconds(1'700'000'000)};
  Clock clock() {
    return [this] { return now; };
  }
};

// A daemon stand-in: answers GET /api/health with whatever `respond` returns
// for the n-th request (counting from 0). A response may ask to be held back
// for a while, or until the server stops (a hanging daemon).
class HealthServer {
 public:
  struct Response {
    int status = 200;
    std::string body;
    std::chrono::milliseconds delay{0};
    bool hang = false;
  };

  explicit HealthServer(std::function<Response(int)> respond) : m_respond(std::move(respond)) {
    m_server.Get("/api/health", [this](const httplib::Request&, httplib::Response& res) {
      const Response answer = m_respond(m_requests++);
      std::unique_lock lock(m_mutex);
      if (answer.hang) {
        m_stopping.wait(lock, [this] { return m_stop; });
      } else if (answer.delay.count() > 0) {
        m_stopping.wait_for(lock, answer.delay, [this] { return m_stop; });
      }
      res.status = answer.status;
      res.set_content(answer.body, "application/json");
    });
    m_port = m_server.bind_to_any_port("127.0.0.1");
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
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
  int requests() const { return m_requests; }

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
  httplib::Server probe;
  const int port = probe.bind_to_any_port("127.0.0.1");
  return port;  // closed again when `probe` goes
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_STATUS_ITEM_FAKES_H_
