// The classes of blocks. Compiled without ARC.
#import <Foundation/Foundation.h>
@interface MGMallocBlock : NSObject
@end
@interface MGStackBlock : NSObject
@end
@interface MGGlobalBlock : NSObject
@end
#define BLOCK_METHODS                    \
  -(id)retain {                          \
    return (id)_Block_copy((void*)self); \
  }                                      \
  -(oneway void)release {                \
    _Block_release((void*)self);         \
  }                                      \
  -(id)copyWithZone : (NSZone*)zone {    \
    return (id)_Block_copy((void*)self); \
  }                                      \
  -(id)copy {                            \
    return (id)_Block_copy((void*)self); \
  }
@implementation MGMallocBlock
BLOCK_METHODS
@end
@implementation MGStackBlock
BLOCK_METHODS
@end
@implementation MGGlobalBlock
BLOCK_METHODS
@end
__asm__(".globl _NSConcreteMallocBlock\n.set _NSConcreteMallocBlock, _OBJC_CLASS_MGMallocBlock\n"
        ".globl _NSConcreteStackBlock\n.set _NSConcreteStackBlock, _OBJC_CLASS_MGStackBlock\n"
        ".globl _NSConcreteGlobalBlock\n.set _NSConcreteGlobalBlock, _OBJC_CLASS_MGGlobalBlock\n");

// An exception of GNUstep's would reach a test without its words.
#include <dlfcn.h>
extern "C" void objc_exception_throw(id exception) {
  NSLog(@"thrown: %@", exception);
  static const auto real = (void (*)(id))dlsym(RTLD_NEXT, "objc_exception_throw");
  real(exception);
  __builtin_unreachable();
}
