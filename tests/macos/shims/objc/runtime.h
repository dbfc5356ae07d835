// Stands in for <objc/runtime.h> in the macOS compile check.
//
// GNUstep's headers on Debian are built for GCC's Objective-C runtime, whose
// runtime.h defines inline functions that dereference `id`; clang accepts
// that only with the legacy (fragile) runtime, which has no ARC. The check
// runs clang with a modern runtime so that ARC rules apply, and this header
// gives GNUstep's headers the two opaque types they need from the runtime
// (as the modern GNUstep runtime, libobjc2 2.x, declares them).
#ifndef ZEV_SHIM_OBJC_RUNTIME_H_
#define ZEV_SHIM_OBJC_RUNTIME_H_

#include <objc/objc.h>

typedef struct objc_method* Method;
typedef struct objc_ivar* Ivar;

#endif  // ZEV_SHIM_OBJC_RUNTIME_H_
