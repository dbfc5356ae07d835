// The Linux updater against a loopback feed: a signed update is staged and
// swapped in once the application releases it; a bad one is refused with a
// log line and leaves nothing behind.
#include "platform/linux/updater_linux.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <QSignalSpy>
#include <QTimer>
#include <fstream>
#include <thread>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/qt_test_main.h"
#include "platform/linux/bundle_manifest.h"
#include "support/archive_builder.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using testing::ArchiveEntrySpec;
using T = ArchiveEntrySpec::Type;
using K = UpdateCheckFeedback::Kind;

class RecordingDelegate : public UpdaterDelegate {
 public:
  std::vector<std::string> offered;  // "quit:<v>" or "relaunch:<v>"
  std::function<void()> release;
  std::vector<K> feedback;

  bool willInstallUpdateOnQuit(const UpdateItem& item, std::function<void()> go) override {
    offered.push_back("quit:" + item.versionString);
    release = std::move(go);
    return true;
  }
  bool shouldPostponeRelaunchForUpdate(const UpdateItem& item, std::function<void()> go) override {
    offered.push_back("relaunch:" + item.versionString);
    release = std::move(go);
    return true;
  }
  bool supportsGentleScheduledUpdateReminders() override { return true; }
  bool standardUserDriverShouldHandleShowingScheduledUpdate(const UpdateItem&, bool) override {
    return false;
  }
  void standardUserDriverWillHandleShowingUpdate(bool, const UpdateItem&,
                                                 const UserUpdateState&) override {}
  void standardUserDriverDidReceiveUserAttention(const UpdateItem&) override {}
  void showUserInitiatedCheckFeedback(const UpdateCheckFeedback& f) override {
    feedback.push_back(f.kind);
    if (f.kind == K::updateAvailable && f.install) f.install();  // the user accepts
  }
};

// A bundle whose Info.plist holds just its version; some 10 KiB, with a
// setuid launcher and links inside the bundle.
std::string archiveOf(const std::string& version, std::vector<ArchiveEntrySpec> extra = {}) {
  extra.push_back({T::file, "ZEV.app/Contents/Resources/filler", std::string(8000, 'z')});
  extra.push_back({T::file, "./ZEV.app/Contents/Info.plist", version});
  extra.push_back({T::file, "ZEV.app/Contents/Linux/ZEVLauncher", "#!/bin/sh\n", 06777});
  extra.push_back({T::symlink, "ZEV.app/Contents/Current", "Linux/ZEVLauncher"});
  extra.push_back({T::symlink, "ZEV.app/Contents/Linux/Up", "../../Contents"});
  const auto bytes = testing::buildArchive(extra, testing::ArchiveFormat::tar);
  return std::string(bytes.begin(), bytes.end());
}

std::string installedVersion(const fs::path& bundle) {
  std::ifstream in(bundle / "Contents/Info.plist");
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// An installed bundle 1.0 and a loopback server serving the files of `feed`.
struct Fixture {
  testing::ScratchDirectory scratch;
  const fs::path feed = scratch.path() / "feed";
  const fs::path cache = scratch.path() / "cache";
  httplib::Server server;
  std::thread serving;
  testing::FakeBundleInfo bundleInfo;
  testing::FakeSystemLog log;
  RecordingDelegate delegate;
  manifest::KeyPair key = manifest::generateKeyPair();
  std::unique_ptr<LinuxUpdater> updater;
  std::vector<fs::path> launched;
  int quits = 0;

  Fixture() {
    fs::create_directories(feed);
    server.set_mount_point("/", feed.string());
    const int port = server.bind_to_any_port("127.0.0.1");
    serving = std::thread([this] { server.listen_after_bind(); });
    bundleInfo.bundle = scratch.path() / "apps" / "ZEV.app";
    fs::create_directories(bundleInfo.bundle / "Contents/Linux");
    std::ofstream(bundleInfo.bundle / "Contents/Info.plist") << "1.0";
    bundleInfo.values["CFBundleVersion"] = "1.0";
    bundleInfo.values["SUFeedURL"] = "http://127.0.0.1:" + std::to_string(port) + "/appcast.xml";
    bundleInfo.values["SUPublicEDKey"] = manifest::toBase64(key.publicKey);
    updater = std::make_unique<LinuxUpdater>(bundleInfo, log, cache);
    updater->launchExecutable = [this](const fs::path& exe) {
      launched.push_back(exe);
      return true;
    };
    updater->quitApplication = [this] { ++quits; };
    updater->setTimeoutsForTesting(std::chrono::seconds(10), std::chrono::seconds(10));
    updater->start(delegate);
  }
  ~Fixture() {
    updater.reset();  // closes its connections, which the server would wait for
    server.stop();
    serving.join();
  }

  std::string sign(const std::string& bytes) const { return manifest::sign(bytes, key.secretKey); }

  // A one-item feed offering `version` as update.tar of `length` bytes (the
  // archive's own length when 0), and the archive itself.
  void serve(const std::string& version, const std::string& archive, const std::string& signature,
             std::size_t length = 0) {
    std::ofstream(feed / "appcast.xml")
        << "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
        << "<item><sparkle:version>" << version << "</sparkle:version><enclosure url=\"update.tar\""
        << " length=\"" << (length ? length : archive.size()) << "\""
        << (signature.empty() ? "" : " sparkle:edSignature=\"" + signature + "\"")
        << "/></item></channel></rss>";
    std::ofstream(feed / "update.tar", std::ios::binary) << archive;
  }

  void waitForCheck(const std::function<void()>& start) {
    QSignalSpy ended(updater.get(), &LinuxUpdater::checkEnded);
    start();
    ASSERT_TRUE(ended.wait(20000));
  }

  std::string errors() const {
    std::string all;
    for (const auto& entry : log.entries()) {
      if (entry.level == testing::LogEntry::Level::error) all += entry.message + "\n";
    }
    return all;
  }
};

// The first scheduled check (a minute after start, here at once) stages the
// update; later ones come every SUScheduledCheckInterval seconds.
TEST(LinuxUpdater, StagesASignedUpdateAndSwapsItInWhenReleased) {
  Fixture f;
  f.bundleInfo.values["SUScheduledCheckInterval"] = "7200";
  f.updater->setAutomaticallyDownloadsUpdates(true);
  f.updater->setAutomaticallyChecksForUpdates(true);
  const std::string archive = archiveOf("2.0");
  f.serve("2.0", archive, f.sign(archive));
  auto* timer = f.updater->findChild<QTimer*>();
  ASSERT_NE(timer, nullptr);
  f.waitForCheck([timer] { timer->start(0); });
  EXPECT_EQ(timer->interval(), 7200 * 1000);
  EXPECT_EQ(f.errors(), "");
  ASSERT_EQ(f.delegate.offered, std::vector<std::string>{"quit:2.0"});
  EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "1.0");  // nothing before the release
  EXPECT_TRUE(fs::is_empty(f.cache));                       // the download is gone

  f.updater->checkForUpdatesInBackground();  // it may still be preparing: not offered twice
  EXPECT_EQ(f.delegate.offered.size(), 1u);

  QSignalSpy installed(f.updater.get(), &LinuxUpdater::installEnded);
  f.delegate.release();
  ASSERT_EQ(installed.count(), 1);
  EXPECT_TRUE(installed.at(0).at(0).toBool());
  EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "2.0");
  // Through both links; setuid, setgid, sticky and o+w gone.
  EXPECT_EQ(fs::status(f.bundleInfo.bundle / "Contents/Linux/Up/Current").permissions(),
            fs::perms(0755));
  EXPECT_EQ(f.launched, std::vector<fs::path>{f.bundleInfo.bundle / "Contents/Linux/ZEVLauncher"});
  EXPECT_EQ(f.quits, 1);
  f.delegate.release();  // a second release does nothing
  EXPECT_EQ(f.quits, 1);
}

TEST(LinuxUpdater, RefusesBadUpdatesWithALogLineAndLeavesNothingBehind) {
  const manifest::KeyPair stranger = manifest::generateKeyPair();
  const std::string good = archiveOf("2.0");
  const std::string outward =
      archiveOf("2.0", {{T::symlink, "ZEV.app/Contents/Resources/home", "../../../../.."}});
  std::string tampered = good;
  tampered[tampered.size() / 2] ^= 0x20;
  const std::pair<std::function<void(Fixture&)>, const char*> cases[] = {
      {[&](Fixture& f) { f.serve("2.0", tampered, f.sign(good)); }, "signature does not verify"},
      {[&](Fixture& f) { f.serve("2.0", good, manifest::sign(good, stranger.secretKey)); },
       "signature does not verify"},
      {[&](Fixture& f) { f.serve("2.0", good, ""); }, "the archive is not signed"},
      {[&](Fixture& f) { f.serve("2.0", good.substr(100), f.sign(good), good.size()); },
       "truncated download"},
      {[&](Fixture& f) { f.serve("2.0", good, f.sign(good), 100); },
       "larger than the feed announced"},
      {[&](Fixture& f) { f.serve("2.0", outward, f.sign(outward)); },
       "link pointing outside the bundle refused"},
      {[&](Fixture& f) {  // installed for the whole system: left alone, not even downloaded
         f.serve("2.0", good, f.sign(good));
         EXPECT_EQ(::chown(f.bundleInfo.bundle.c_str(), 65534, 65534) == 0, ::geteuid() == 0);
         fs::permissions(f.bundleInfo.bundle.parent_path(), fs::perms(0555));
       },
       "is not this user's to replace"},
  };
  for (const auto& [publish, logged] : cases) {
    SCOPED_TRACE(logged);
    Fixture f;
    f.updater->setAutomaticallyDownloadsUpdates(true);
    publish(f);
    f.waitForCheck([&] { f.updater->checkForUpdatesInBackground(); });
    EXPECT_NE(f.errors().find(logged), std::string::npos) << f.errors();
    // Nothing staged beside the untouched bundle, and no download left.
    EXPECT_EQ(std::distance(fs::directory_iterator(f.bundleInfo.bundle.parent_path()), {}), 1);
    EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "1.0");
    EXPECT_TRUE(!fs::exists(f.cache) || fs::is_empty(f.cache));
    fs::permissions(f.bundleInfo.bundle.parent_path(), fs::perms::owner_all);
  }
}

// A check the user started: every outcome is told, and an accepted offer
// goes through the relaunch question rather than the quit one.
TEST(LinuxUpdater, AnswersAUserInitiatedCheck) {
  const std::tuple<const char*, std::vector<K>, std::vector<std::string>> cases[] = {
      {"1.0", {K::checking, K::upToDate}, {}},
      {"2.0", {K::checking, K::updateAvailable}, {"relaunch:2.0"}},
      {nullptr, {K::checking, K::error}, {}},  // no feed at all
  };
  for (const auto& [version, feedback, offered] : cases) {
    SCOPED_TRACE(version ? version : "no feed");
    Fixture f;
    const std::string archive = archiveOf(version ? version : "");
    if (version) f.serve(version, archive, f.sign(archive));
    f.waitForCheck([&] { f.updater->checkForUpdates(); });
    if (!offered.empty() && f.delegate.offered.empty()) f.waitForCheck([] {});
    EXPECT_EQ(f.delegate.feedback, feedback);
    EXPECT_EQ(f.delegate.offered, offered);
  }
}

}  // namespace
}  // namespace zev
