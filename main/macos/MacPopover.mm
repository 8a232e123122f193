#include "macos/MacPopover.h"

#include <algorithm>
#include <optional>

#import <AppKit/AppKit.h>

#include "macos/MacObservation.h"
#include "macos/MacPanel.h"

/// Tells when the popover is gone.
@interface MGPopoverDelegate : NSObject <NSPopoverDelegate>
@property(nonatomic) std::function<void()> closed;
@end

@implementation MGPopoverDelegate
- (void)popoverDidClose:(NSNotification*)note {
  (void)note;
  if (_closed) {
    _closed();
  }
}
@end

namespace marigold {

class MacPopover::Window {
 public:
  Window(MacPopover& owner, const MacStatusBar& bar) : owner_(owner), bar_(bar) {
    panel_.onCancel = [this] { close(); };
    panel_.onHeightChange = [this] { fit(); };
    delegate_.closed = [this] { closed(); };
    NSViewController* const controller = [[NSViewController alloc] initWithNibName:nil bundle:nil];
    controller.view = panel_.view();
    popover_.behavior = NSPopoverBehaviorApplicationDefined;
    popover_.contentViewController = controller;
    popover_.delegate = delegate_;
  }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() {
    popover_.delegate = nil;
    removeOutsideClickMonitor();
    [popover_ close];
  }

  void setContent(const PopoverContent& content) {
    panel_.take(content);
    popover_.animates = !content.theme.reduceMotion;
    popover_.appearance = panel_.view().appearance;
    fit();
  }

  void open() {
    NSStatusBarButton* const button = bar_.button();
    if (button.window == nil) {
      return;
    }
    fit();
    panel_.scrollToTop();
    [popover_ showRelativeToRect:button.bounds ofView:button preferredEdge:NSRectEdgeMinY];
    [panel_.view().window makeKeyWindow];
    [panel_.view().window makeFirstResponder:panel_.view()];
    installOutsideClickMonitor();
  }

  void close() { [popover_ close]; }
  [[nodiscard]] bool isShown() const { return popover_.shown != NO; }

 private:
  // Clicks that go to other programs, and another program's coming to the front.
  void installOutsideClickMonitor() {
    if (clickMonitor_ == nil) {
      clickMonitor_ = [NSEvent
          addGlobalMonitorForEventsMatchingMask:NSEventMaskLeftMouseDown | NSEventMaskRightMouseDown
                                        handler:^(NSEvent*) {
                                          close();
                                        }];
      resigned_.emplace(NSNotificationCenter.defaultCenter,
                        NSApplicationDidResignActiveNotification, [this] { close(); });
    }
  }

  void removeOutsideClickMonitor() {
    if (clickMonitor_ != nil) {
      [NSEvent removeMonitor:clickMonitor_];
      clickMonitor_ = nil;
      resigned_.reset();
    }
  }

  void closed() {
    removeOutsideClickMonitor();
    if (owner_.onClosed) {
      owner_.onClosed();
    }
  }

  // As tall as the content, as far as the screen goes.
  void fit() {
    constexpr double around = 40;
    NSScreen* const screen = bar_.button().window.screen;
    const double room = screen == nil ? panel_.height() : NSHeight(screen.visibleFrame) - around;
    const double height = std::min(panel_.height(), room);
    panel_.setHeight(height);
    popover_.contentSize = NSMakeSize(NSWidth(panel_.view().frame), height);
  }

  MacPopover& owner_;
  const MacStatusBar& bar_;
  MacPanel panel_;
  NSPopover* const popover_ = [[NSPopover alloc] init];
  MGPopoverDelegate* const delegate_ = [[MGPopoverDelegate alloc] init];
  id clickMonitor_ = nil;
  std::optional<MacObservation> resigned_;
};

MacPopover::MacPopover(const MacStatusBar& bar) : window_(std::make_unique<Window>(*this, bar)) {}

MacPopover::~MacPopover() = default;

void MacPopover::setContent(const PopoverContent& content) {
  window_->setContent(content);
}

void MacPopover::open() {
  window_->open();
}

void MacPopover::close() {
  window_->close();
}

bool MacPopover::isShown() const {
  return window_->isShown();
}

}  // namespace marigold
