#include "app/status/popover_view.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QLabel>
#include <QMenu>
#include <QRegularExpression>
#include <QScrollArea>
#include <QToolButton>

#include "app/fakes/qt_test_main.h"
#include "app/status/health_state.h"
#include "app/qt_printers.h"
#include "app/status/status_colors.h"
#include "core/health/health_status.h"

namespace zev {
namespace {

HealthCamera camera(std::string id, std::string name, bool live, int64_t frameAgeMS) {
  HealthCamera c;
  c.id = std::move(id);
  c.name = std::move(name);
  c.live = live;
  c.frameAgeMS = frameAgeMS;
  return c;
}

HealthSummary healthy() {
  HealthSummary s;
  s.ok = true;
  s.version = "1.4.2";
  s.liveStreams = 3;
  s.totalStreams = 4;
  s.newestFrameAgeMS = 120;
  s.worstFrameAgeMS = 1234;
  s.cpuPercent = 12.4;
  s.rssBytes = 1'449'999'999;
  s.thumbDropRatio = 0.034;
  s.cameras = {camera("a", "Front door", true, 120), camera("b", "Garage", true, 140),
               camera("c", "Garden", true, 95), camera("d", "Attic", false, 90000)};
  return s;
}

class PopoverViewTest : public ::testing::Test {
 protected:
  // Open, as the user sees it: a closed popover catches up only when it opens.
  void SetUp() override { view.showAnchored(std::nullopt); }

  void show(std::optional<HealthSummary> summary) {
    const HealthStatus status = classifyHealth(summary);
    state.update(std::move(summary), status, std::chrono::system_clock::now());
  }

  QString text(const char* objectName) const {
    auto* label = view.findChild<QLabel*>(objectName);
    return label ? label->text() : QStringLiteral("<missing %1>").arg(objectName);
  }

  // Metric label -> value, in display order.
  std::vector<std::pair<QString, QString>> metrics() const {
    std::vector<std::pair<QString, QString>> out;
    for (QWidget* metric : view.findChildren<QWidget*>(QRegularExpression("^metric:"))) {
      out.emplace_back(metric->findChild<QLabel*>("metricLabel")->text(),
                       metric->findChild<QLabel*>("metricValue")->text());
    }
    return out;
  }

  // Name and right-hand text of each camera row, in display order.
  std::vector<std::pair<QString, QString>> cameraRows() const {
    std::vector<std::pair<QString, QString>> out;
    for (QWidget* row : view.findChildren<QWidget*>("cameraRow")) {
      const QWidget* name = row->findChild<QWidget*>("cameraName");
      out.emplace_back(name->toolTip(), row->findChild<QLabel*>("cameraState")->text());
    }
    return out;
  }

  QStringList texts(const char* objectName) const {
    QStringList out;
    for (QLabel* label : view.findChildren<QLabel*>(objectName)) out << label->text();
    return out;
  }

  HealthState state;
  PopoverView view{state, PopoverActions{}};
};

TEST_F(PopoverViewTest, HealthyShowsHeaderFiguresAndCamerasInOrder) {
  show(healthy());
  EXPECT_EQ(text("headerTitle"), "3/4 cameras live");
  EXPECT_EQ(text("headerSubtitle"), "zevd 1.4.2");
  EXPECT_EQ(view.findChild<QLabel*>("headerDot")->property("status").toString(), "green");
  using Metrics = std::vector<std::pair<QString, QString>>;
  EXPECT_EQ(
      metrics(),
      (Metrics{{"CPU", "12%"}, {"RSS", "1.4 GB"}, {"Thumb drops", "3%"}, {"Worst", "1234 ms"}}));
  EXPECT_EQ(
      cameraRows(),
      (Metrics{
          {"Front door", "120 ms"}, {"Garage", "140 ms"}, {"Garden", "95 ms"}, {"Attic", "down"}}));
  EXPECT_EQ(view.findChildren<QLabel*>("cameraState").back()->palette().color(QPalette::WindowText),
            systemRed());
  EXPECT_FALSE(view.findChild<QWidget*>("degraded"));
  EXPECT_FALSE(view.findChild<QLabel*>("linkLabel"));
  EXPECT_FALSE(view.findChild<QLabel*>("unreachableText"));
}

TEST_F(PopoverViewTest, ChangesWhileClosedShowOnOpening) {
  show(healthy());
  view.close();
  show(std::nullopt);
  HealthSummary degraded = healthy();
  degraded.cameras.resize(2);
  show(degraded);
  view.showAnchored(QRect(600, 0, 24, 24));
  EXPECT_EQ(text("headerTitle"), "2/2 cameras live");
  EXPECT_EQ(cameraRows().size(), 2u);
}

TEST_F(PopoverViewTest, FrameAgeFigureFallsBackAndDisappears) {
  struct Case {
    const char* name;
    std::optional<int64_t> worst;
    int64_t newest;
    QString label;  // empty: neither figure
    QString value;
  };
  const Case cases[] = {
      {"worst negative still shows its dash", -1, 120, "Worst", "—"},
      {"no worst: newest frame", std::nullopt, 850, "Frame", "850 ms"},
      {"no worst, newest zero", std::nullopt, 0, "Frame", "0 ms"},
      {"neither usable", std::nullopt, -1, "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HealthSummary s = healthy();
    s.worstFrameAgeMS = c.worst;
    s.newestFrameAgeMS = c.newest;
    show(s);
    const auto shown = metrics();
    ASSERT_EQ(shown.size(), c.label.isEmpty() ? 3u : 4u);
    if (!c.label.isEmpty()) {
      EXPECT_EQ(shown[3].first, c.label);
      EXPECT_EQ(shown[3].second, c.value);
    }
  }
}

TEST_F(PopoverViewTest, UnreachableShowsOnlyTheExplanationAndTheActions) {
  show(healthy());
  show(std::nullopt);
  EXPECT_EQ(text("headerTitle"), "ZEV — unreachable");
  EXPECT_FALSE(view.findChild<QLabel*>("headerSubtitle"));
  EXPECT_EQ(view.findChild<QLabel*>("headerDot")->property("status").toString(), "red");
  EXPECT_EQ(text("unreachableText"),
            "Daemon not responding on this Mac. It may be starting or stopped.");
  EXPECT_TRUE(metrics().empty());
  EXPECT_TRUE(cameraRows().empty());
  EXPECT_TRUE(view.findChild<QAbstractButton*>("openWebUIButton"));
  EXPECT_TRUE(view.findChild<QAbstractButton*>("restartButton"));
}

TEST_F(PopoverViewTest, DegradedBlockCountsTheMarkerAndShowsThreeReasons) {
  struct Case {
    std::vector<std::string> reasons;
    QString title;
    QStringList visible;
  };
  const Case cases[] = {
      {{"a", "b", "c", "d", "e"}, "Degraded: 5 issues", {"a", "b", "c"}},
      {{"disk slow", "cam-2 stale", "more:5"},
       "Degraded: 7 issues",
       {"disk slow", "cam-2 stale", "more:5"}},
      {{"disk slow"}, "Degraded: 1 issues", {"disk slow"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.title.toStdString());
    HealthSummary s = healthy();
    s.degraded = true;
    s.degradedReasons = c.reasons;
    show(s);
    EXPECT_EQ(view.findChild<QLabel*>("headerDot")->property("status").toString(), "yellow");
    EXPECT_EQ(text("degradedTitle"), c.title);
    EXPECT_EQ(texts("degradedReason"), c.visible);
  }
}

// The route's text and warning themselves are HealthDefaultRoute's (core tests).
TEST_F(PopoverViewTest, LinkLineFollowsTheRoute) {
  struct Case {
    const char* name;
    std::optional<HealthDefaultRoute> route;
    QString text;  // empty: no link line
    bool warning;
  };
  const Case cases[] = {
      {"no route", std::nullopt, "", false},
      {"wifi", HealthDefaultRoute{"wlan0", "wifi", 866, "802.11ac"}, "Link: wlan0 wifi 866 Mb/s",
       true},
      {"gigabit ethernet", HealthDefaultRoute{"eth0", "ethernet", 1000, "1000baseT"},
       "Link: eth0 ethernet 1000 Mb/s", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HealthSummary s = healthy();
    s.defaultRoute = c.route;
    show(s);
    auto* link = view.findChild<QLabel*>("linkLabel");
    if (c.text.isEmpty()) {
      EXPECT_FALSE(link);
      EXPECT_FALSE(view.findChild<QLabel*>("linkSymbol"));
      continue;
    }
    ASSERT_TRUE(link);
    EXPECT_EQ(link->text(), c.text);
    const QColor color = link->palette().color(QPalette::WindowText);
    EXPECT_EQ(color == systemOrange(), c.warning) << color.name().toStdString();
    EXPECT_EQ(view.findChild<QLabel*>("linkSymbol")->property("kind").toString(),
              QString::fromStdString(c.route->kind));
  }
}

TEST_F(PopoverViewTest, LongCameraNameStaysOnOneLineAndKeepsTheWidth) {
  HealthSummary s = healthy();
  s.cameras[0].name = std::string(300, 'W') + " with a very long name indeed";
  show(s);
  view.adjustSize();
  const int width = view.width();
  auto* name = view.findChildren<QWidget*>("cameraName").front();
  EXPECT_EQ(name->toolTip(), QString::fromStdString(s.cameras[0].name));
  EXPECT_EQ(name->sizeHint().height(), name->fontMetrics().height());
  show(healthy());
  view.adjustSize();
  EXPECT_EQ(view.width(), width);
}

TEST_F(PopoverViewTest, ScrollAreaIsCappedButShortListsTakeLess) {
  HealthSummary many = healthy();
  for (int i = 0; i < 40; ++i) {
    many.cameras.push_back(camera("x" + std::to_string(i), "Camera " + std::to_string(i), true, 1));
  }
  show(many);
  EXPECT_EQ(view.findChild<QScrollArea*>("contentScroll")->height(), 240);
  HealthSummary one = healthy();
  one.cameras.resize(1);
  show(one);
  EXPECT_LT(view.findChild<QScrollArea*>("contentScroll")->height(), 240);
}

TEST_F(PopoverViewTest, ActionRowHasTheFourControlsAndNoQuit) {
  show(std::nullopt);
  EXPECT_EQ(view.findChild<QAbstractButton*>("openWebUIButton")->text(), "Open Web UI");
  EXPECT_EQ(view.findChild<QAbstractButton*>("restartButton")->text(), "Restart");
  auto* logs = view.findChild<QToolButton*>("logsButton");
  EXPECT_EQ(logs->text(), "Logs");
  EXPECT_EQ(logs->width(), 64);
  QStringList items;
  for (QAction* action : logs->menu()->actions()) items << action->text();
  EXPECT_EQ(items, (QStringList{"View Log", PopoverView::revealLogsTitle()}));
  auto* updates = view.findChild<QToolButton*>("checkUpdatesButton");
  EXPECT_EQ(updates->toolTip(), "Check for Updates");
  EXPECT_EQ(updates->accessibleName(), "Check for Updates");
  EXPECT_FALSE(updates->icon().isNull());
  for (QAbstractButton* button : view.findChildren<QAbstractButton*>()) {
    EXPECT_FALSE(button->text().contains("Quit", Qt::CaseInsensitive));
  }
}

TEST(PopoverPosition, AnchorsUnderTheItemOrAtTheCursorInsideTheScreen) {
  const QRect screen(0, 0, 1920, 1080);
  const QSize size(340, 300);
  struct Case {
    const char* name;
    std::optional<QRect> anchor;
    QPoint cursor;
    QPoint expected;
  };
  const Case cases[] = {
      {"centred under a tray icon at the top", QRect(1000, 0, 24, 24), {}, {841, 28}},
      {"clamped at the right edge", QRect(1896, 0, 24, 24), {}, {1576, 28}},
      {"flipped above a panel at the bottom", QRect(1000, 1056, 24, 24), {}, {841, 752}},
      {"an empty tray geometry falls back to the cursor", QRect(), {100, 500}, {4, 505}},
      {"cursor near the bottom right", std::nullopt, {1910, 1070}, {1576, 766}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(popoverPosition(size, c.anchor, c.cursor, screen), c.expected);
  }
}

}  // namespace
}  // namespace zev
