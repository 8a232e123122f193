#include "macos/MacSurroundings.h"

#include <string>

#import <Foundation/Foundation.h>

#include "macos/MacText.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

// Empty when the system has none.
std::string directory(NSSearchPathDirectory which) {
  NSURL* const found =
      [NSFileManager.defaultManager URLsForDirectory:which inDomains:NSUserDomainMask].firstObject;
  return withoutTrailingSlashes(fromMac(found.path));
}

}  // namespace

Surroundings macSurroundings() {
  @autoreleasepool {
    const std::string library = directory(NSLibraryDirectory);
    Surroundings surroundings{
        .home = withoutTrailingSlashes(fromMac(NSHomeDirectory())),
        .applicationSupport = directory(NSApplicationSupportDirectory),
        .temporary = withoutTrailingSlashes(fromMac(NSTemporaryDirectory())),
        .caches = directory(NSCachesDirectory),
        .httpStorages = library + "/HTTPStorages",
        .configuration = library + "/Preferences",
        .bundleIdentifier = fromMac(NSBundle.mainBundle.bundleIdentifier),
        .environment = {},
    };
    if (surroundings.bundleIdentifier.empty()) {
      surroundings.bundleIdentifier = builtInBundleIdentifier();
    }
    for (NSString* name in @[ @"MARIGOLD_CACHE_DIR", @"CODEX_HOME", @"GROK_HOME" ]) {
      NSString* const value = NSProcessInfo.processInfo.environment[name];
      if (value.length > 0) {
        surroundings.environment.emplace(fromMac(name), fromMac(value));
      }
    }
    return surroundings;
  }
}

}  // namespace marigold
