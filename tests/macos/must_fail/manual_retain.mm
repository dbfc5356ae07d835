// The adapters are compiled with ARC: no retain/release by hand.
// expect: ARC forbids explicit message send
#import <Foundation/Foundation.h>
void keep(NSString* text) { [text retain]; }
