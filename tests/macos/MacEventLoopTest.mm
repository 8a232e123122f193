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
      // On a busy machine that ends with what is due by then still to come.
      for (int turn = 0; turn < 5; ++turn) {
        [NSRunLoop.mainRunLoop runUntilDate:[NSDate dateWithTimeIntervalSinceNow:0.001]];
      }
    }
  }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Mac, EventLoopContract, Mac);

}  // namespace
}  // namespace marigold
