// The status item on Linux: a QSystemTrayIcon, which Qt shows through the
// StatusNotifierItem D-Bus protocol or, without it, as an XEmbed tray icon.
//
// Trays have room for a square icon only, so the title (" 3/4") is not drawn:
// the count is in the tooltip and in the popover's header. The dot picture
// arrives large (64 pixels) and is scaled by the tray to its icon size.
#include <QGuiApplication>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <algorithm>

#include "app/ports/status_item.h"

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
    // Trays fill their whole slot with the icon; the dot is drawn smaller, in
    // the middle of a transparent square, so it sits in the panel the way the
    // menu bar's 10-point dot does.
    const int side = std::max(image.width(), image.height()) * 3 / 2;
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    {
      QPainter painter(&pixmap);
      painter.setRenderHint(QPainter::SmoothPixmapTransform);
      QImage dot = image;
      dot.setDevicePixelRatio(1.0);
      painter.drawImage(QPoint((side - dot.width()) / 2, (side - dot.height()) / 2), dot);
    }
    m_tray.setIcon(QIcon(pixmap));
    // Shown on the first picture, so the tray never holds an empty slot. Qt
    // keeps the icon and shows it once a tray appears, if none is there yet.
    if (!m_tray.isVisible()) m_tray.show();
  }

  void setTitle(const QString& title) override { m_title = title; }

  void setToolTip(const QString& toolTip) override { m_tray.setToolTip(toolTip); }

  void setClickHandler(std::function<void()> onClick) override { m_onClick = std::move(onClick); }

  std::optional<QRect> anchorRect() const override {
    const QRect rect = m_tray.geometry();
    if (!rect.isValid() || rect.isEmpty()) return std::nullopt;
    return rect;
  }

 private:
  QSystemTrayIcon m_tray;
  QString m_title;
  std::function<void()> m_onClick;
};

}  // namespace

std::unique_ptr<StatusItem> makePlatformStatusItem() { return std::make_unique<TrayStatusItem>(); }

}  // namespace zev
