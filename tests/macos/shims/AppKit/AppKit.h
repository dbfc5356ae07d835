// GNUstep's AppKit plus the AppKit API of the macOS 14 SDK that GNUstep 0.29
// lacks and the adapters use (only that), declared from Apple's AppKit
// reference. The availability attributes record the macOS version that
// introduced each (clang ignores them when compiling for Linux). Declarations
// only.
#ifndef ZEV_SHIM_APPKIT_H_
#define ZEV_SHIM_APPKIT_H_

#include_next <AppKit/AppKit.h>

#include <CoreGraphics/CoreGraphics.h>

#define ZEV_SHIM_MACOS(version) __attribute__((availability(macos, introduced = version)))

// NSApplicationActivationPolicy itself is in GNUstep (NSRunningApplication.h).
@interface NSApplication (ZEVShimMacOS14)
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy ZEV_SHIM_MACOS(10.6);
// Replaces activateIgnoringOtherApps:, deprecated from macOS 14.
- (void)activate ZEV_SHIM_MACOS(14.0);
@end

// NSCellImagePosition.imageLeading (macOS 10.12): the image before the title
// in the reading direction.
static const NSCellImagePosition NSImageLeading = static_cast<NSCellImagePosition>(7);

@interface NSStatusItem (ZEVShimMacOS14)
@property(readonly, strong) NSStatusBarButton* button ZEV_SHIM_MACOS(10.10);
@end

@interface NSImage (ZEVShimMacOS14)
- (instancetype)initWithCGImage:(CGImageRef)cgImage size:(NSSize)size ZEV_SHIM_MACOS(10.6);
// The SDK spells this `@property(getter=isTemplate) BOOL template;`, a name
// Objective-C++ can only reach through the accessors; the adapters set it.
- (void)setTemplate:(BOOL)isTemplate ZEV_SHIM_MACOS(10.5);
// SF Symbols.
+ (nullable NSImage*)imageWithSystemSymbolName:(NSString*)name
                      accessibilityDescription:(nullable NSString*)description
    ZEV_SHIM_MACOS(11.0);
@end

@interface NSWorkspace (ZEVShimMacOS14)
- (void)activateFileViewerSelectingURLs:(NSArray*)fileURLs ZEV_SHIM_MACOS(10.6);
@end

#endif  // ZEV_SHIM_APPKIT_H_
