#pragma once

#include <functional>

#import <Foundation/Foundation.h>

namespace marigold {

/// Calls a function after every change of an object's property, or after each notification, while
/// it lives. Not movable: the function may refer to its owner.
class MacObservation final {
 public:
  MacObservation(NSObject* object, NSString* keyPath, std::function<void()> changed);
  MacObservation(NSNotificationCenter* center, NSNotificationName name,
                 std::function<void()> notified);
  MacObservation(const MacObservation&) = delete;
  MacObservation& operator=(const MacObservation&) = delete;
  ~MacObservation();

 private:
  NSObject* object_ = nil;  // kept: it must not go before its observer
  NSString* keyPath_ = nil;
  NSNotificationCenter* center_ = nil;
  id observer_;
};

}  // namespace marigold
