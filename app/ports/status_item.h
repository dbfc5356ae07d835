// The menu-bar item (macOS NSStatusItem) or tray icon (Linux QSystemTrayIcon):
// a picture, a short title, a tooltip and a click. Main thread.
#ifndef ZEV_APP_PORTS_STATUS_ITEM_H_
#define ZEV_APP_PORTS_STATUS_ITEM_H_

#include <QImage>
#include <QRect>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace zev {

class StatusItem {
 public:
  virtual ~StatusItem() = default;
  // False when the system could not give the item a button; appearance calls
  // are then skipped by the controller.
  virtual bool hasButton() const = 0;
  virtual void setImage(const QImage& image) = 0;
  // Trays that cannot show text next to the icon keep it for the tooltip or
  // draw it into the icon.
  virtual void setTitle(const QString& title) = 0;
  virtual void setToolTip(const QString& toolTip) = 0;
  virtual void setClickHandler(std::function<void()> onClick) = 0;
  // The item's rectangle in global screen coordinates, when the tray tells.
  virtual std::optional<QRect> anchorRect() const = 0;
};

// The platform's item (platform/<os>/status_item_<os>.cpp). Needs a running
// QApplication.
std::unique_ptr<StatusItem> makePlatformStatusItem();

}  // namespace zev

#endif  // ZEV_APP_PORTS_STATUS_ITEM_H_
