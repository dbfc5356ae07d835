#include "app/status/popover_icons.h"

#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>

namespace zev {
namespace {

// Renders one SVG file at whatever size is asked, instead of scaling a bitmap.
class SvgIconEngine : public QIconEngine {
 public:
  explicit SvgIconEngine(const QString& file) : m_file(file) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
    QSvgRenderer renderer(m_file);
    painter->save();
    if (mode == QIcon::Disabled) painter->setOpacity(0.4);
    renderer.render(painter, rect);
    painter->restore();
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(&painter, QRect(QPoint(0, 0), size), mode, state);
    return pixmap;
  }
  QIconEngine* clone() const override { return new SvgIconEngine(m_file); }
  bool isNull() override { return !QSvgRenderer(m_file).isValid(); }

 private:
  QString m_file;
};

const char* baseName(PopoverIcon icon) {
  switch (icon) {
    case PopoverIcon::wifi:
      return "wifi";
    case PopoverIcon::wired:
      return "wired";
    case PopoverIcon::refresh:
      return "refresh";
  }
  return "refresh";
}

const char* themeName(PopoverIcon icon) {
  switch (icon) {
    case PopoverIcon::wifi:
      return "network-wireless";
    case PopoverIcon::wired:
      return "network-wired";
    case PopoverIcon::refresh:
      return "view-refresh";
  }
  return "view-refresh";
}

PopoverIcon linkIcon(std::string_view kind) {
  return kind == "wifi" ? PopoverIcon::wifi : PopoverIcon::wired;
}

}  // namespace

QIcon bundledPopoverIcon(PopoverIcon icon, const QPalette& palette) {
  const bool dark = palette.color(QPalette::Window).lightness() < 128;
  return QIcon(new SvgIconEngine(QStringLiteral(":/icons/%1-%2.svg")
                                     .arg(QLatin1String(baseName(icon)),
                                          dark ? QLatin1String("dark") : QLatin1String("light"))));
}

QIcon popoverIcon(PopoverIcon icon, const QPalette& palette) {
  const QIcon themed = QIcon::fromTheme(QLatin1String(themeName(icon)));
  return themed.isNull() ? bundledPopoverIcon(icon, palette) : themed;
}

QPixmap linkSymbolPixmap(std::string_view kind, const QPalette& palette, int size, qreal dpr,
                         std::optional<QColor> tint) {
  const QIcon icon = tint ? bundledPopoverIcon(linkIcon(kind), palette)
                          : popoverIcon(linkIcon(kind), palette);
  QPixmap pixmap = icon.pixmap(QSize(size, size), dpr);
  if (tint) {
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRect(QPoint(0, 0), pixmap.size()), *tint);
  }
  return pixmap;
}

}  // namespace zev
