// A stand-in update server for the Linux updater's tests: an appcast at
// /appcast.xml and an archive at /update.tar.xz on an ephemeral loopback port.
#ifndef ZEV_TESTS_PLATFORM_LINUX_FEED_SERVER_H_
#define ZEV_TESTS_PLATFORM_LINUX_FEED_SERVER_H_

#include <httplib.h>

#include <mutex>
#include <string>
#include <thread>

namespace zev::testing {

// Serves /appcast.xml and /update.tar.xz on an ephemeral loopback port.
class FeedServer {
 public:
  FeedServer() {
    m_server.Get("/appcast.xml", [this](const httplib::Request&, httplib::Response& res) {
      std::lock_guard lock(m_mutex);
      res.set_content(feed, "application/rss+xml");
    });
    m_server.Get("/update.tar.xz", [this](const httplib::Request&, httplib::Response& res) {
      std::lock_guard lock(m_mutex);
      res.set_content(archive, "application/x-xz");
    });
    m_port = m_server.bind_to_any_port("127.0.0.1");
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
  }
  ~FeedServer() {
    m_server.stop();
    m_thread.join();
  }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
  }
  void set(std::string feedText, std::string archiveBytes) {
    std::lock_guard lock(m_mutex);
    feed = std::move(feedText);
    archive = std::move(archiveBytes);
  }

 private:
  std::mutex m_mutex;
  std::string feed;
  std::string archive;
  httplib::Server m_server;
  int m_port = 0;
  std::thread m_thread;
};

// A one-item appcast offering `version` at `archiveURL`.
inline std::string feedFor(const std::string& version, const std::string& archiveURL,
                    std::size_t length, const std::string& signature,
                    const std::string& escapedNotes = "") {
  return "<?xml version=\"1.0\"?><rss version=\"2.0\" "
         "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
         "<item><title>ZEV " + version + "</title><sparkle:version>" + version +
         "</sparkle:version><description>" + escapedNotes + "</description><enclosure url=\"" + archiveURL + "\" length=\"" +
         std::to_string(length) + "\" type=\"application/x-xz\"" +
         (signature.empty() ? "" : " sparkle:edSignature=\"" + signature + "\"") +
         "/></item></channel></rss>";
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_PLATFORM_LINUX_FEED_SERVER_H_
