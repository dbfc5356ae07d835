// GNUstep's Foundation plus the Apple basics that a Mac's Foundation brings
// in and GNUstep 0.29/base 1.28 does not (from the macOS 14 SDK's MacTypes,
// per Apple's Kernel/Core Services reference). Declarations only.
#ifndef ZEV_SHIM_FOUNDATION_H_
#define ZEV_SHIM_FOUNDATION_H_

#include_next <Foundation/Foundation.h>

#include <dispatch/dispatch.h>  // a Mac's Foundation brings Grand Central Dispatch
#include <stdint.h>

typedef int32_t OSStatus;

#endif  // ZEV_SHIM_FOUNDATION_H_
