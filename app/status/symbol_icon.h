// Icons from the system's symbols (SF Symbols on macOS), coloured to match
// the widget that shows them.
#ifndef ZEV_APP_STATUS_SYMBOL_ICON_H_
#define ZEV_APP_STATUS_SYMBOL_ICON_H_

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QString>

namespace zev {

// The symbol `name` in `color` at `points` and twice that for high-density
// screens; a null icon when the system has no such symbol.
QIcon symbolIcon(const QString& name, const QColor& color, int points);

// `mask`'s shape (its alpha) filled with `color`: symbols come opaque black
// on transparent, like template images. A null mask gives a null image.
QImage tintedSymbol(const QImage& mask, const QColor& color);

}  // namespace zev

#endif  // ZEV_APP_STATUS_SYMBOL_ICON_H_
