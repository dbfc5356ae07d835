#include "app/status/popover_view.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "app/fakes/qt_test_main.h"
#include "app/qt_printers.h"
#include "app/status/health_figures.h"
#include "app/status/health_state.h"
#include "app/status/popover_icons.h"
#include "app/status/status_colors.h"
#include "app/status/symbol_icon.h"

namespace zev {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

// Three of four cameras live, and `extra` more live ones.
HealthSummary healthy(int extra = 0) {
  HealthSummary s = *decodeHealth(R"({"ok":true,"version":"1.4.2","live_streams":3,
    "total_streams":4,"newest_frame_age_ms":120,"worst_frame_age_ms":1234,"cpu_percent":12.4,
    "rss_bytes":1449999999,"thumb_drop_ratio":0.034,
    "cameras":[{"id":"a","name":"Front door","live":true,"frame_age_ms":120},
               {"id":"b","name":"Garage","live":true,"frame_age_ms":140},
               {"id":"c","name":"Garden","live":true,"frame_age_ms":95},
               {"id":"d","name":"Attic","live":false,"frame_age_ms":90000}]})");
  for (int i = 0; i < extra; ++i) s.cameras.push_back(s.cameras[0]);
  return s;
}

class PopoverViewTest : public ::testing::Test {
 protected:
  // Open, as the user sees it: a closed popover catches up only when it opens.
  void SetUp() override { view.showAnchored(std::nullopt); }

  void show(std::optional<HealthSummary> summary) {
    const HealthStatus status = shownStatus(summary);
    state.update(std::move(summary), status, std::chrono::system_clock::now());
  }
  // The visible widgets whose object names match `names`, in creation order.
  std::vector<QWidget*> visible(const QString& names) const {
    std::vector<QWidget*> out;
    for (QWidget* child : view.findChildren<QWidget*>(QRegularExpression("^(" + names + ")$"))) {
      if (child->isVisibleTo(&view)) out.push_back(child);
    }
    return out;
  }
  // What they show: a label's text, another widget's accessible name (the
  // dots and containers show none).
  QStringList shown(const QString& names) const {
    QStringList out;
    for (QWidget* widget : visible(names)) {
      const auto* label = qobject_cast<QLabel*>(widget);
      const QString text = label ? label->text() : widget->accessibleName();
      if (!text.isEmpty()) out << text;
    }
    return out;
  }
  QString headerStatus() const { return visible("headerDot").at(0)->property("status").toString(); }

  HealthState state;
  PopoverView view{state, PopoverActions{}};
};

TEST_F(PopoverViewTest, HealthyShowsHeaderFiguresAndCamerasInOrder) {
  show(healthy());
  EXPECT_EQ(shown("headerTitle|headerSubtitle"), (QStringList{"3/4 cameras live", "zevd 1.4.2"}));
  EXPECT_EQ(shown("metricLabel|metricValue"),
            (QStringList{"CPU", "12%", "RSS", "1.4 GB", "Thumb drops", "3%", "Worst", "1234 ms"}));
  EXPECT_EQ(shown("cameraName|cameraState"),
            (QStringList{"Front door", "120 ms", "Garage", "140 ms", "Garden", "95 ms", "Attic",
                         "down"}));
  EXPECT_EQ(visible("cameraState").back()->palette().color(QPalette::WindowText), systemRed());
  // Every figure has the room it needs (no row squeezes them to nothing).
  QApplication::processEvents();  // the layouts settle
  for (QWidget* value : visible("metricValue")) {
    EXPECT_GE(value->width(), value->sizeHint().width());
  }
  EXPECT_FALSE(view.findChild<QAbstractButton*>("checkUpdatesButton")->icon().isNull());
  EXPECT_EQ(shown("degradedTitle|linkLabel|unreachableText|moreCameras"), QStringList{});
}

// The popover stays one set of widgets refilled in place: an open popover
// keeps its scroll position through polls, and a closed one catches up when
// it opens (here: the daemon stopped answering meanwhile).
TEST_F(PopoverViewTest, UpdatesInPlaceKeepingTheScrollPosition) {
  show(healthy(40));
  auto* scroll = view.findChild<QScrollArea*>("contentScroll");
  EXPECT_EQ(scroll->height(), 240);  // capped; a short list takes less (below)
  scroll->verticalScrollBar()->setValue(300);
  const QPointer<QWidget> firstRow = visible("cameraRow").front();
  HealthSummary next = healthy(40);
  next.cameras[0].name = "Front gate";
  show(next);
  EXPECT_EQ(scroll->verticalScrollBar()->value(), 300);
  EXPECT_EQ(visible("cameraRow").front(), firstRow.data());
  EXPECT_EQ(shown("cameraName").front(), "Front gate");

  view.close();
  show(std::nullopt);
  view.showAnchored(QRect(600, 0, 24, 24));
  EXPECT_EQ(headerStatus(), "red");
  EXPECT_EQ(shown("header.*|metric.*|camera.*|unreachableText"),
            (QStringList{"ZEV — unreachable", PopoverView::unreachableText()}));
  HealthSummary two = healthy();
  two.cameras.resize(2);
  show(two);
  EXPECT_EQ(shown("cameraName"), (QStringList{"Front door", "Garage"}));
  EXPECT_LT(scroll->height(), 240);
}

TEST_F(PopoverViewTest, ManyCamerasGetCappedRowsAndAnAndMoreLine) {
  show(healthy(10'000 - 4));
  EXPECT_EQ(view.findChildren<QWidget*>("cameraRow").size(), PopoverView::maxCameraRows);
  EXPECT_EQ(shown("moreCameras"), QStringList{"and 9950 more"});
  show(healthy(PopoverView::maxCameraRows - 4));  // exactly as many as fit
  EXPECT_EQ(shown("moreCameras"), QStringList{});
}

// The parts that depend on what the daemon sent: the frame figure falls back
// from the worst age to the newest and then goes; the degraded block counts
// sanely and lists three reasons; the link line follows the route (its text
// and warning themselves are HealthDefaultRoute's, tested in core).
TEST_F(PopoverViewTest, OptionalPartsFollowTheSummary) {
  constexpr std::optional<int64_t> none;
  const struct {
    std::optional<int64_t> worst;
    int64_t newest;
    bool degraded;
    std::vector<std::string> reasons;
    std::optional<HealthDefaultRoute> route;
    QStringList shown;  // the last figure, the degraded block and the link line
    const char* status;
    bool warning;  // the link line in the warning colour
  } cases[] = {
      {-1, 120, false, {}, std::nullopt, {"Worst", "—"}, "green", false},
      {none, 0, false, {}, std::nullopt, {"Frame", "0 ms"}, "green", false},
      {none, -1, false, {}, std::nullopt, {}, "green", false},
      {1, 1, true, {"a", "b", "c", "d", "e"}, std::nullopt,
       {"Worst", "1 ms", "Degraded: 5 issues", "a", "b", "c"}, "yellow", false},
      {1, 1, true, {"disk slow", "more:5"}, std::nullopt,
       {"Worst", "1 ms", "Degraded: 6 issues", "disk slow", "more:5"}, "yellow", false},
      // A count past any sum must neither abort nor print nineteen digits; the
      // daemon's "not degraded" is overruled.
      {1, 1, false, {"a", "b", "more:9223372036854775807"}, std::nullopt,
       {"Worst", "1 ms", "Degraded: 99999+ issues", "a", "b", "more:9223372036854775807"},
       "yellow", false},
      {1, 1, false, {"a", "more:100000"}, std::nullopt,
       {"Worst", "1 ms", "Degraded: 99999+ issues", "a", "more:100000"}, "green", false},
      {1, 1, false, {"a", "more:-50"}, std::nullopt,
       {"Worst", "1 ms", "Degraded: 2 issues", "a", "more:-50"}, "green", false},
      {1, 1, false, {}, HealthDefaultRoute{"wlan0", "wifi", 866, "802.11ac"},
       {"Worst", "1 ms", "Link: wlan0 wifi 866 Mb/s"}, "green", true},
      {1, 1, false, {}, HealthDefaultRoute{"eth0", "ethernet", 1000, ""},
       {"Worst", "1 ms", "Link: eth0 ethernet 1000 Mb/s"}, "green", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shown.join(" | ").toStdString());
    HealthSummary s = healthy();
    s.worstFrameAgeMS = c.worst;
    s.newestFrameAgeMS = c.newest;
    s.degraded = c.degraded;
    s.degradedReasons = c.reasons;
    s.defaultRoute = c.route;
    show(s);
    EXPECT_EQ(shown("metricLabel|metricValue").mid(6) + shown("degraded.*|linkLabel"), c.shown);
    for (QWidget* link : visible("linkLabel")) {
      EXPECT_EQ(link->palette().color(QPalette::WindowText) == systemOrange(), c.warning);
    }
    EXPECT_EQ(headerStatus(), c.status);
  }
}

// Figures from the daemon are shown only within ranges a person can read.
TEST(HealthFigures, OutOfRangeFiguresReadAsADash) {
  const double nan = std::nan("");
  const double inf = std::numeric_limits<double>::infinity();
  const std::pair<QString, QString> cases[] = {
      {cpuText(800), "800%"},           {cpuText(1e308), "—"},
      {cpuText(nan), "—"},              {cpuText(-1), "—"},
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
  s.version = "<b>9</b>";
  s.cameras[0].name = "<img src=x>" + std::string(1 << 20, 'W');
  s.degradedReasons = {"<a href=\"https://example.com\">click</a>"};
  s.cameras[1].name = "Garage\u202e\ttxt.exe";
  s.defaultRoute = HealthDefaultRoute{"<i>eth0</i>", "ethernet", kMax, ""};
  show(s);
  for (QLabel* label : view.findChildren<QLabel*>()) {
    if (label->text().isEmpty()) continue;  // the dots and symbols: pictures only
    EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->objectName().toStdString();
  }
  EXPECT_EQ(shown("degradedReason"), QStringList{s.degradedReasons[0].c_str()});  // as written
  EXPECT_EQ(shown("cameraName")[1], "Garage  txt.exe");  // no override, no tab
  const QWidget* name = visible("cameraName").front();
  EXPECT_EQ(name->accessibleName().size(), maxShownTextLength);
  EXPECT_TRUE(name->accessibleName().startsWith("<img src=x>W"));
  EXPECT_FALSE(name->toolTip().contains("<img")) << "the tooltip would render the picture";
  EXPECT_EQ(name->sizeHint().height(), name->fontMetrics().height());  // one line
}

TEST(PopoverPosition, AnchorsUnderTheItemOrAtTheCursorInsideTheScreen) {
  const QRect screen(0, 0, 1920, 1080);
  const struct {
    std::optional<QRect> anchor;
    QPoint cursor;
    QPoint expected;
  } cases[] = {
      {QRect(1000, 0, 24, 24), {}, {841, 28}},      // centred under a tray icon at the top
      {QRect(1000, 1056, 24, 24), {}, {841, 752}},  // flipped above a bottom panel
      {QRect(), {100, 500}, {4, 505}},              // empty tray geometry: at the cursor
      {std::nullopt, {1910, 1070}, {1576, 766}},    // cursor near the bottom right
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected.x());
    EXPECT_EQ(popoverPosition(QSize(340, 300), c.anchor, c.cursor, screen), c.expected);
  }
}

// The popover's icons.
int colourDistance(const QColor& a, const QColor& b) {
  return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) +
         std::abs(a.blue() - b.blue());
}

struct Ink {
  int pixels = 0;         // drawn: at least half opaque
  int meanLightness = 0;  // of the drawn pixels
  int worstFromOrange = 0;
};

Ink inkOf(const QPixmap& pixmap) {
  const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
  Ink ink;
  int64_t lightness = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor pixel = image.pixelColor(x, y);
      if (pixel.alpha() < 128) continue;
      ++ink.pixels;
      lightness += pixel.lightness();
      ink.worstFromOrange = std::max(ink.worstFromOrange, colourDistance(pixel, systemOrange()));
    }
  }
  ink.meanLightness = ink.pixels ? static_cast<int>(lightness / ink.pixels) : 0;
  return ink;
}

TEST(PopoverIcons, DrawnFromTheVectorInTheVariantForThePalette) {
  for (const PopoverIcon icon : {PopoverIcon::wifi, PopoverIcon::wired, PopoverIcon::refresh}) {
    SCOPED_TRACE(static_cast<int>(icon));
    QPalette light, dark;
    light.setColor(QPalette::Window, Qt::white);
    dark.setColor(QPalette::Window, QColor(30, 30, 30));
    const Ink once = inkOf(bundledPopoverIcon(icon, light).pixmap(16, 16));
    ASSERT_GT(once.pixels, 10);
    EXPECT_LT(once.meanLightness, 128);  // dark lines on a light window, light on a dark one
    EXPECT_GT(inkOf(bundledPopoverIcon(icon, dark).pixmap(16, 16)).meanLightness, 128);
    // Drawn again at twice the scale: twice the pixels each way, four times the ink.
    const QPixmap twice = bundledPopoverIcon(icon, light).pixmap(QSize(16, 16), 2.0);
    EXPECT_EQ(twice.size(), QSize(32, 32));
    EXPECT_NEAR(inkOf(twice).pixels, 4 * once.pixels, once.pixels);
  }
  // A warning link's symbol is ours, in the warning colour, whatever the theme has.
  for (const char* kind : {"wifi", "ethernet"}) {
    const Ink ink = inkOf(linkSymbolPixmap(kind, QPalette(), 12, 1.5, systemOrange()));
    EXPECT_GT(ink.pixels, 10) << kind;
    EXPECT_LT(ink.pixels, 18 * 18 / 2) << kind;  // the symbol's lines, not its square
    EXPECT_LE(ink.worstFromOrange, 3) << kind;  // premultiplied rounding
  }
}

// Each mask pixel's coverage survives; its colour becomes the tint.
TEST(TintedSymbol, KeepsCoverageAndTakesTheColour) {
  const struct {
    const char* name;
    QColor mask, tint, expected;
  } cases[] = {
      {"transparent stays transparent", QColor(0, 0, 0, 0), QColor(10, 200, 30),
       QColor(0, 0, 0, 0)},
      {"half coverage, half alpha", QColor(0, 0, 0, 128), QColor(255, 255, 255),
       QColor(255, 255, 255, 128)},
      {"a coloured mask pixel is recoloured", QColor(255, 0, 0, 255), QColor(0, 0, 255),
       QColor(0, 0, 255, 255)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    QImage mask(3, 2, QImage::Format_ARGB32);
    mask.fill(c.mask);
    const QImage tinted = tintedSymbol(mask, c.tint);
    ASSERT_EQ(tinted.size(), mask.size());
    const QColor got = tinted.pixelColor(2, 1);
    EXPECT_NEAR(got.alpha(), c.expected.alpha(), 1);
    if (c.expected.alpha() == 0) continue;  // colour is undefined where nothing is covered
    EXPECT_LE(colourDistance(got, c.expected), 4);
  }
}

}  // namespace
}  // namespace zev
