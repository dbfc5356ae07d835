#include "app/logs/log_viewer_model.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>

#include "app/fakes/qt_test_main.h"
#include "app/logs/byte_count_text.h"
#include "app/logs/log_line_list_model.h"
#include "app/logs/log_scratch.h"
#include "app/qt_printers.h"

namespace zev {
namespace {

using testing::LogScratch;
using testing::waitFor;
namespace fs = std::filesystem;

std::string readFile(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

QStringList visibleRaws(const LogViewerModel& model) {
  QStringList raws;
  const LogLineListModel* rows = model.visibleLines();
  for (int row = 0; row < rows->rowCount(); ++row) {
    raws << rows->index(row).data(LogLineListModel::RawRole).toString();
  }
  return raws;
}

class LogViewerModelTest : public ::testing::Test {
 protected:
  bool loaded() { return waitFor([&] { return !model.isLoading(); }); }

  LogScratch scratch;
  LogViewerModel model{scratch.daemonLog(), scratch.stderrLog()};
  // Checks every change of the list model against Qt's rules.
  QAbstractItemModelTester tester{model.visibleLines(),
                                  QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(LogViewerModelTest, StatusTellsWhatALoadShowed) {
  struct Case {
    const char* name;
    LogSource source;
    std::string daemonLog;  // empty: the file is absent
    QString status;
    size_t lines;
  };
  const std::string threeThousand = LogScratch::lines(3000);
  ASSERT_LT(threeThousand.size(), 1u << 20);
  const std::string overOneMiB = LogScratch::lines(12000);
  ASSERT_GT(overOneMiB.size(), 1u << 20);
  const Case cases[] = {
      {"3000 lines under the byte budget", LogSource::daemon, threeThousand,
       "Showing 3000 all lines · read " + byteCountText(static_cast<int64_t>(threeThousand.size())),
       3000},
      {"over 1 MiB: the newest 5000 lines of the last MiB", LogSource::daemon, overOneMiB,
       "Showing 5000 recent lines · read 1 MB", 5000},
      {"an empty file", LogSource::daemon, "\n", "Showing 0 all lines · read 1 byte", 0},
      {"a missing stderr file", LogSource::standardError, "a=1\n",
       "Could not load zevd.err.log: No such file or directory", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogScratch::write(scratch.daemonLog(), c.daemonLog);
    model.chooseSource(c.source);
    EXPECT_TRUE(model.isLoading());
    EXPECT_EQ(model.status(), "Loading recent logs…");
    QSignalSpy announcements(&model, &LogViewerModel::announcement);
    ASSERT_TRUE(loaded());
    EXPECT_EQ(model.status(), c.status);
    EXPECT_EQ(model.lines().size(), c.lines);
    EXPECT_EQ(model.visibleLines()->rowCount(), static_cast<int>(c.lines));
    ASSERT_EQ(announcements.size(), 1);
    EXPECT_EQ(announcements[0][0].toString(), c.status);
  }
  EXPECT_EQ(visibleRaws(model), QStringList());  // the failed load emptied the list
}

// A loader whose first call waits for the test's word, so that the second
// load finishes first.
class GatedLoader {
 public:
  LogViewerModel::LoadOutcome operator()(const fs::path& path, int64_t maxBytes, int64_t maxLines) {
    std::unique_lock lock(m_mutex);
    const int call = ++m_calls;
    if (call == 1) m_released.wait_for(lock, std::chrono::seconds(10), [&] { return m_open; });
    lock.unlock();
    return LogViewerModel::loadTail(path, maxBytes, maxLines);
  }
  void release() {
    std::lock_guard lock(m_mutex);
    m_open = true;
    m_released.notify_all();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_released;
  int m_calls = 0;
  bool m_open = false;
};

TEST_F(LogViewerModelTest, TheLastStartedLoadWinsWhateverFinishesFirst) {
  auto gate = std::make_shared<GatedLoader>();
  model.setLoaderForTesting([gate](const fs::path& p, int64_t b, int64_t l) { return (*gate)(p, b, l); });
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(10));
  model.refresh();  // held at the gate
  QTest::qWait(50);
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(20));
  model.refresh();
  ASSERT_TRUE(loaded());
  EXPECT_EQ(model.status().left(20), "Showing 20 all lines");
  const QUuid newest = model.loadGeneration();

  QSignalSpy changes(&model, &LogViewerModel::statusChanged);
  QSignalSpy replaced(&model, &LogViewerModel::linesReplaced);
  gate->release();  // the first load finishes last, over the 20-line file or not
  QTest::qWait(300);
  EXPECT_EQ(changes.size(), 0);
  EXPECT_EQ(replaced.size(), 0);
  EXPECT_EQ(model.lines().size(), 20u);
  EXPECT_EQ(model.loadGeneration(), newest);
  EXPECT_FALSE(model.isLoading());
}

TEST_F(LogViewerModelTest, ALoadStaysInFlightUntilTheNewestFinishes) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(3));
  model.refresh();  // finishes at once (the loader is taken when a load starts)
  auto gate = std::make_shared<GatedLoader>();
  model.setLoaderForTesting([gate](const fs::path& p, int64_t b, int64_t l) { return (*gate)(p, b, l); });
  model.refresh();  // held at the gate
  QTest::qWait(200);
  EXPECT_TRUE(model.isLoading());
  EXPECT_EQ(model.status(), "Loading recent logs…");
  EXPECT_TRUE(model.lines().empty());
  gate->release();
  ASSERT_TRUE(loaded());
  EXPECT_EQ(model.lines().size(), 3u);
}

TEST(LogViewerModelLifetime, ALoadWhoseModelIsGoneIsDropped) {
  LogScratch scratch;
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(5));
  auto gate = std::make_shared<GatedLoader>();
  auto model = std::make_unique<LogViewerModel>(scratch.daemonLog(), scratch.stderrLog());
  model->setLoaderForTesting([gate](const fs::path& p, int64_t b, int64_t l) { return (*gate)(p, b, l); });
  model->refresh();
  model.reset();
  gate->release();
  QTest::qWait(200);  // the outcome arrives for a model that is gone: no crash
  SUCCEED();
}

TEST_F(LogViewerModelTest, ChoosingASourceKeepsSearchAndSeverityAndResetsTheCamera) {
  LogScratch::write(scratch.daemonLog(), LogScratch::lines(12));  // line 9: warn, cam0
  LogScratch::write(scratch.stderrLog(),
                    "level=warn camera=other msg=\"x 9\"\nlevel=info camera=cam0 msg=\"y 9\"\n");
  model.refresh();
  ASSERT_TRUE(loaded());
  model.setSearch(" 9\"");
  model.setSeverity(LogSeverity::warn);
  model.setCamera("cam0");
  EXPECT_EQ(visibleRaws(model).size(), 1);
  model.chooseSource(LogSource::standardError);
  EXPECT_TRUE(model.isLoading());
  EXPECT_EQ(model.currentURL(), scratch.stderrLog());
  EXPECT_EQ(model.search(), " 9\"");
  EXPECT_EQ(model.severity(), LogSeverity::warn);
  EXPECT_EQ(model.camera(), "");
  ASSERT_TRUE(loaded());
  // Only the warn line, whatever its camera.
  EXPECT_EQ(visibleRaws(model), QStringList{"level=warn camera=other msg=\"x 9\""});
}

TEST_F(LogViewerModelTest, CopyPutsTheFilteredRawLinesOnTheClipboard) {
  LogScratch::write(scratch.daemonLog(), "a level=info\nb level=warn\nc level=info\n");
  model.refresh();
  ASSERT_TRUE(loaded());
  const QString status = model.status();
  struct Case {
    LogSeverity severity;
    QString clipboard;
  };
  const Case cases[] = {{LogSeverity::info, "a level=info\nc level=info"},
                        {LogSeverity::error, ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.clipboard.toStdString());
    QGuiApplication::clipboard()->setText("stale");
    model.setSeverity(c.severity);
    model.copyFiltered();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), c.clipboard);
    EXPECT_EQ(model.status(), status);
  }
}

TEST_F(LogViewerModelTest, ExportWritesTheFilteredLinesOrSaysWhyNot) {
  LogScratch::write(scratch.daemonLog(), "a level=info\nb level=warn\n");
  model.refresh();
  ASSERT_TRUE(loaded());
  LogScratch::write(scratch.home() / "a-file", "x");
  struct Case {
    const char* name;
    LogSeverity severity;
    std::optional<fs::path> target;  // nothing: the user cancels
    QString status;
    std::string contents;  // of the target afterwards
    int announced;
  };
  const QString before = model.status();
  const Case cases[] = {
      {"two lines", LogSeverity::all, scratch.home() / "out.log", "Exported 2 lines",
       "a level=info\nb level=warn\n", 1},
      {"no line matches", LogSeverity::error, scratch.home() / "empty.log", "Exported 0 lines",
       "\n", 1},
      {"into a missing directory", LogSeverity::all, scratch.home() / "nowhere" / "out.log",
       "Export failed: No such file or directory", "", 0},
      {"under a file, not a directory", LogSeverity::all, scratch.home() / "a-file" / "out.log",
       "Export failed: Not a directory", "", 0},
      {"cancelled", LogSeverity::all, std::nullopt, "Export failed: Not a directory", "", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    model.setSeverity(c.severity);
    QString proposed;
    model.setSaveFileChooser([&](const QString& name) {
      proposed = name;
      return c.target;
    });
    QSignalSpy announcements(&model, &LogViewerModel::announcement);
    model.exportFiltered();
    EXPECT_EQ(proposed, "zevd-filtered.log");
    EXPECT_EQ(model.status(), c.status);
    EXPECT_EQ(announcements.size(), c.announced);
    if (c.target) {
      EXPECT_EQ(readFile(*c.target), c.contents);
    }
  }
  EXPECT_NE(before, model.status());
}

TEST(ByteCountText, WritesDecimalFileSizes) {
  const std::pair<int64_t, const char*> cases[] = {
      {0, "0 bytes"},          {1, "1 byte"},          {999, "999 bytes"},
      {1000, "1 kB"},          {1499, "1 kB"},         {587'000, "587 kB"},
      {999'499, "999 kB"},     {999'500, "1 MB"},      {1'048'576, "1 MB"},
      {1'200'000, "1.2 MB"},   {12'345'678, "12.3 MB"}, {3'400'000'000, "3.4 GB"},
      {-5, "0 bytes"},
  };
  for (const auto& [bytes, text] : cases) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(byteCountText(bytes), text);
  }
}

// Follow: the daemon appends, rotates and truncates while the model follows.
class LogViewerFollowTest : public LogViewerModelTest {
 protected:
  void SetUp() override {
    model.setFollowIntervalForTesting(std::chrono::milliseconds(20));
    model.setBudgetsForTesting(1 << 20, 10);
    LogScratch::write(scratch.daemonLog(), LogScratch::lines(4, "old"));
    model.refresh();
    ASSERT_TRUE(loaded());
    model.setFollowing(true);
  }
  bool shows(int count, const QString& lastTag) {
    return waitFor([&] {
      const QStringList raws = visibleRaws(model);
      return raws.size() == count && raws.back().contains(lastTag);
    }, 3000);
  }
};

TEST_F(LogViewerFollowTest, AppendsNewLinesAndKeepsTheLineBudget) {
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(3, "new", 4));
  ASSERT_TRUE(shows(7, "\"new 6\""));
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(5, "more", 7));
  ASSERT_TRUE(shows(10, "\"more 11\""));  // the two oldest dropped out
  EXPECT_TRUE(visibleRaws(model).front().contains("\"old 2\""));
  EXPECT_EQ(model.lines().size(), 10u);
  // New lines pass the filter like the rest: of lines 5 to 14, the errors
  // are 6, 10 and 14.
  model.setSeverity(LogSeverity::error);
  LogScratch::append(scratch.daemonLog(), LogScratch::lines(3, "last", 12));
  ASSERT_TRUE(shows(3, "\"last 14\""));
}

TEST_F(LogViewerFollowTest, SurvivesRotationAndTruncation) {
  struct Case {
    const char* name;
    void (*change)(const fs::path&);
  };
  const Case cases[] = {
      {"rotated: renamed away, a new file created",
       [](const fs::path& log) {
         fs::rename(log, fs::path(log).concat(".1"));
         LogScratch::write(log, LogScratch::lines(1, "rotated", 100));
       }},
      {"truncated in place",
       [](const fs::path& log) {
         fs::resize_file(log, 0);
         LogScratch::append(log, LogScratch::lines(1, "truncated", 200));
       }},
  };
  int shown = 4;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.change(scratch.daemonLog());
    ++shown;
    ASSERT_TRUE(shows(shown, c.name[0] == 'r' ? "rotated 100" : "truncated 200"));
    // And it keeps following the new file.
    LogScratch::append(scratch.daemonLog(), LogScratch::lines(1, "after", 300 + shown));
    ++shown;
    ASSERT_TRUE(shows(shown, "after " + QString::number(300 + shown - 1)));
  }
}

}  // namespace
}  // namespace zev
