#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

// One application for all tests: a process has no second one.
int main(int argc, char** argv) {
  @autoreleasepool {
    testing::InitGoogleTest(&argc, argv);
    [[NSApplication sharedApplication] finishLaunching];
    return RUN_ALL_TESTS();
  }
}
