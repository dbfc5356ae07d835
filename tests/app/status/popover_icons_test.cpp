#include "app/status/popover_icons.h"
#include "app/status/symbol_icon.h"

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
};

Ink inkOf(const QPixmap& pixmap) {
  const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
  const QColor orange = systemOrange();
  Ink ink;
  int64_t lightness = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor pixel = image.pixelColor(x, y);
      if (pixel.alpha() < 128) continue;
      ++ink.pixels;
      lightness += pixel.lightness();
      ink.worstFromOrange =
          std::max(ink.worstFromOrange, std::abs(pixel.red() - orange.red()) +
                                            std::abs(pixel.green() - orange.green()) +
                                            std::abs(pixel.blue() - orange.blue()));
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
      {"opaque black takes the tint", QColor(0, 0, 0, 255), QColor(10, 200, 30),
       QColor(10, 200, 30, 255)},
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
    EXPECT_LE(std::abs(got.red() - c.expected.red()) + std::abs(got.green() - c.expected.green()) +
                  std::abs(got.blue() - c.expected.blue()),
              4);
  }
}

}  // namespace
}  // namespace zev
