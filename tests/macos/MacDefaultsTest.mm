#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include "base/BoundedProcessRun.h"
#include "macos/FSEventsSource.h"
#include "macos/MacDefaults.h"
#include "macos/MacEventLoop.h"
#include "macos/MacSurroundings.h"
#include "macos/MacText.h"
#include "model/DiskCache.h"
#include "support/DefaultsContract.h"
#include "support/EventStreamContract.h"

namespace marigold {
namespace {

TEST(MacDefaults, KeepsFlagsAndTextsApartUnderExactKeys) {
  MacDefaults defaults;
  test::keepFlagsAndTextsApartUnderExactKeys(defaults);
  [NSUserDefaults.standardUserDefaults setInteger:1 forKey:@"number"];
  EXPECT_EQ(defaults.value("number"), DefaultsValue()) << "a number is no flag";
}

// As another program: the system's tool for it.
void storeAsOther(const std::vector<std::string>& arguments) {
  std::map<std::string, std::string> environment;
  for (NSString* name in NSProcessInfo.processInfo.environment) {
    environment[fromMac(name)] = fromMac(NSProcessInfo.processInfo.environment[name]);
  }
  const auto result = BoundedProcessRun::execute({.executable = "/usr/bin/defaults",
                                                  .name = {},
                                                  .arguments = arguments,
                                                  .environment = environment,
                                                  .stdoutCap = 1000,
                                                  .timeout = Seconds{60},
                                                  .input = {}});
  EXPECT_EQ(result.status, 0);
}

TEST(MacDefaults, TellsOfWhatOthersStore) {
  const std::string domain = fromMac(MacDefaults::ownDomain());
  MacEventLoop loop;
  FSEventsSource events("app.marigold.Marigold.fsevents");
  MacDefaults defaults;
  defaults.apply({{"b", false}, {"c", true}});
  storeAsOther({"write", domain, "visible.codex", "early"});
  int told = 0;
  defaults.onChange = [&] { ++told; };
  defaults.follow(loop, events, macSurroundings().configuration);
  const auto turnUntil = [&](auto holds) {
    NSDate* const limit = [NSDate dateWithTimeIntervalSinceNow:30];
    while (!holds() && limit.timeIntervalSinceNow > 0) {
      @autoreleasepool {
        [NSRunLoop.mainRunLoop runUntilDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
      }
    }
    EXPECT_TRUE(holds());
  };
  const auto storesOther = [&](const std::string& value) {
    storeAsOther({"write", domain, "visible.codex", value});
    turnUntil([&] { return defaults.text("visible.codex") == value && told == 1; });
    told = 0;
  };
  turnUntil([&] { return told == 1; });  // what was stored before it followed
  told = 0;
  storesOther("first");
  defaults.apply({{"b", true}, {"c", {}}});
  for (const char* value : {"passing", "first"}) {  // another file, but no other value
    storeAsOther({"write", domain, "visible.codex", value});
  }
  [NSRunLoop.mainRunLoop runUntilDate:[NSDate dateWithTimeIntervalSinceNow:0.6]];
  EXPECT_EQ(told, 0);
  storesOther("second");
  storeAsOther({"delete", domain, "visible.codex"});
  turnUntil([&] { return told == 1; });
  EXPECT_EQ(defaults.text("visible.codex"), std::nullopt);
  EXPECT_EQ(defaults.flag("b"), true);
  storeAsOther({"delete", domain});  // leaves nothing behind
}

TEST(MacSurroundings, ArePlacesOfTheUser) {
  const Surroundings found = macSurroundings();
  for (const std::string& place : {found.applicationSupport, found.caches, found.httpStorages,
                                   found.configuration, found.temporary}) {
    EXPECT_TRUE(place.starts_with('/') && !place.ends_with('/')) << place;
    EXPECT_TRUE(place == found.temporary || place.starts_with(found.home + "/Library/")) << place;
  }
  EXPECT_FALSE(found.home.ends_with('/'));
  EXPECT_EQ(
      std::set({found.applicationSupport, found.caches, found.httpStorages, found.configuration})
          .size(),
      4U);
  EXPECT_EQ(found.bundleIdentifier, builtInBundleIdentifier());
}

TEST(FSEventsSource, TellsWhatHappensUntilItsEnd) {
  FSEventsSource source("app.marigold.Marigold.fsevents");
  test::tellsWhatHappensUntilItsEnd(source);
}

}  // namespace
}  // namespace marigold
