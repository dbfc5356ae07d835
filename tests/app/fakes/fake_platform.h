// Fakes for the remaining ports, and FakePlatform, which builds a Platform of
// fakes and keeps pointers to them for the test to set up and inspect:
//
//   FakePlatform fakes;
//   fakes.bundleInfo->values["ZEVReliabilityDirectory"] = "~/rel";
//   AppDelegate delegate(fakes.take(), standardError);
//   EXPECT_THAT(fakes.launcherLog->messages(), …);
//
// The pointers stay valid while whoever took the Platform keeps it. The
// status item factory returns no item unless the test sets makeStatusItem
// (or statusItemFactory) itself; statusItemsMade counts the calls.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_PLATFORM_H_
#define ZEV_TESTS_APP_FAKES_FAKE_PLATFORM_H_

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/fakes/fake_notifier.h"
#include "app/fakes/fake_service_manager.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/fake_updater.h"
#include "app/ports/platform.h"

namespace zev::testing {

struct FakeBundleInfo : BundleInfo {
  std::filesystem::path bundle = "/Applications/ZEV.app";
  std::filesystem::path home = "/home/tester";
  // nullopt stands for a value of another type (a number, a boolean, …).
  std::map<std::string, std::optional<std::string>> values;

  std::filesystem::path bundlePath() override { return bundle; }
  std::optional<std::string> stringValue(const std::string& key) override {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : found->second;
  }
  std::filesystem::path homeDirectory() override { return home; }
};

struct FakeWorkspace : Workspace {
  std::vector<std::string> openedURLs;
  std::vector<std::filesystem::path> revealedFiles;

  void openURL(const std::string& url) override { openedURLs.push_back(url); }
  void revealFile(const std::filesystem::path& file) override { revealedFiles.push_back(file); }
};

struct FakeAppActivation : AppActivation {
  std::vector<std::string> calls;  // "accessory", "regular", "activate"

  void becomeAccessory() override { calls.push_back("accessory"); }
  void becomeRegular() override { calls.push_back("regular"); }
  void activate() override { calls.push_back("activate"); }
};

struct FakePlatform {
  FakePlatform() {
    m_platform.makeStatusItem = [this]() -> std::unique_ptr<StatusItem> {
      ++statusItemsMade;
      return statusItemFactory ? statusItemFactory() : nullptr;
    };
  }

  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  // Hands the Platform over (once). The fakes must outlive it.
  Platform take() { return std::move(m_platform); }

 private:
  // Puts a new fake into the platform's `slot` and returns it.
  template <typename Fake, typename Slot>
  static Fake* install(Slot& slot) {
    auto fake = std::make_unique<Fake>();
    Fake* pointer = fake.get();
    slot = std::move(fake);
    return pointer;
  }

  Platform m_platform;  // before the fakes, which are put into it as they are made

 public:
  FakeSystemLog* launcherLog = install<FakeSystemLog>(m_platform.launcherLog);
  FakeSystemLog* statusItemLog = install<FakeSystemLog>(m_platform.statusItemLog);
  FakeServiceManager* serviceManager = install<FakeServiceManager>(m_platform.serviceManager);
  FakeBundleInfo* bundleInfo = install<FakeBundleInfo>(m_platform.bundleInfo);
  FakeWorkspace* workspace = install<FakeWorkspace>(m_platform.workspace);
  FakeAppActivation* activation = install<FakeAppActivation>(m_platform.activation);
  FakeUpdater* updater = install<FakeUpdater>(m_platform.updater);
  FakeArchiveTool* archiveTool = install<FakeArchiveTool>(m_platform.archiveTool);
  FakeNotifier* notifier = install<FakeNotifier>(m_platform.notifier);
  int statusItemsMade = 0;
  std::function<std::unique_ptr<StatusItem>()> statusItemFactory;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_PLATFORM_H_
