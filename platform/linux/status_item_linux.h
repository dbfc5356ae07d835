// The tray icon's picture on Linux, where the tray shows no title beside it.
#ifndef ZEV_PLATFORM_LINUX_STATUS_ITEM_LINUX_H_
#define ZEV_PLATFORM_LINUX_STATUS_ITEM_LINUX_H_

#include <QColor>
#include <QImage>
#include <QString>

namespace zev {

// A 64-pixel square: a disc of `color` with `count` ("3/4", "—") across it.
// An empty count leaves the disc plain.
QImage trayIconImage(const QColor& color, const QString& count);

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_STATUS_ITEM_LINUX_H_
