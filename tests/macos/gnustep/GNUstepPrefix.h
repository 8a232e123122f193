// Included before every Objective-C++ source that is compiled against our own Mac declarations and
// run on GNUstep.
#pragma once
#ifdef __OBJC__
#include <Foundation/Foundation.h>
// The compiler would make CFString structures here, which nothing on Linux knows.
#undef CFSTR
#define CFSTR(text) ((__bridge CFStringRef) @"" text)
@interface NSConstantString : NSString
@end
#endif
