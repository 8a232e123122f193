#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include "macos/MacEventLoop.h"
#include "support/EventLoopContract.h"

namespace marigold {
namespace {

struct Mac {
  MacEventLoop loop;
  void turn() { pass(Seconds{0.05}); }
  void pass(Seconds length) {
    @autoreleasepool {
      [NSRunLoop.mainRunLoop runUntilDate:[NSDate dateWithTimeIntervalSinceNow:length.count()]];
    }
  }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Mac, EventLoopContract, Mac);

}  // namespace
}  // namespace marigold
