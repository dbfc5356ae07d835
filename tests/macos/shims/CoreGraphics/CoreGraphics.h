// The part of CoreGraphics the macOS adapters use, as in the macOS 14 SDK
// (Apple's CoreGraphics reference: CGImage, CGColorSpace, CGBitmapContext).
// Declarations only. As in the SDK under C++, CGImageAlphaInfo is a named
// enumeration and the CGBitmapInfo constants an unnamed one, so mixing them
// without a cast warns here as it does on a Mac; the values are the SDK's.
#ifndef ZEV_SHIM_COREGRAPHICS_H_
#define ZEV_SHIM_COREGRAPHICS_H_

#include <stddef.h>
#include <stdint.h>

// Qt and GNUstep declare the first and the last too; the header stands alone.
typedef struct CGImage* CGImageRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGContext* CGContextRef;

enum CGImageAlphaInfo : uint32_t {
  kCGImageAlphaPremultipliedFirst = 2,
};

typedef uint32_t CGBitmapInfo;
enum : uint32_t {
  kCGBitmapByteOrder32Little = (2 << 12),
};
// The SDK picks kCGBitmapByteOrder32Big on a big-endian host; no Mac the
// launcher runs on is one.
#define kCGBitmapByteOrder32Host kCGBitmapByteOrder32Little

extern "C" {
void CGImageRelease(CGImageRef image);
CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
void CGColorSpaceRelease(CGColorSpaceRef space);
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height,
                                   size_t bitsPerComponent, size_t bytesPerRow,
                                   CGColorSpaceRef space, uint32_t bitmapInfo);
void CGContextRelease(CGContextRef context);
}

#endif  // ZEV_SHIM_COREGRAPHICS_H_
