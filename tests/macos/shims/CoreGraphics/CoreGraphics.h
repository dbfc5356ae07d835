// CoreGraphics declarations the macOS adapters use, as in the macOS 14 SDK
// (Apple's CoreGraphics reference: CGImage, CGColorSpace, CGBitmapContext).
// Declarations only. As in the SDK under C++, CGImageAlphaInfo is a named
// enumeration and the CGBitmapInfo constants an unnamed one, so mixing them
// without a cast warns here as it does on a Mac.
#ifndef ZEV_SHIM_COREGRAPHICS_H_
#define ZEV_SHIM_COREGRAPHICS_H_

#include <stddef.h>
#include <stdint.h>

#import <Foundation/Foundation.h>  // CGFloat (GNUstep's NSObjCRuntime.h)

typedef struct CGImage* CGImageRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGContext* CGContextRef;

enum CGImageAlphaInfo : uint32_t {
  kCGImageAlphaNone = 0,
  kCGImageAlphaPremultipliedLast = 1,
  kCGImageAlphaPremultipliedFirst = 2,
  kCGImageAlphaLast = 3,
  kCGImageAlphaFirst = 4,
  kCGImageAlphaNoneSkipLast = 5,
  kCGImageAlphaNoneSkipFirst = 6,
  kCGImageAlphaOnly = 7,
};

typedef uint32_t CGBitmapInfo;
enum : uint32_t {
  kCGBitmapAlphaInfoMask = 0x1F,
  kCGBitmapFloatComponents = (1 << 8),
  kCGBitmapByteOrderMask = 0x7000,
  kCGBitmapByteOrderDefault = (0 << 12),
  kCGBitmapByteOrder16Little = (1 << 12),
  kCGBitmapByteOrder32Little = (2 << 12),
  kCGBitmapByteOrder16Big = (3 << 12),
  kCGBitmapByteOrder32Big = (4 << 12),
};
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define kCGBitmapByteOrder32Host kCGBitmapByteOrder32Big
#else
#define kCGBitmapByteOrder32Host kCGBitmapByteOrder32Little
#endif

#ifdef __cplusplus
extern "C" {
#endif
CGImageRef CGImageRetain(CGImageRef image);
void CGImageRelease(CGImageRef image);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
void CGColorSpaceRelease(CGColorSpaceRef space);
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height,
                                   size_t bitsPerComponent, size_t bytesPerRow,
                                   CGColorSpaceRef space, uint32_t bitmapInfo);
void CGContextRelease(CGContextRef context);
#ifdef __cplusplus
}
#endif

#endif  // ZEV_SHIM_COREGRAPHICS_H_
