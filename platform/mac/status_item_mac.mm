// The status item on macOS: an NSStatusItem of variable length in the system
// status bar, with the dot as the button's image (not a template, so the menu
// bar keeps its colour) before the " 3/4" title. Compile-checked on Linux
// against GNUstep (tests/macos); never run there.
#import <AppKit/AppKit.h>

#include <QImage>

#include "app/ports/status_item.h"

// Forwards the button's action to a C++ callback.
@interface ZEVStatusItemTarget : NSObject
@property(nonatomic, copy) void (^onClick)(void);
- (void)clicked:(id)sender;
@end

@implementation ZEVStatusItemTarget
- (void)clicked:(id)sender {
  if (self.onClick) self.onClick();
}
@end

namespace zev {
namespace {

class MacStatusItem : public StatusItem {
 public:
  MacStatusItem()
      : m_item([NSStatusBar.systemStatusBar statusItemWithLength:NSVariableStatusItemLength]),
        m_target([[ZEVStatusItemTarget alloc] init]) {
    if (NSStatusBarButton* button = m_item.button) {
      button.imagePosition = NSImageLeading;
      button.target = m_target;
      button.action = @selector(clicked:);
    }
  }
  ~MacStatusItem() override { [NSStatusBar.systemStatusBar removeStatusItem:m_item]; }

  bool hasButton() const override { return m_item.button != nil; }

  void setImage(const QImage& image) override {
    CGImageRef cgImage = image.toCGImage();
    if (!cgImage) return;
    const QSizeF points = image.deviceIndependentSize();
    NSImage* picture =
        [[NSImage alloc] initWithCGImage:cgImage size:NSMakeSize(points.width(), points.height())];
    CGImageRelease(cgImage);
    // `template` is a C++ keyword: the property is reached through its setter.
    [picture setTemplate:NO];
    m_item.button.image = picture;
  }

  void setTitle(const QString& title) override { m_item.button.title = title.toNSString(); }

  void setToolTip(const QString& toolTip) override { m_item.button.toolTip = toolTip.toNSString(); }

  void setClickHandler(std::function<void()> onClick) override {
    auto shared = std::make_shared<std::function<void()>>(std::move(onClick));
    m_target.onClick = ^{
      if (*shared) (*shared)();
    };
  }

  std::optional<QRect> anchorRect() const override {
    NSStatusBarButton* button = m_item.button;
    NSWindow* window = button.window;
    // Screen coordinates are relative to the primary screen, the first one.
    NSScreen* primary = NSScreen.screens.firstObject;
    if (!window || !primary) return std::nullopt;
    const NSRect frame = [window convertRectToScreen:[button convertRect:button.bounds toView:nil]];
    // Cocoa counts y upwards from the bottom of the primary screen; Qt downwards from its top.
    const CGFloat top = NSMaxY(primary.frame);
    return QRect(int(NSMinX(frame)), int(top - NSMaxY(frame)), int(NSWidth(frame)),
                 int(NSHeight(frame)));
  }

 private:
  NSStatusItem* m_item;
  ZEVStatusItemTarget* m_target;
};

}  // namespace

std::unique_ptr<StatusItem> makePlatformStatusItem() { return std::make_unique<MacStatusItem>(); }

}  // namespace zev
