// Fakes of the updater and the archive tool for the certified-update tests:
// no network, no Sparkle, no real bundle copy.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_UPDATER_H_
#define ZEV_TESTS_APP_FAKES_FAKE_UPDATER_H_

#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/ports/archive_tool.h"
#include "app/ports/updater.h"

namespace zev::testing {

// Records every call; the test plays the updater's part by calling the
// delegate it was started with.
class FakeUpdater : public Updater {
 public:
  UpdaterDelegate* delegate = nullptr;
  std::optional<std::string> feed;
  // "start", "automaticChecks=1", "automaticDownloads=1", "background", "userInitiated"
  std::vector<std::string> calls;

  void start(UpdaterDelegate& updaterDelegate) override {
    delegate = &updaterDelegate;
    calls.push_back("start");
  }
  void setAutomaticallyChecksForUpdates(bool on) override {
    calls.push_back("automaticChecks=" + std::to_string(on));
  }
  void setAutomaticallyDownloadsUpdates(bool on) override {
    calls.push_back("automaticDownloads=" + std::to_string(on));
  }
  std::optional<std::string> feedURL() const override { return feed; }
  void checkForUpdatesInBackground() override { calls.push_back("background"); }
  void checkForUpdates() override { calls.push_back("userInitiated"); }

  int count(const std::string& call) const {
    int n = 0;
    for (const std::string& c : calls) n += c == call;
    return n;
  }
};

// Copies nothing real: the "copy" is a directory with one file in it, so a
// test can see a partial archive left behind. Either step can be made to fail.
// Called from a worker thread; the test reads the records after waiting.
class FakeArchiveTool : public ArchiveTool {
 public:
  std::optional<std::string> copyError;
  std::optional<std::string> verifyError;

  std::optional<std::string> copyBundle(const std::filesystem::path& bundle,
                                        const std::filesystem::path& archive) override {
    std::lock_guard lock(m_mutex);
    m_calls.push_back("copy " + bundle.string() + " " + archive.string());
    std::filesystem::create_directory(archive);
    std::ofstream(archive / "partial") << "x";
    return copyError;
  }
  std::optional<std::string> verifyCopy(const std::filesystem::path& archive) override {
    std::lock_guard lock(m_mutex);
    m_calls.push_back("verify " + archive.string());
    return verifyError;
  }

  std::vector<std::string> calls() const {
    std::lock_guard lock(m_mutex);
    return m_calls;
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_UPDATER_H_
