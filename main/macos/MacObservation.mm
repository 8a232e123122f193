#include "macos/MacObservation.h"

#include <utility>

#import "macos/MacAction.h"

/// Told of a property's changes.
@interface MGKeyPathObserver : MGAction
@end

@implementation MGKeyPathObserver
- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)change
                       context:(void*)context {
  (void)keyPath, (void)object, (void)change, (void)context;
  [self perform:nil];
}
@end

namespace marigold {

MacObservation::MacObservation(NSObject* object, NSString* keyPath, std::function<void()> changed)
    : object_(object),
      keyPath_(keyPath),
      observer_([[MGKeyPathObserver alloc] initWithWork:std::move(changed)]) {
  [object_ addObserver:observer_ forKeyPath:keyPath_ options:0 context:nullptr];
}

MacObservation::MacObservation(NSNotificationCenter* center, NSNotificationName name,
                               std::function<void()> notified)
    : center_(center),
      observer_([center addObserverForName:name
                                    object:nil
                                     queue:nil
                                usingBlock:^(NSNotification*) {
                                  const auto call = notified;  // it may end this
                                  call();
                                }]) {}

MacObservation::~MacObservation() {
  [object_ removeObserver:observer_ forKeyPath:keyPath_];
  [center_ removeObserver:observer_];
}

}  // namespace marigold
