// A warning under the macOS build's flags fails the check.
// expect: -Wunused-variable
#import <Foundation/Foundation.h>
void idle() { NSString* unused = @"x"; }
