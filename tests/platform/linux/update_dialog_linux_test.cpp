// The window a user-initiated check shows, driven by the Linux updater
// against a stand-in feed: its texts and buttons for each outcome, with the
// feed's release notes as plain text. Writes a picture of each to
// <build>/artifacts/update-e2e/dialog/ for people to look at.
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTimer>

#include "app/fakes/fake_platform.h"
#include "app/fakes/fake_system_log.h"
#include "app/fakes/qt_test_main.h"
#include "app/updates/update_check_feedback_window.h"
#include "platform/linux/feed_server.h"
#include "platform/linux/updater_linux.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

class WindowDelegate : public UpdaterDelegate {
 public:
  UpdateCheckFeedbackWindow window;
  bool willInstallUpdateOnQuit(const UpdateItem&, std::function<void()>) override { return true; }
  bool shouldPostponeRelaunchForUpdate(const UpdateItem&, std::function<void()>) override {
    return true;
  }
  bool supportsGentleScheduledUpdateReminders() override { return true; }
  bool standardUserDriverShouldHandleShowingScheduledUpdate(const UpdateItem&, bool) override {
    return false;
  }
  void standardUserDriverWillHandleShowingUpdate(bool, const UpdateItem&,
                                                 const UserUpdateState&) override {}
  void standardUserDriverDidReceiveUserAttention(const UpdateItem&) override {}
  void showUserInitiatedCheckFeedback(const UpdateCheckFeedback& feedback) override {
    window.show(feedback);
  }
};

TEST(UpdateDialog, ShowsEachOutcomeOfAUserInitiatedCheckAsPlainText) {
  struct Case {
    const char* picture;
    const char* version;  // offered in the feed; nullptr: the feed is missing
    const char* notes;    // XML-escaped, as a feed carries them
    const char* text;
    const char* informative;  // part of the informative text
    QStringList buttons;
  };
  const Case cases[] = {
      {"up-to-date", "1.0", "", "You're up to date.", "", {"OK"}},
      {"offer", "2.0",
       "&lt;p&gt;Steadier recording after network changes.&lt;/p&gt;"
       "&lt;p&gt;Shows &amp;lt;b&amp;gt; as written.&lt;/p&gt;",
       "ZEV Launcher 2.0 is available.",
       "What's new:\nSteadier recording after network changes.\nShows <b> as written.",
       {"Install", "Later"}},
      {"error", nullptr, "", "The update check failed: the feed answered HTTP 404", "", {"OK"}},
  };
  const QString artifacts = QStringLiteral(ZEV_ARTIFACTS_DIR "/dialog");
  QDir().mkpath(artifacts);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.picture);
    testing::ScratchDirectory scratch;
    testing::FeedServer server;
    testing::FakeBundleInfo bundleInfo;
    testing::FakeSystemLog log;
    bundleInfo.bundle = scratch.path() / "ZEV.app";
    std::filesystem::create_directories(bundleInfo.bundle);
    bundleInfo.values["CFBundleVersion"] = "1.0";
    bundleInfo.values["SUFeedURL"] = server.url(c.version ? "/appcast.xml" : "/missing.xml");
    if (c.version) server.set(testing::feedFor(c.version, "update.tar.xz", 10, "", c.notes), "");
    WindowDelegate delegate;
    LinuxUpdater updater(bundleInfo, log, scratch.path() / "cache");
    updater.start(delegate);
    QSignalSpy ended(&updater, &LinuxUpdater::checkEnded);
    updater.checkForUpdates();
    ASSERT_TRUE(ended.wait(20000));

    QMessageBox* box = delegate.window.window();
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
    QSignalSpy settled(&updater, &LinuxUpdater::checkEnded);
    settled.wait(200);  // let the window lay itself out
    box->grab().save(artifacts + "/update-dialog-" + c.picture + ".png");
  }
}

}  // namespace
}  // namespace zev
