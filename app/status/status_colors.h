// The colours of the status item and popover, close to the desktop's own
// "system" green, yellow, red and orange so the dot reads the same on a dark
// or a light panel.
#ifndef ZEV_APP_STATUS_COLORS_H_
#define ZEV_APP_STATUS_COLORS_H_

#include <QColor>
#include <QPalette>

#include "core/health/health_status.h"

namespace zev {

inline QColor systemGreen() { return QColor(52, 199, 89); }
inline QColor systemYellow() { return QColor(255, 204, 0); }
inline QColor systemRed() { return QColor(255, 59, 48); }
inline QColor systemOrange() { return QColor(255, 149, 0); }

inline QColor statusColor(HealthStatus status) {
  switch (status) {
    case HealthStatus::green:
      return systemGreen();
    case HealthStatus::yellow:
      return systemYellow();
    case HealthStatus::red:
      return systemRed();
  }
  return systemRed();
}

// Secondary text: the palette's text colour, faded, as for captions.
inline QColor secondaryTextColor(const QPalette& palette) {
  QColor color = palette.color(QPalette::WindowText);
  color.setAlphaF(0.55f);
  return color;
}

}  // namespace zev

#endif  // ZEV_APP_STATUS_COLORS_H_
