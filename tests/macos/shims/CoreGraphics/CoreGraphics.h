// CoreGraphics declarations the macOS adapters use, as in the macOS 14 SDK
// (Apple's CoreGraphics reference: CGImage). Declarations only.
#ifndef ZEV_SHIM_COREGRAPHICS_H_
#define ZEV_SHIM_COREGRAPHICS_H_

#include <stddef.h>

#import <Foundation/Foundation.h>  // CGFloat (GNUstep's NSObjCRuntime.h)

typedef struct CGImage* CGImageRef;

#ifdef __cplusplus
extern "C" {
#endif
CGImageRef CGImageRetain(CGImageRef image);
void CGImageRelease(CGImageRef image);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
#ifdef __cplusplus
}
#endif

#endif  // ZEV_SHIM_COREGRAPHICS_H_
