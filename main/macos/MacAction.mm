#import "macos/MacAction.h"

#include <utility>

@implementation MGAction
- (instancetype)initWithWork:(std::function<void()>)work {
  self = [super init];
  if (self != nil) {
    _work = std::move(work);
  }
  return self;
}

- (void)perform:(id)sender {
  (void)sender;
  // The work may replace itself.
  if (const auto work = _work) {
    work();
  }
}
@end
