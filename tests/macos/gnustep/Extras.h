#pragma once
#import <AppKit/AppKit.h>

extern "C" void objc_setAssociatedObject(id object, const void* key, id value,
                                         unsigned long policy);
extern "C" id objc_getAssociatedObject(id object, const void* key);

/// Values that belong to an object, for properties that a category adds.
inline NSMutableDictionary* extras(id object) {
  static char key;
  NSMutableDictionary* found = objc_getAssociatedObject(object, &key);
  if (found == nil) {
    objc_setAssociatedObject(object, &key, found = [NSMutableDictionary dictionary], 1);
  }
  return found;
}

/// A property that is kept and has no effect.
#define STORED(TYPE, getter, setter)                               \
  -(TYPE)getter {                                                  \
    return [extras(self) objectForKey:@ #getter];                  \
  }                                                                \
  -(void)setter : (TYPE)value {                                    \
    value != nil ? [extras(self) setObject:value forKey:@ #getter] \
                 : [extras(self) removeObjectForKey:@ #getter];    \
  }
#define STORED_FLAG(getter, setter)                                            \
  -(BOOL)getter {                                                              \
    return [[extras(self) objectForKey:@ #getter] boolValue];                  \
  }                                                                            \
  -(void)setter : (BOOL)value {                                                \
    [extras(self) setObject:[NSNumber numberWithBool:value] forKey:@ #getter]; \
  }
