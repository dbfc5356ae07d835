#include "app/status/popover_icons.h"

#include <gtest/gtest.h>

#include <QImage>
#include <cstdlib>

#include "app/fakes/qt_test_main.h"
#include "app/status/status_colors.h"

namespace zev {
namespace {

QPalette paletteWithWindow(const QColor& window) {
  QPalette palette;
  palette.setColor(QPalette::Window, window);
  return palette;
}

// The mean lightness of the drawn (non-transparent) pixels, and how many there are.
std::pair<int, int> inked(const QPixmap& pixmap) {
  const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
  int count = 0, lightness = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor pixel = image.pixelColor(x, y);
      if (pixel.alpha() < 128) continue;
      ++count;
      lightness += pixel.lightness();
    }
  }
  return {count, count ? lightness / count : 0};
}

TEST(PopoverIcons, RenderFromTheVectorInTheVariantForThePalette) {
  for (const PopoverIcon icon : {PopoverIcon::wifi, PopoverIcon::wired, PopoverIcon::refresh}) {
    SCOPED_TRACE(static_cast<int>(icon));
    const QPixmap light = bundledPopoverIcon(icon, paletteWithWindow(Qt::white)).pixmap(16, 16);
    const QPixmap dark = bundledPopoverIcon(icon, paletteWithWindow(QColor(30, 30, 30))).pixmap(16, 16);
    ASSERT_GT(inked(light).first, 10);
    EXPECT_LT(inked(light).second, 128);  // dark lines on a light window
    EXPECT_GT(inked(dark).second, 128);
    // Twice the pixels at twice the scale, and about four times the ink: drawn, not scaled up.
    const QPixmap sharp = bundledPopoverIcon(icon, paletteWithWindow(Qt::white)).pixmap(QSize(16, 16), 2.0);
    EXPECT_EQ(sharp.size(), QSize(32, 32));
    EXPECT_EQ(sharp.devicePixelRatio(), 2.0);
    EXPECT_NEAR(inked(sharp).first, 4 * inked(light).first, inked(light).first);
  }
}

TEST(PopoverIcons, AWarningLinkIsOursInTheWarningColourWhateverTheTheme) {
  for (const char* kind : {"wifi", "ethernet"}) {
    SCOPED_TRACE(kind);
    const QImage image =
        linkSymbolPixmap(kind, QPalette(), 12, 1.5, systemOrange()).toImage().convertToFormat(QImage::Format_ARGB32);
    EXPECT_EQ(image.size(), QSize(18, 18));
    int orange = 0;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        const QColor pixel = image.pixelColor(x, y);
        if (pixel.alpha() < 128) continue;  // edges: premultiplied rounding
        const QColor want = systemOrange();
        EXPECT_LE(std::abs(pixel.red() - want.red()) + std::abs(pixel.green() - want.green()) +
                      std::abs(pixel.blue() - want.blue()),
                  3)
            << x << "," << y;
        ++orange;
      }
    }
    EXPECT_GT(orange, 10);
  }
}

}  // namespace
}  // namespace zev
