#include "app/logs/byte_count_text.h"

#include <cmath>

namespace zev {

QString byteCountText(int64_t bytes) {
  if (bytes < 0) bytes = 0;
  if (bytes < 1000) {
    return bytes == 1 ? QStringLiteral("1 byte") : QStringLiteral("%1 bytes").arg(bytes);
  }
  static const char* const kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  // Kilobytes are whole; larger units keep one decimal. A value that rounds
  // up to 1000 of a unit is written in the next one ("1 MB", not "1000 kB").
  double value = static_cast<double>(bytes) / 1000.0;
  size_t unit = 0;
  for (;;) {
    const double scale = unit == 0 ? 1.0 : 10.0;
    const double rounded = std::round(value * scale) / scale;
    if (rounded < 1000.0 || unit + 1 == std::size(kUnits)) {
      QString number = QString::number(rounded, 'f', unit == 0 ? 0 : 1);
      if (number.endsWith(QLatin1String(".0"))) number.chop(2);
      return number + QLatin1Char(' ') + QLatin1String(kUnits[unit]);
    }
    value /= 1000.0;
    ++unit;
  }
}

}  // namespace zev
