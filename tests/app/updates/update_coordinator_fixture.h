// Shared set-up of the certified-update tests: an UpdateCoordinator on fake
// ports, a manual clock, a stand-in daemon and a scratch reliability directory.
#ifndef ZEV_TESTS_APP_UPDATES_UPDATE_COORDINATOR_FIXTURE_H_
#define ZEV_TESTS_APP_UPDATES_UPDATE_COORDINATOR_FIXTURE_H_

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThreadPool>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_updater.h"
#include "app/fakes/health_server.h"
#include "app/fakes/manual_clock.h"
#include "app/updates/update_coordinator.h"
#include "core/updates/update_transaction_store.h"

namespace zev::testing {

namespace fs = std::filesystem;

// One stream of camera "cam1" in a health document.
struct Stream {
  std::string id = "main";
  bool enabled = true;
  bool live = true;
  int64_t frameAgeMS = 100;
  bool recording = false;
  std::optional<int64_t> lastSegmentMS;
};

// A decodable health document of `version` with one camera holding `streams`.
inline std::string healthDocument(const std::string& version, const std::vector<Stream>& streams) {
  std::string list;
  for (const Stream& s : streams) {
    if (!list.empty()) list += ',';
    list += R"({"id":")" + s.id + R"(","enabled":)" + (s.enabled ? "true" : "false") +
            R"(,"live":)" + (s.live ? "true" : "false") + R"(,"frame_age_ms":)" +
            std::to_string(s.frameAgeMS) + R"(,"recording":)" + (s.recording ? "true" : "false") +
            (s.lastSegmentMS ? R"(,"last_segment_ms":)" + std::to_string(*s.lastSegmentMS) : "") +
            "}";
  }
  return R"({"ok":true,"version":")" + version +
         R"(","live_streams":1,"total_streams":1,"newest_frame_age_ms":100,)"
         R"("cpu_percent":1,"rss_bytes":1,"thumb_drop_ratio":0,)"
         R"("cameras":[{"id":"cam1","name":"Cam","live":true,"frame_age_ms":100,"streams":[)" +
         list + R"(]}],"build":{"version":")" + version +
         R"(","revision":"r","modified":false,"built_ms":1}})";
}

// One scenario's world; tests make one per table row.
class UpdateHarness {
 public:
  UpdateHarness() {
    bundleInfo.bundle = root / "ZEV.app";
    bundleInfo.home = root / "home";
  }
  UpdateHarness(const UpdateHarness&) = delete;
  UpdateHarness& operator=(const UpdateHarness&) = delete;
  ~UpdateHarness() {
    m_coordinator.reset();
    // An archiving step still on its way back must not outlive the fakes.
    QThreadPool::globalInstance()->waitForDone(10000);
  }

  // Answers every request with `respond(n)`.
  void serve(std::function<HealthServer::Response(int)> respond) {
    server = std::make_unique<HealthServer>(std::move(respond));
    base = QUrl(server->baseURL());
  }
  void serveAlways(HealthServer::Response response) {
    serve([response](int) { return response; });
  }

  UpdateCoordinator& coordinator() {
    if (!m_coordinator) {
      m_coordinator = std::make_unique<UpdateCoordinator>(
          UpdateCoordinator::Ports{log, bundleInfo, &updater, tool, &activation}, clock.clock(),
          [this] { return reliability(); }, [this] { return base; });
      m_coordinator->setSentinelPathForTesting((root / "update-trigger").string());
      m_coordinator->presentCheckFeedback = [](const UpdateCheckFeedback&) {};  // no window
    }
    return *m_coordinator;
  }

  fs::path reliability() const { return root / "rel"; }
  UpdateTransactionStore store() const { return UpdateTransactionStore(reliability()); }
  Timestamp now() const { return std::chrono::floor<std::chrono::milliseconds>(clock.now); }

  QTemporaryDir dir;
  fs::path root = dir.path().toStdString();
  FakeSystemLog log;
  FakeBundleInfo bundleInfo;
  FakeUpdater updater;
  std::shared_ptr<FakeArchiveTool> tool = std::make_shared<FakeArchiveTool>();
  FakeAppActivation activation;
  ManualClock clock;
  std::unique_ptr<HealthServer> server;
  // Port 1 (tcpmux) has no listener here: connections are refused at once.
  QUrl base = QUrl(QStringLiteral("http://127.0.0.1:1"));

 private:
  std::unique_ptr<UpdateCoordinator> m_coordinator;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_UPDATES_UPDATE_COORDINATOR_FIXTURE_H_
