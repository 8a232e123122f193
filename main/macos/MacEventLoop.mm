#include "macos/MacEventLoop.h"

#include <algorithm>
#include <atomic>
#include <ctime>

#import <AppKit/AppKit.h>

#import "macos/MacAction.h"

namespace marigold {

namespace {

NSArray<NSRunLoopMode>* modes() {
  return @[ NSDefaultRunLoopMode, NSEventTrackingRunLoopMode, NSModalPanelRunLoopMode ];
}

}  // namespace

struct MacEventLoop::RunLoop {
  // Turns the loop; outlives it while a message to it is on its way.
  MGAction* const turner = [[MGAction alloc] init];
  NSTimer* timer = nil;
  id wakeObserver = nil;
  std::optional<Instant> armed;  // what the timer is set to
  std::atomic<bool> awake = false;
};

MacEventLoop::MacEventLoop() : runLoop_(std::make_unique<RunLoop>()) {
  runLoop_->turner.work = [this] {
    @autoreleasepool {
      runLoop_->awake = false;  // before the queue is looked at: what is posted from here on wakes
      runReady();
    }
  };
  // Run-loop timers stand still while the machine sleeps; the clock goes on.
  runLoop_->wakeObserver = [NSWorkspace.sharedWorkspace.notificationCenter
      addObserverForName:NSWorkspaceDidWakeNotification
                  object:nil
                   queue:nil
              usingBlock:^(NSNotification*) {
                wakeAt(std::nullopt);
                wake();
              }];
}

MacEventLoop::~MacEventLoop() {
  close();
  [NSWorkspace.sharedWorkspace.notificationCenter removeObserver:runLoop_->wakeObserver];
  [runLoop_->timer invalidate];
  runLoop_->turner.work = {};
}

Instant MacEventLoop::now() const {
  timespec time = {};
  (void)::clock_gettime(CLOCK_MONOTONIC, &time);  // on the Mac it counts while the machine sleeps
  return Instant(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

Date MacEventLoop::date() const {
  return std::chrono::system_clock::now();
}

void MacEventLoop::wake() {
  if (!runLoop_->awake.exchange(true)) {
    @autoreleasepool {  // a worker's thread has none
      [runLoop_->turner performSelectorOnMainThread:@selector(perform:)
                                         withObject:nil
                                      waitUntilDone:NO
                                              modes:modes()];
    }
  }
}

void MacEventLoop::wakeAt(std::optional<Instant> when) {
  if (when == runLoop_->armed) {
    return;
  }
  runLoop_->armed = when;
  [runLoop_->timer invalidate];
  runLoop_->timer = nil;
  if (!when) {
    return;
  }
  const Seconds wait = *when - now();
  MGAction* const turner = runLoop_->turner;
  RunLoop* const runLoop = runLoop_.get();
  runLoop->timer = [NSTimer timerWithTimeInterval:std::max(wait.count(), 0.0)
                                          repeats:NO
                                            block:^(NSTimer*) {
                                              runLoop->armed.reset();
                                              [turner perform:nil];
                                            }];
  for (NSRunLoopMode mode in modes()) {
    [NSRunLoop.mainRunLoop addTimer:runLoop->timer forMode:mode];
  }
}

}  // namespace marigold
