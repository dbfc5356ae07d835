#include "platform/linux/updater_linux.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QSignalSpy>
#include <fstream>
#include <thread>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/qt_test_main.h"
#include "app/updates/update_check_feedback_window.h"
#include "platform/linux/bundle_manifest.h"
#include "support/archive_builder.h"
#include "support/scratch_directory.h"
#include "platform/linux/feed_server.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using testing::ArchiveEntrySpec;
using testing::FeedServer;
using testing::feedFor;
using T = ArchiveEntrySpec::Type;

class RecordingDelegate : public UpdaterDelegate {
 public:
  std::vector<std::string> offered;  // "quit:<v>" or "relaunch:<v>"
  std::function<void()> release;
  std::vector<UpdateCheckFeedback::Kind> feedback;
  UpdateCheckFeedbackWindow* window = nullptr;  // shows the feedback too when set

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
    if (window) window->show(f);
    if (f.kind == UpdateCheckFeedback::Kind::updateAvailable && f.install) f.install();
  }
};

std::string bytesOf(const std::vector<std::uint8_t>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

std::vector<ArchiveEntrySpec> bundleEntries(const std::string& version) {
  return {{T::file, "ZEV.app/Contents/Info.plist", version},
          {T::file, "ZEV.app/Contents/Linux/ZEVLauncher", "#!/bin/sh\n", 0755}};
}

std::string installedVersion(const fs::path& bundle) {
  std::ifstream in(bundle / "Contents/Info.plist");
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Entries beside the installed bundle other than the bundle itself.
std::vector<std::string> besideBundle(const fs::path& apps) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(apps)) {
    if (entry.path().filename() != "ZEV.app") names.push_back(entry.path().filename().string());
  }
  return names;
}

struct Fixture {
  testing::ScratchDirectory scratch;
  FeedServer server;
  testing::FakeBundleInfo bundleInfo;
  testing::FakeSystemLog log;
  RecordingDelegate delegate;
  manifest::KeyPair key = manifest::generateKeyPair();
  std::unique_ptr<LinuxUpdater> updater;
  std::vector<fs::path> launched;
  int quits = 0;

  Fixture() {
    bundleInfo.bundle = scratch.path() / "apps" / "ZEV.app";
    fs::create_directories(bundleInfo.bundle / "Contents/Linux");
    std::ofstream(bundleInfo.bundle / "Contents/Info.plist") << "1.0";
    bundleInfo.values["CFBundleVersion"] = "1.0";
    bundleInfo.values["SUFeedURL"] = server.url("/appcast.xml");
    bundleInfo.values["SUPublicEDKey"] = manifest::toBase64(key.publicKey);
    updater = std::make_unique<LinuxUpdater>(bundleInfo, log, scratch.path() / "cache");
    updater->launchExecutable = [this](const fs::path& exe) {
      launched.push_back(exe);
      return true;
    };
    updater->quitApplication = [this] { ++quits; };
    updater->setTimeoutsForTesting(std::chrono::seconds(10), std::chrono::seconds(10));
    updater->start(delegate);
  }

  // Publishes an archive of `entries` as version `version`, signed with `signer`.
  void publish(const std::string& version, const std::vector<ArchiveEntrySpec>& entries,
               const manifest::SecretKey* signer, const std::string& escapedNotes = "") {
    const std::string archive = bytesOf(testing::buildArchive(entries));
    server.set(feedFor(version, "update.tar.xz", archive.size(),
                       signer ? manifest::sign(archive, *signer) : "", escapedNotes),
               archive);
  }

  void checkInBackground() {
    QSignalSpy ended(updater.get(), &LinuxUpdater::checkEnded);
    updater->checkForUpdatesInBackground();
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

TEST(LinuxUpdater, StagesASignedUpdateAndSwapsItInWhenReleased) {
  Fixture f;
  f.updater->setAutomaticallyDownloadsUpdates(true);
  f.publish("2.0", bundleEntries("2.0"), &f.key.secretKey);
  f.checkInBackground();
  EXPECT_EQ(f.errors(), "");
  ASSERT_EQ(f.delegate.offered, std::vector<std::string>{"quit:2.0"});
  EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "1.0");  // nothing before the release
  EXPECT_TRUE(fs::is_empty(f.scratch.path() / "cache"));     // the download is gone

  f.updater->checkForUpdatesInBackground();  // it may still be preparing: not offered twice
  EXPECT_EQ(f.delegate.offered.size(), 1u);

  QSignalSpy installed(f.updater.get(), &LinuxUpdater::installEnded);
  f.delegate.release();
  ASSERT_EQ(installed.count(), 1);
  EXPECT_TRUE(installed.at(0).at(0).toBool());
  EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "2.0");
  EXPECT_EQ(f.launched, std::vector<fs::path>{f.bundleInfo.bundle / "Contents/Linux/ZEVLauncher"});
  EXPECT_EQ(f.quits, 1);
  f.delegate.release();  // a second release does nothing
  EXPECT_EQ(f.quits, 1);
}

TEST(LinuxUpdater, RefusesBadUpdatesWithALogLineAndLeavesNothingBehind) {
  const manifest::KeyPair stranger = manifest::generateKeyPair();
  auto outward = bundleEntries("2.0");
  outward.push_back({T::symlink, "ZEV.app/Contents/Resources/home", "../../../../.."});
  struct Case {
    const char* name;
    std::function<void(Fixture&)> publish;
    const char* logged;  // part of the error line
  };
  const Case cases[] = {
      {"tampered archive",
       [](Fixture& f) {
         std::string archive = bytesOf(testing::buildArchive(bundleEntries("2.0")));
         const std::string signature = manifest::sign(archive, f.key.secretKey);
         archive[archive.size() / 2] ^= 0x20;
         f.server.set(feedFor("2.0", "update.tar.xz", archive.size(), signature), archive);
       },
       "signature does not verify"},
      {"wrong key",
       [&](Fixture& f) { f.publish("2.0", bundleEntries("2.0"), &stranger.secretKey); },
       "signature does not verify"},
      {"unsigned", [](Fixture& f) { f.publish("2.0", bundleEntries("2.0"), nullptr); },
       "the archive is not signed"},
      {"truncated download",
       [](Fixture& f) {
         std::string archive = bytesOf(testing::buildArchive(bundleEntries("2.0")));
         const std::string signature = manifest::sign(archive, f.key.secretKey);
         f.server.set(feedFor("2.0", "update.tar.xz", archive.size(), signature),
                      archive.substr(0, archive.size() - 100));
       },
       "truncated download"},
      {"longer than announced",
       [](Fixture& f) {
         const std::string archive = bytesOf(testing::buildArchive(bundleEntries("2.0")));
         f.server.set(feedFor("2.0", "update.tar.xz", 100, "c2ln"), archive);
       },
       "larger than the feed announced"},
      {"feed not XML", [](Fixture& f) { f.server.set("<html>Bad gateway", ""); },
       "feed is not"},
      {"link pointing outside",
       [&](Fixture& f) { f.publish("2.0", outward, &f.key.secretKey); },
       "link pointing outside the bundle refused"},
      {"archive missing",
       [](Fixture& f) {
         f.server.set(feedFor("2.0", "missing.tar.xz", 10, "c2ln"), "");
       },
       "download failed"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fixture f;
    f.updater->setAutomaticallyDownloadsUpdates(true);
    c.publish(f);
    f.checkInBackground();
    EXPECT_NE(f.errors().find(c.logged), std::string::npos) << f.errors();
    EXPECT_EQ(f.delegate.offered, std::vector<std::string>{});
    EXPECT_EQ(installedVersion(f.bundleInfo.bundle), "1.0");
    EXPECT_EQ(besideBundle(f.scratch.path() / "apps"), std::vector<std::string>{});
    EXPECT_FALSE(f.updater->hasStagedUpdate());
    EXPECT_TRUE(!fs::exists(f.scratch.path() / "cache") || fs::is_empty(f.scratch.path() / "cache"));
  }
}

// A check the user started, answered in the real window: texts, buttons and
// the feed's release notes as plain text. A picture of each outcome goes to
// <build>/artifacts/update-e2e/dialog/ for people to look at.
TEST(LinuxUpdater, AnswersAUserInitiatedCheckInItsWindow) {
  using K = UpdateCheckFeedback::Kind;
  struct Case {
    const char* picture;
    const char* version;  // offered by the feed; nullptr: there is no feed
    const char* notes;    // XML-escaped, as a feed carries them
    std::vector<K> feedback;
    const char* text;
    const char* informative;  // part of the window's informative text
    QStringList buttons;
    std::vector<std::string> offered;  // the accepted offer goes through the relaunch question
  };
  const Case cases[] = {
      {"up-to-date", "1.0", "", {K::checking, K::upToDate}, "You're up to date.", "", {"OK"}, {}},
      {"offer", "2.0",
       "&lt;p&gt;Steadier recording after network changes.&lt;/p&gt;"
       "&lt;p&gt;Shows &amp;lt;b&amp;gt; as written.&lt;/p&gt;",
       {K::checking, K::updateAvailable}, "ZEV Launcher 2.0 is available.",
       "What's new:\nSteadier recording after network changes.\nShows <b> as written.",
       {"Install", "Later"}, {"relaunch:2.0"}},
      {"error", nullptr, "", {K::checking, K::error},
       "The update check failed: the feed answered HTTP 404", "", {"OK"}, {}},
  };
  const QString pictures = QStringLiteral(ZEV_ARTIFACTS_DIR "/dialog");
  QDir().mkpath(pictures);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.picture);
    Fixture f;
    UpdateCheckFeedbackWindow window;
    f.delegate.window = &window;
    if (c.version) {
      f.publish(c.version, bundleEntries(c.version), &f.key.secretKey, c.notes);
    } else {
      f.bundleInfo.values["SUFeedURL"] = f.server.url("/missing.xml");
    }
    QSignalSpy ended(f.updater.get(), &LinuxUpdater::checkEnded);
    f.updater->checkForUpdates();
    ASSERT_TRUE(ended.wait(20000));
    if (!c.offered.empty() && f.delegate.offered.empty()) ASSERT_TRUE(ended.wait(20000));
    EXPECT_EQ(f.delegate.feedback, c.feedback);
    EXPECT_EQ(f.delegate.offered, c.offered);

    QMessageBox* box = window.window();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->text(), QString::fromUtf8(c.text));
    EXPECT_TRUE(box->informativeText().contains(QString::fromUtf8(c.informative)))
        << box->informativeText().toStdString();
    auto* informative = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"));
    if (informative) EXPECT_EQ(informative->textFormat(), Qt::PlainText);
    QStringList buttons;
    for (QAbstractButton* button : box->buttons()) buttons << button->text().remove(u'&');
    buttons.sort();
    QStringList expected = c.buttons;
    expected.sort();
    EXPECT_EQ(buttons, expected);
    ended.wait(200);  // let the window lay itself out before the picture
    box->grab().save(pictures + "/update-dialog-" + c.picture + ".png");
  }
}

TEST(LinuxUpdater, LeavesASystemInstalledBundleAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to hand the bundle to another user";
  Fixture f;
  f.updater->setAutomaticallyDownloadsUpdates(true);
  ASSERT_EQ(::chown(f.bundleInfo.bundle.c_str(), 65534, 65534), 0);
  f.publish("2.0", bundleEntries("2.0"), &f.key.secretKey);
  f.checkInBackground();
  EXPECT_NE(f.errors().find("is not this user's to replace"), std::string::npos) << f.errors();
  EXPECT_EQ(f.delegate.offered, std::vector<std::string>{});
  EXPECT_FALSE(fs::exists(f.scratch.path() / "cache"));  // not even downloaded
}

}  // namespace
}  // namespace zev
