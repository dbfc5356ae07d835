// `template` is a C++ keyword: Objective-C++ cannot use it as a property name.
// expect: expected unqualified-id
#import <AppKit/AppKit.h>
void plain(NSImage* picture) { picture.template = NO; }
