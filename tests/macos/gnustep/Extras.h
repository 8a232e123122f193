#pragma once
#import <AppKit/AppKit.h>

/// Values that belong to an object: the runtime has no associated objects.
inline NSMutableDictionary* extras(id object) {
  static NSMapTable* table =
      [[NSMapTable alloc] initWithKeyOptions:NSPointerFunctionsObjectPointerPersonality |
                                             NSPointerFunctionsZeroingWeakMemory
                                valueOptions:NSPointerFunctionsStrongMemory
                                    capacity:16];
  NSMutableDictionary* found = [table objectForKey:object];
  if (found == nil) {
    [table setObject:found = [NSMutableDictionary dictionary] forKey:object];
  }
  return found;
}
