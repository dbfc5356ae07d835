// GNUstep's Foundation plus what a Mac's Foundation brings in and GNUstep
// 0.29/base 1.28 does not: Grand Central Dispatch (the notifier hops to the
// main queue without naming <dispatch/dispatch.h>). Declarations only.
#ifndef ZEV_SHIM_FOUNDATION_H_
#define ZEV_SHIM_FOUNDATION_H_

#include_next <Foundation/Foundation.h>

#include <dispatch/dispatch.h>

#endif  // ZEV_SHIM_FOUNDATION_H_
