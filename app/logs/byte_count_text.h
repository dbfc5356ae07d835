// A byte count as a file manager shows a file's size: decimal units (1 kB is
// 1000 bytes), whole kilobytes, one decimal from megabytes on when it is not
// zero: "0 bytes", "1 byte", "587 kB", "1 MB", "1.2 MB", "3.4 GB".
#ifndef ZEV_APP_LOGS_BYTE_COUNT_TEXT_H_
#define ZEV_APP_LOGS_BYTE_COUNT_TEXT_H_

#include <QString>
#include <cstdint>

namespace zev {

QString byteCountText(int64_t bytes);

}  // namespace zev

#endif  // ZEV_APP_LOGS_BYTE_COUNT_TEXT_H_
