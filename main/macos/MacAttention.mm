#include "macos/MacAttention.h"

#include <utility>

#import <AppKit/AppKit.h>

#include "base/Lifetime.h"

namespace marigold {

namespace {

class Registration final : public AttentionObserver {
 public:
  Registration(NSNotificationCenter* center, NSArray<NSNotificationName>* names,
               std::function<void()> callback)
      : center_(center) {
    // One that is on its way to the main thread may come after the end.
    const auto guarded = lifetime_.guard(std::move(callback));
    for (NSNotificationName name in names) {
      [tokens_ addObject:[center_ addObserverForName:name
                                              object:nil
                                               queue:NSOperationQueue.mainQueue
                                          usingBlock:^(NSNotification*) {
                                            const auto call = guarded;  // it may end this
                                            call();
                                          }]];
    }
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration() override {
    for (const id token in tokens_) {
      [center_ removeObserver:token];
    }
  }

 private:
  NSNotificationCenter* const center_;
  NSMutableArray* const tokens_ = [NSMutableArray array];
  Lifetime lifetime_;
};

}  // namespace

std::unique_ptr<AttentionObserver> MacAttention::observe(AttentionEvent event,
                                                         std::function<void()> callback) {
  NSNotificationCenter* center = NSWorkspace.sharedWorkspace.notificationCenter;
  NSArray<NSNotificationName>* names = @[];
  switch (event) {
    case AttentionEvent::wake:
      names = @[ NSWorkspaceDidWakeNotification ];
      break;
    case AttentionEvent::screenWake:
      names = @[ NSWorkspaceScreensDidWakeNotification ];
      break;
    case AttentionEvent::spaceChange:
      names = @[ NSWorkspaceActiveSpaceDidChangeNotification ];
      break;
    case AttentionEvent::clockChange:
      center = NSNotificationCenter.defaultCenter;
      names = @[ NSSystemClockDidChangeNotification, NSSystemTimeZoneDidChangeNotification ];
      break;
  }
  return std::make_unique<Registration>(center, names, std::move(callback));
}

}  // namespace marigold
