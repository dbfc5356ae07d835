#include "app/status/popover_icons.h"

#include <gtest/gtest.h>

#include <QImage>
#include <cstdlib>

#include "app/fakes/qt_test_main.h"
#include "app/status/status_colors.h"

namespace zev {
namespace {

struct Ink {
  int pixels = 0;         // drawn: at least half opaque
  int meanLightness = 0;  // of the drawn pixels
  int worstFromOrange = 0;
  int edges = 0;  // partly transparent: anti-aliased line edges
};

Ink inkOf(const QPixmap& pixmap) {
  const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
  const QColor orange = systemOrange();
  Ink ink;
  int64_t lightness = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor pixel = image.pixelColor(x, y);
      ink.edges += pixel.alpha() > 0 && pixel.alpha() < 255;
      if (pixel.alpha() < 128) continue;
      ++ink.pixels;
      lightness += pixel.lightness();
      ink.worstFromOrange = std::max(ink.worstFromOrange, std::abs(pixel.red() - orange.red()) +
                                                              std::abs(pixel.green() - orange.green()) +
                                                              std::abs(pixel.blue() - orange.blue()));
    }
  }
  ink.meanLightness = ink.pixels ? static_cast<int>(lightness / ink.pixels) : 0;
  return ink;
}

QPalette withWindow(const QColor& window) {
  QPalette palette;
  palette.setColor(QPalette::Window, window);
  return palette;
}

TEST(PopoverIcons, DrawnFromTheVectorInTheVariantForThePalette) {
  for (const PopoverIcon icon : {PopoverIcon::wifi, PopoverIcon::wired, PopoverIcon::refresh}) {
    SCOPED_TRACE(static_cast<int>(icon));
    const QIcon light = bundledPopoverIcon(icon, withWindow(Qt::white));
    const Ink once = inkOf(light.pixmap(16, 16));
    ASSERT_GT(once.pixels, 10);
    EXPECT_LT(once.meanLightness, 128);  // dark lines on a light window, light on a dark one
    EXPECT_GT(inkOf(bundledPopoverIcon(icon, withWindow(QColor(30, 30, 30))).pixmap(16, 16)).meanLightness, 128);
    // At twice the scale: twice the pixels each way, about four times the ink,
    // and edges only twice as long, where an enlarged bitmap's would blur.
    const QPixmap twice = light.pixmap(QSize(16, 16), 2.0);
    EXPECT_EQ(twice.size(), QSize(32, 32));
    EXPECT_NEAR(inkOf(twice).pixels, 4 * once.pixels, once.pixels);
    EXPECT_LT(inkOf(twice).edges, 3 * once.edges);
  }
  // A warning link's symbol is ours, in the warning colour, whatever the theme has.
  for (const char* kind : {"wifi", "ethernet"}) {
    const Ink ink = inkOf(linkSymbolPixmap(kind, QPalette(), 12, 1.5, systemOrange()));
    EXPECT_GT(ink.pixels, 10) << kind;
    EXPECT_LE(ink.worstFromOrange, 3) << kind;  // premultiplied rounding
  }
}

}  // namespace
}  // namespace zev
