// Mixing CGImageAlphaInfo with the CGBitmapInfo constants is deprecated C++20.
// expect: -Wdeprecated-anon-enum-enum-conversion
#import <AppKit/AppKit.h>
CGBitmapInfo layout() { return kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Host; }
