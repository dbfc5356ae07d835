// SF Symbols drawn into a QImage. Compile-checked on Linux against GNUstep
// and declaration shims (tests/macos); never run there.
#import <AppKit/AppKit.h>

#include <algorithm>
#include <cstdint>

#include "app/ports/system_symbol.h"

namespace zev {

QImage systemSymbolImage(const QString& name, int pixels) {
  if (pixels < 1 || pixels > 512) return {};
  NSImage* symbol = [NSImage imageWithSystemSymbolName:name.toNSString()
                              accessibilityDescription:nil];
  if (!symbol) return {};
  const NSSize size = symbol.size;
  if (size.width <= 0 || size.height <= 0) return {};

  // Core Graphics draws straight into the image's pixels: premultiplied ARGB
  // in host byte order is Format_ARGB32_Premultiplied.
  QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
  if (image.isNull()) return {};
  image.fill(Qt::transparent);
  CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
  const CGBitmapInfo layout = static_cast<uint32_t>(kCGImageAlphaPremultipliedFirst) |
                              static_cast<uint32_t>(kCGBitmapByteOrder32Host);
  CGContextRef context =
      CGBitmapContextCreate(image.bits(), static_cast<size_t>(pixels), static_cast<size_t>(pixels),
                            8, static_cast<size_t>(image.bytesPerLine()), space, layout);
  CGColorSpaceRelease(space);
  if (!context) return {};

  [NSGraphicsContext saveGraphicsState];
  [NSGraphicsContext setCurrentContext:[NSGraphicsContext graphicsContextWithCGContext:context
                                                                               flipped:NO]];
  // The symbol keeps its proportions, centred in the square.
  const CGFloat scale = pixels / std::max(size.width, size.height);
  const CGFloat width = size.width * scale;
  const CGFloat height = size.height * scale;
  [symbol drawInRect:NSMakeRect((pixels - width) / 2, (pixels - height) / 2, width, height)];
  [NSGraphicsContext restoreGraphicsState];
  CGContextRelease(context);
  return image;
}

}  // namespace zev
