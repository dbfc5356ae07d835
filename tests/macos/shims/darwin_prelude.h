// Force-included before every file of the macOS compile check.
//
// Qt declares its Apple conversions (QImage::toCGImage, QString::toNSString,
// QString::fromNSString…) only when qsystemdetection.h finds Darwin. Let it
// detect the real host first, then claim Darwin for every Qt header that
// follows, so those members are declared as on a Mac. Qt's Darwin-only inline
// code is not used by the adapters; the Linux macros stay defined.
#ifndef ZEV_SHIM_DARWIN_PRELUDE_H_
#define ZEV_SHIM_DARWIN_PRELUDE_H_

#include <QtCore/qsystemdetection.h>

#ifndef Q_OS_DARWIN
#define Q_OS_DARWIN
#define Q_OS_MAC
#define Q_OS_MACOS
#define Q_OS_OSX
#endif

#endif  // ZEV_SHIM_DARWIN_PRELUDE_H_
