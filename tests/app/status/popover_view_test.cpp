#include "app/status/popover_view.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QLabel>
#include <QMenu>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <QToolButton>
#include <cmath>
#include <limits>

#include "app/fakes/qt_test_main.h"
#include "app/qt_printers.h"
#include "app/status/health_figures.h"
#include "app/status/health_state.h"
#include "app/status/status_colors.h"

namespace zev {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

HealthCamera camera(std::string id, std::string name, bool live, int64_t frameAgeMS) {
  HealthCamera c;
  c.id = std::move(id);
  c.name = std::move(name);
  c.live = live;
  c.frameAgeMS = frameAgeMS;
  return c;
}

HealthSummary healthy(int cameras = 0) {
  HealthSummary s;
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
  for (int i = 0; i < cameras; ++i) {
    s.cameras.push_back(camera("x" + std::to_string(i), "Camera " + std::to_string(i), true, 1));
  }
  return s;
}

using Pairs = std::vector<std::pair<QString, QString>>;

class PopoverViewTest : public ::testing::Test {
 protected:
  // Open, as the user sees it: a closed popover catches up only when it opens.
  void SetUp() override { view.showAnchored(std::nullopt); }

  void show(std::optional<HealthSummary> summary) {
    const HealthStatus status = shownStatus(summary);
    state.update(std::move(summary), status, std::chrono::system_clock::now());
  }
  bool shown(const QWidget* widget) const { return widget && widget->isVisibleTo(&view); }
  template <typename T = QLabel>
  std::vector<T*> visible(const char* objectName) const {
    std::vector<T*> out;
    for (T* child : view.findChildren<T*>(objectName)) {
      if (shown(child)) out.push_back(child);
    }
    return out;
  }
  QString text(const char* objectName) const {
    const auto labels = visible(objectName);
    return labels.size() == 1 ? labels[0]->text() : QStringLiteral("<%1 shown>").arg(labels.size());
  }
  QStringList texts(const char* objectName) const {
    QStringList out;
    for (QLabel* label : visible(objectName)) out << label->text();
    return out;
  }
  QString headerStatus() const { return visible("headerDot").at(0)->property("status").toString(); }
  Pairs metrics() const {
    Pairs out;
    for (QWidget* metric : view.findChildren<QWidget*>(QRegularExpression("^metric:"))) {
      if (!shown(metric)) continue;
      out.emplace_back(metric->findChild<QLabel*>("metricLabel")->text(),
                       metric->findChild<QLabel*>("metricValue")->text());
    }
    return out;
  }
  // Name and right-hand text of each camera row, in display order.
  Pairs cameraRows() const {
    Pairs out;
    for (QWidget* row : visible<QWidget>("cameraRow")) {
      out.emplace_back(row->findChild<QWidget*>("cameraName")->accessibleName(),
                       row->findChild<QLabel*>("cameraState")->text());
    }
    return out;
  }

  HealthState state;
  PopoverView view{state, PopoverActions{}};
};

TEST_F(PopoverViewTest, HealthyShowsHeaderFiguresAndCamerasInOrder) {
  show(healthy());
  EXPECT_EQ(text("headerTitle"), "3/4 cameras live");
  EXPECT_EQ(text("headerSubtitle"), "zevd 1.4.2");
  EXPECT_EQ(headerStatus(), "green");
  EXPECT_EQ(metrics(), (Pairs{{"CPU", "12%"}, {"RSS", "1.4 GB"}, {"Thumb drops", "3%"},
                              {"Worst", "1234 ms"}}));
  EXPECT_EQ(cameraRows(), (Pairs{{"Front door", "120 ms"}, {"Garage", "140 ms"},
                                 {"Garden", "95 ms"}, {"Attic", "down"}}));
  EXPECT_EQ(visible("cameraState").back()->palette().color(QPalette::WindowText), systemRed());
  // Every figure has the room it needs (no row squeezes them to nothing).
  QApplication::processEvents();  // the layouts settle
  for (QLabel* value : visible("metricValue")) {
    EXPECT_GE(value->width(), value->sizeHint().width()) << value->text().toStdString();
  }
  for (const char* absent : {"degradedTitle", "linkLabel", "unreachableText", "moreCameras"}) {
    EXPECT_TRUE(visible(absent).empty()) << absent;
  }
}

// The popover stays one set of widgets refilled in place: an open popover
// keeps its scroll position through polls, and a closed one catches up when
// it opens.
TEST_F(PopoverViewTest, UpdatesInPlaceKeepingTheScrollPosition) {
  show(healthy(40));
  auto* scroll = view.findChild<QScrollArea*>("contentScroll");
  EXPECT_EQ(scroll->height(), 240);  // capped; a short list takes less (below)
  scroll->verticalScrollBar()->setValue(300);
  QWidget* firstRow = visible<QWidget>("cameraRow").front();
  HealthSummary next = healthy(40);
  next.cameras[0].name = "Front gate";
  show(next);
  EXPECT_EQ(scroll->verticalScrollBar()->value(), 300);
  EXPECT_EQ(visible<QWidget>("cameraRow").front(), firstRow);
  EXPECT_EQ(cameraRows().front().first, "Front gate");

  view.close();
  show(std::nullopt);
  HealthSummary two = healthy();
  two.cameras.resize(2);
  show(two);
  view.showAnchored(QRect(600, 0, 24, 24));
  EXPECT_EQ(text("headerTitle"), "2/2 cameras live");
  EXPECT_EQ(cameraRows().size(), 2u);
  EXPECT_LT(scroll->height(), 240);
}

TEST_F(PopoverViewTest, ManyCamerasGetCappedRowsAndAnAndMoreLine) {
  struct Case {
    int extra;
    std::size_t rows;
    QString more;  // empty: no such line
  };
  const Case cases[] = {
      {10'000 - 4, PopoverView::maxCameraRows, "and 9950 more"},
      {PopoverView::maxCameraRows - 4, PopoverView::maxCameraRows, ""},
      {0, 4, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.extra);
    show(healthy(c.extra));
    EXPECT_EQ(view.findChildren<QWidget*>("cameraRow").size(), c.rows);
    EXPECT_EQ(cameraRows().size(), c.rows);
    EXPECT_EQ(texts("moreCameras"), c.more.isEmpty() ? QStringList{} : QStringList{c.more});
  }
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
    const Pairs shownMetrics = metrics();
    ASSERT_EQ(shownMetrics.size(), c.label.isEmpty() ? 3u : 4u);
    if (!c.label.isEmpty()) EXPECT_EQ(shownMetrics[3], std::pair(c.label, c.value));
  }
}

TEST_F(PopoverViewTest, UnreachableShowsOnlyTheExplanationAndTheActions) {
  show(healthy());
  show(std::nullopt);
  EXPECT_EQ(text("headerTitle"), "ZEV — unreachable");
  EXPECT_TRUE(visible("headerSubtitle").empty());
  EXPECT_EQ(headerStatus(), "red");
  EXPECT_EQ(text("unreachableText"),
            "Daemon not responding on this computer. It may be starting or stopped.");
  EXPECT_TRUE(metrics().empty());
  EXPECT_TRUE(cameraRows().empty());
  EXPECT_EQ(visible<QAbstractButton>("openWebUIButton").size(), 1u);
}

TEST_F(PopoverViewTest, DegradedBlockCountsSanelyAndShowsThreeReasons) {
  struct Case {
    std::vector<std::string> reasons;
    QString title;
    QStringList visibleReasons;
    const char* status;
  };
  const Case cases[] = {
      {{"a", "b", "c", "d", "e"}, "Degraded: 5 issues", {"a", "b", "c"}, "yellow"},
      {{"disk slow", "more:5"}, "Degraded: 6 issues", {"disk slow", "more:5"}, "yellow"},
      // A count past any sum must neither abort nor print nineteen digits; the
      // daemon's "not degraded" is overruled.
      {{"a", "b", "more:9223372036854775807"}, "Degraded: 99999+ issues", {}, "yellow"},
      {{"a", "more:100000"}, "Degraded: 99999+ issues", {}, "green"},
      {{"a", "more:-50"}, "Degraded: 2 issues", {}, "green"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.title.toStdString());
    HealthSummary s = healthy();
    s.degraded = !c.visibleReasons.isEmpty();
    s.degradedReasons = c.reasons;
    show(s);
    EXPECT_EQ(headerStatus(), c.status);
    EXPECT_EQ(text("degradedTitle"), c.title);
    if (!c.visibleReasons.isEmpty()) EXPECT_EQ(texts("degradedReason"), c.visibleReasons);
  }
}

// Figures from the daemon are shown only within ranges a person can read.
TEST(HealthFigures, OutOfRangeFiguresReadAsADash) {
  const double nan = std::nan("");
  const double inf = std::numeric_limits<double>::infinity();
  const std::pair<QString, QString> cases[] = {
      {cpuText(12.4), "12%"},           {cpuText(800), "800%"},
      {cpuText(1e308), "—"},            {cpuText(nan), "—"},
      {cpuText(-1), "—"},               {rssText(0), "0.0 GB"},
      {rssText(-1), "—"},               {rssText(kMax), "—"},
      {thumbDropText(1), "100%"},       {thumbDropText(inf), "—"},
      {thumbDropText(-0.5), "—"},       {frameAgeText(99'999), "99999 ms"},
      {frameAgeText(100'000), "100 s"}, {frameAgeText(int64_t{1} << 40), "12725 d"},
      {frameAgeText(kMax), "—"},        {frameAgeText(-1), "—"},
  };
  for (const auto& [got, expected] : cases) EXPECT_EQ(got, expected);
}

// Markup from the daemon stays text: no label renders it, no tooltip either,
// and a huge text is cut before it reaches a widget.
TEST_F(PopoverViewTest, DaemonTextsArePlainAndBounded) {
  HealthSummary s = healthy();
  s.version = "<b>9</b>" + std::string(150, '9');
  s.cameras[0].name = "<img src=x>" + std::string(1 << 20, 'W');
  s.degradedReasons = {"<a href=\"https://example.com\">click</a>"};
  s.cameras[1].name = "Garage\u202e\ttxt.exe";
  s.defaultRoute = HealthDefaultRoute{"<i>eth0</i>", "ethernet", kMax, ""};
  show(s);
  EXPECT_EQ(text("linkLabel"), "Link: <i>eth0</i> ethernet");
  EXPECT_TRUE(text("headerSubtitle").startsWith("zevd <b>9</b>99"));
  EXPECT_EQ(text("degradedReason"), "<a href=\"https://example.com\">click</a>");
  for (QLabel* label : view.findChildren<QLabel*>()) {
    if (label->text().isEmpty()) continue;  // the dots and symbols: pictures only
    EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->objectName().toStdString();
  }
  EXPECT_EQ(cameraRows()[1].first, "Garage  txt.exe");  // no override, no tab
  const QWidget* name = visible<QWidget>("cameraName").front();
  EXPECT_EQ(name->accessibleName().size(), maxShownTextLength);
  EXPECT_TRUE(name->accessibleName().startsWith("<img src=x>W"));
  EXPECT_FALSE(name->toolTip().contains("<img")) << "the tooltip would render the picture";
  EXPECT_EQ(name->sizeHint().height(), name->fontMetrics().height());  // one line
}

// The route's text and warning themselves are HealthDefaultRoute's (core tests).
TEST_F(PopoverViewTest, LinkLineFollowsTheRoute) {
  struct Case {
    std::optional<HealthDefaultRoute> route;
    QString text;  // empty: no link line
    bool warning;
  };
  const Case cases[] = {
      {std::nullopt, "", false},
      {HealthDefaultRoute{"wlan0", "wifi", 866, "802.11ac"}, "Link: wlan0 wifi 866 Mb/s", true},
      {HealthDefaultRoute{"eth0", "ethernet", 1000, "1000baseT"}, "Link: eth0 ethernet 1000 Mb/s",
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.toStdString());
    HealthSummary s = healthy();
    s.defaultRoute = c.route;
    show(s);
    const auto link = visible("linkLabel");
    ASSERT_EQ(link.size(), c.text.isEmpty() ? 0u : 1u);
    if (c.text.isEmpty()) continue;
    EXPECT_EQ(link[0]->text(), c.text);
    EXPECT_EQ(link[0]->palette().color(QPalette::WindowText) == systemOrange(), c.warning);
    EXPECT_EQ(visible("linkSymbol").at(0)->property("kind").toString(),
              QString::fromStdString(c.route->kind));
  }
}

TEST_F(PopoverViewTest, ActionRowHasTheFourControlsAndNoQuit) {
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
  struct Case {
    std::optional<QRect> anchor;
    QPoint cursor;
    QPoint expected;
  };
  const Case cases[] = {
      {QRect(1000, 0, 24, 24), {}, {841, 28}},       // centred under a tray icon at the top
      {QRect(1896, 0, 24, 24), {}, {1576, 28}},      // clamped at the right edge
      {QRect(1000, 1056, 24, 24), {}, {841, 752}},   // flipped above a bottom panel
      {QRect(), {100, 500}, {4, 505}},               // empty tray geometry: at the cursor
      {std::nullopt, {1910, 1070}, {1576, 766}},     // cursor near the bottom right
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected.x());
    EXPECT_EQ(popoverPosition(QSize(340, 300), c.anchor, c.cursor, screen), c.expected);
  }
}

}  // namespace
}  // namespace zev
