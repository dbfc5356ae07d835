#include "app/status/symbol_icon.h"

#include <gtest/gtest.h>

#include <QImage>

namespace zev {
namespace {

// Each mask pixel's coverage survives; its colour becomes the tint.
TEST(TintedSymbol, KeepsCoverageAndTakesTheColour) {
  struct Case {
    const char* name;
    QColor mask;
    QColor tint;
    QColor expected;
  };
  const Case cases[] = {
      {"opaque black takes the tint", QColor(0, 0, 0, 255), QColor(10, 200, 30),
       QColor(10, 200, 30, 255)},
      {"transparent stays transparent", QColor(0, 0, 0, 0), QColor(10, 200, 30),
       QColor(0, 0, 0, 0)},
      {"half coverage, half alpha", QColor(0, 0, 0, 128), QColor(255, 255, 255),
       QColor(255, 255, 255, 128)},
      {"a coloured mask pixel is recoloured", QColor(255, 0, 0, 255), QColor(0, 0, 255),
       QColor(0, 0, 255, 255)},
      {"a translucent tint multiplies in", QColor(0, 0, 0, 255), QColor(0, 0, 0, 64),
       QColor(0, 0, 0, 64)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    QImage mask(3, 2, QImage::Format_ARGB32);
    mask.fill(c.mask);
    const QImage tinted = tintedSymbol(mask, c.tint);
    ASSERT_EQ(tinted.size(), mask.size());
    const QColor got = tinted.pixelColor(2, 1);
    EXPECT_NEAR(got.alpha(), c.expected.alpha(), 1);
    if (c.expected.alpha() > 0) {  // colour is undefined where nothing is covered
      EXPECT_NEAR(got.red(), c.expected.red(), 2);
      EXPECT_NEAR(got.green(), c.expected.green(), 2);
      EXPECT_NEAR(got.blue(), c.expected.blue(), 2);
    }
  }
}

TEST(TintedSymbol, NullMaskGivesNullImage) {
  EXPECT_TRUE(tintedSymbol(QImage(), Qt::red).isNull());
}

// Off macOS there is no symbol set: the popover must fall back to the theme.
TEST(SymbolIcon, NullWhereTheSystemHasNoSymbols) {
#ifndef Q_OS_MACOS
  EXPECT_TRUE(symbolIcon(QStringLiteral("arrow.triangle.2.circlepath"), Qt::black, 16).isNull());
#endif
}

}  // namespace
}  // namespace zev
