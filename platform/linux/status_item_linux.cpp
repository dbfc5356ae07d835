// The status item on Linux: a QSystemTrayIcon, which Qt shows through the
// StatusNotifierItem D-Bus protocol or, without it, as an XEmbed tray icon.
//
// Trays have room for a square icon and show no title, so the count (" 3/4")
// is drawn into the icon: a disc in the dot's colour filling the slot, with
// the count across it in dark, bold figures sized to fit. The dot picture
// arrives large (64 pixels); its centre gives the colour.
#include <QGuiApplication>
#include <QIcon>
#include <QPainter>
#include <QFontMetricsF>
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

QImage trayIconImage(const QColor& color, const QString& count) {
  constexpr int side = 64;
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setRenderHint(QPainter::TextAntialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawEllipse(QRectF(2, 2, side - 4, side - 4));
  if (count.isEmpty()) return image;
  // The largest bold type up to 30 pixels in which the count fits the disc's
  // middle band: "3/4" reads at a 22-pixel tray size, "120/128" still fits.
  QFont font;
  font.setBold(true);
  const QRectF band(5, side * 0.22, side - 10, side * 0.56);
  for (int pixels = 30; pixels >= 8; pixels -= 2) {
    font.setPixelSize(pixels);
    if (QFontMetricsF(font).horizontalAdvance(count) <= band.width()) break;
  }
  painter.setFont(font);
  painter.setPen(QColor(20, 20, 20));
  painter.drawText(band, Qt::AlignCenter | Qt::TextSingleLine, count);
  return image;
}

std::unique_ptr<StatusItem> makePlatformStatusItem() { return std::make_unique<TrayStatusItem>(); }

}  // namespace zev
