// QImage::toCGImage is declared as on a Mac: its result is a CGImageRef.
// expect: rvalue of type 'CGImageRef'
#import <AppKit/AppKit.h>
#include <QImage>
NSImage* picture(const QImage& image) { return image.toCGImage(); }
