#include "app/status/symbol_icon.h"

#include <QPainter>
#include <QPixmap>

#include "app/ports/system_symbol.h"

namespace zev {

QImage tintedSymbol(const QImage& mask, const QColor& color) {
  if (mask.isNull()) return {};
  QImage image = mask.convertToFormat(QImage::Format_ARGB32_Premultiplied);
  QPainter painter(&image);
  // SourceIn keeps each pixel's coverage and replaces its colour.
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(image.rect(), color);
  painter.end();
  return image;
}

QIcon symbolIcon(const QString& name, const QColor& color, int points) {
  QIcon icon;
  for (int scale : {1, 2}) {
    QImage image = tintedSymbol(systemSymbolImage(name, points * scale), color);
    if (image.isNull()) return {};
    image.setDevicePixelRatio(scale);
    icon.addPixmap(QPixmap::fromImage(image));
  }
  return icon;
}

}  // namespace zev
