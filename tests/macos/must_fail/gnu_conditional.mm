// `a ?: b` is a GNU extension the macOS build's -Wpedantic rejects.
// expect: -Wgnu-conditional-omitted-operand
#import <AppKit/AppKit.h>
NSScreen* screenOf(NSWindow* window) { return window.screen ?: NSScreen.mainScreen; }
