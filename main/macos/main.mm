#include <chrono>
#include <iostream>
#include <span>
#include <string>
#include <vector>

#import <AppKit/AppKit.h>

#include "MarigoldApp.h"
#include "app/CommandLine.h"
#include "base/ProcessStart.h"
#include "macos/EndingSignals.h"
#include "macos/MacApplication.h"
#include "macos/MacPainter.h"
#include "macos/MacPictures.h"
#include "macos/MacSurroundings.h"

using namespace marigold;

namespace {

std::vector<SelfCheck> selfChecks(const Surroundings& /*surroundings*/) {
  [NSApplication sharedApplication];  // for the fonts
  const MacTextMeasurer measurer;
  const FontStyle font{.monospacedDigits = true};
  bool same = true;
  for (const char* digit : {"1", "2", "3", "4", "5", "6", "7", "8", "9"}) {
    same = same && measurer.measure(digit, font).width == measurer.measure("0", font).width;
  }
  return {{.name = "the interface font's digits are all of one width", .holds = same}};
}

}  // namespace

int main(int argc, char** argv) {
  startProcess();
  @autoreleasepool {
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (const auto status = runOneShotMode(parseCommandLine(arguments), macSurroundings(),
                                           std::chrono::system_clock::now(), macPictures(),
                                           selfChecks, std::cout, std::cerr)) {
      return *status;
    }
    EndingSignals::block();
    [NSApplication sharedApplication];
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
    const MacApplication application;
    [NSApp run];  // leaves by itself
  }
}
