// The status item on Linux: a QSystemTrayIcon, which Qt shows through the
// StatusNotifierItem D-Bus protocol or, without it, as an XEmbed tray icon.
//
// Trays have room for a square icon and show no title, so the count (" 3/4")
// is drawn into the icon: a disc in the dot's colour filling the slot, with
// the count across it in dark figures sized to fit. The dot picture
// arrives large (64 pixels); its centre gives the colour.
#include <QGuiApplication>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <algorithm>

#include "app/ports/status_item.h"
#include "platform/linux/status_item_linux.h"

namespace zev {
namespace {

class TrayStatusItem : public StatusItem {
 public:
  TrayStatusItem() {
    QObject::connect(
        &m_tray, &QSystemTrayIcon::activated, &m_tray,
        [this](QSystemTrayIcon::ActivationReason reason) {
          // No context menu exists, so a right click opens the
          // popover too, as users of most trays expect.
          if ((reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context) &&
              m_onClick) {
            m_onClick();
          }
        });
  }

  bool hasButton() const override { return true; }

  void setImage(const QImage& image) override {
    if (image.isNull()) return;
    m_color = image.pixelColor(image.width() / 2, image.height() / 2);
    m_color.setAlpha(255);
    repaint();
  }

  void setTitle(const QString& title) override {
    m_title = title.trimmed();
    repaint();
  }

  void setToolTip(const QString& toolTip) override { m_tray.setToolTip(toolTip); }

  void setClickHandler(std::function<void()> onClick) override { m_onClick = std::move(onClick); }

  std::optional<QRect> anchorRect() const override {
    const QRect rect = m_tray.geometry();
    if (!rect.isValid() || rect.isEmpty()) return std::nullopt;
    return rect;
  }

 private:
  void repaint() {
    if (!m_color.isValid()) return;
    const QImage icon = trayIconImage(m_color, m_title);
    if (icon == m_shown) return;  // a poll that changed nothing repaints nothing
    m_shown = icon;
    m_tray.setIcon(QIcon(QPixmap::fromImage(icon)));
    // Shown on the first picture, so the tray never holds an empty slot. Qt
    // keeps the icon and shows it once a tray appears, if none is there yet.
    if (!m_tray.isVisible()) m_tray.show();
  }

  QSystemTrayIcon m_tray;
  QColor m_color;
  QString m_title;
  QImage m_shown;
  std::function<void()> m_onClick;
};

}  // namespace

namespace {

// The count is drawn as seven-segment figures rather than set in a font: the
// tray icon is the only text the launcher shows until the popover opens, and
// a font would cost the idle launcher fontconfig, FreeType and HarfBuzz.
// Segments a to g, clockwise from the top, g in the middle, as bits.
constexpr unsigned char kSegments[10] = {0x3f, 0x06, 0x5b, 0x4f, 0x66,
                                         0x6d, 0x7d, 0x07, 0x7f, 0x6f};

void drawFigure(QPainter& painter, QChar c, const QRectF& cell) {
  const qreal l = cell.left(), r = cell.right(), t = cell.top(), b = cell.bottom();
  const qreal m = (t + b) / 2;
  if (c == QLatin1Char('/')) {
    painter.drawLine(QPointF(r, t), QPointF(l, b));
  } else if (c == QChar(0x2014) || c == QLatin1Char('-')) {
    painter.drawLine(QPointF(l, m), QPointF(r, m));
  } else if (c.isDigit()) {
    const unsigned bits = kSegments[c.digitValue()];
    const QLineF segments[7] = {{l, t, r, t}, {r, t, r, m}, {r, m, r, b}, {l, b, r, b},
                                {l, m, l, b}, {l, t, l, m}, {l, m, r, m}};
    for (int i = 0; i < 7; ++i) {
      if (bits & (1u << i)) painter.drawLine(segments[i]);
    }
  }
}

}  // namespace

QImage trayIconImage(const QColor& color, const QString& count) {
  constexpr int side = 64;
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawEllipse(QRectF(2, 2, side - 4, side - 4));
  if (count.isEmpty()) return image;
  // Figures as tall as a third of the icon (legible at a 22-pixel tray
  // size), narrowed to fit the disc's middle band for longer counts.
  const qreal bandWidth = side - 14;
  const qreal height = side * 0.36;
  const qreal gapRatio = 0.45;  // the space between figures, of a figure's width
  const qreal n = count.size();
  const qreal width = std::min(height * 0.55, bandWidth / (n + (n - 1) * gapRatio));
  const qreal stroke = std::clamp(width * 0.28, 1.5, 5.0);
  QPen pen(QColor(20, 20, 20), stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
  painter.setPen(pen);
  const qreal total = n * width + (n - 1) * width * gapRatio;
  qreal x = (side - total) / 2;
  const qreal top = (side - height) / 2;
  for (const QChar c : count) {
    drawFigure(painter, c, QRectF(x, top, width, height));
    x += width * (1 + gapRatio);
  }
  return image;
}

std::unique_ptr<StatusItem> makePlatformStatusItem() { return std::make_unique<TrayStatusItem>(); }

}  // namespace zev
