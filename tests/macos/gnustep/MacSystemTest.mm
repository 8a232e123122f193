// Notifications, the log, the login item, the updater and what a stream of file events is made of.
#include <memory>
#include <string>
#include <thread>
#include <vector>

#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>
#include <gmock/gmock.h>
#import <os/log.h>

#include "macos/FSEventsSource.h"
#include "macos/MacAttention.h"
#include "macos/MacLocalTimeText.h"
#include "macos/MacLog.h"
#include "macos/MacLoginItem.h"
#include "macos/MacText.h"
#include "macos/SparkleUpdater.h"
#include "macos/gnustep/FakeFSEvents.h"
#include "macos/gnustep/FakeSystem.h"
#include "support/LocalTimeContract.h"
#include "support/LoginItemContract.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

void turn() {
  [NSRunLoop.mainRunLoop runUntilDate:[NSDate dateWithTimeIntervalSinceNow:0.05]];
}

TEST(MacAttention, TellsEachOnceOnTheMainThreadUntilItsEnd) {
  MacAttention attention;
  const std::thread::id home = std::this_thread::get_id();
  std::string heard;
  const auto observe = [&](AttentionEvent event, char name) {
    return attention.observe(
        event, [&heard, home, name] { heard += std::this_thread::get_id() == home ? name : '!'; });
  };
  auto wake = observe(AttentionEvent::wake, 'w');
  const auto screen = observe(AttentionEvent::screenWake, 's');
  const auto space = observe(AttentionEvent::spaceChange, 'd');
  auto clock = observe(AttentionEvent::clockChange, 'c');
  const auto post = [](NSNotificationCenter* center, NSNotificationName name) {
    std::thread([&] {
      @autoreleasepool {
        [center postNotificationName:name object:nil];
      }
    }).join();
  };
  NSNotificationCenter* const workspace = NSWorkspace.sharedWorkspace.notificationCenter;
  NSNotificationCenter* const usual = NSNotificationCenter.defaultCenter;
  for (NSNotificationName name in @[
         NSWorkspaceDidWakeNotification, NSWorkspaceScreensDidWakeNotification,
         NSWorkspaceActiveSpaceDidChangeNotification
       ]) {
    post(workspace, name);
    post(usual, name);
  }
  post(usual, NSSystemClockDidChangeNotification);
  post(usual, NSSystemTimeZoneDidChangeNotification);
  EXPECT_EQ(heard, "");
  turn();
  EXPECT_EQ(heard, "wsdcc");
  post(usual, NSSystemClockDidChangeNotification);
  clock.reset();
  wake.reset();
  post(workspace, NSWorkspaceDidWakeNotification);
  turn();
  EXPECT_EQ(heard, "wsdcc") << "none after the end, not even one under way";
  std::unique_ptr<AttentionObserver> once;
  once = attention.observe(AttentionEvent::wake, [&] {
    once.reset();
    heard += 'o';
  });
  post(workspace, NSWorkspaceDidWakeNotification);
  post(workspace, NSWorkspaceDidWakeNotification);
  turn();
  EXPECT_EQ(heard, "wsdcco") << "one that ends itself";
}

TEST(MacLog, WritesPublicLinesAtTheirLevels) {
  MacLog log("app.marigold.Marigold");
  log.note("began 100% %s");
  log.error("failed");
  EXPECT_THAT(
      fake::logged,
      testing::ElementsAre(
          testing::Pair(OS_LOG_TYPE_DEFAULT, "app.marigold.Marigold/lifecycle: began 100% %s"),
          testing::Pair(OS_LOG_TYPE_ERROR, "app.marigold.Marigold/lifecycle: failed")));
}

TEST(MacLoginItem, IsWhatTheSystemSays) {
  using Status = LoginItem::Status;
  MacLoginItem item;
  for (const auto& [code, status] :
       {std::pair(SMAppServiceStatusNotRegistered, Status::notRegistered),
        {SMAppServiceStatusEnabled, Status::enabled},
        {SMAppServiceStatusRequiresApproval, Status::requiresApproval},
        {SMAppServiceStatusNotFound, Status::notRegistered}}) {
    fake::serviceStatus = code;
    EXPECT_EQ(item.status(), status) << code;
  }
  fake::serviceStatus = SMAppServiceStatusNotRegistered;
  test::isThereFromRegisteringToUnregistering(item);
  fake::serviceError = kSMErrorLaunchDeniedByUser;
  EXPECT_THAT(item.registerProgram().error(), testing::Not(testing::IsEmpty()));
  EXPECT_THAT(item.unregisterProgram().error(), testing::Not(testing::IsEmpty()));
  fake::serviceError = 0;
  item.openSystemSettings();
  EXPECT_EQ(fake::settingsOpened, 1);
}

TEST(MacLocalTimeText, FollowsLocaleAndZone) {
  constexpr Date friday{Seconds{1'781'291'600}};  // 2026-06-12 19:13:20 UTC
  for (const auto& [locale, text] : test::fridayAfternoons) {
    const MacLocalTimeText local([[NSLocale alloc] initWithLocaleIdentifier:toMac(locale)]);
    EXPECT_EQ(local.weekdayAndTime(friday), text);
  }
  const MacLocalTimeText local;
  EXPECT_FALSE(local.weekdayAndTime(distantFuture).empty());
  const std::string before = local.weekdayAndTime(friday);
  NSTimeZone* const zone = NSTimeZone.localTimeZone;
  [NSTimeZone setDefaultTimeZone:[NSTimeZone timeZoneWithName:@"Asia/Tokyo"]];
  EXPECT_NE(local.weekdayAndTime(friday), before);
  [NSTimeZone setDefaultTimeZone:[NSTimeZone timeZoneWithName:zone.name]];
}

TEST(SparkleUpdater, OffersNothingWithoutTheFramework) {
  const auto updater = sparkleUpdater();
  EXPECT_FALSE(updater->canCheckForUpdates());
  updater->checkForUpdates();
}

TEST(FSEventsSource, MakesStreamsAsTheyMustBe) {
  const test::TemporaryDirectory place;
  FSEventsSource source("app.marigold.Marigold.fsevents");
  fake::queueLabels.clear();
  auto stream = source.open(place.path(), Seconds{0.5}, [](const auto&) {});
  EXPECT_TRUE(stream);
  stream.reset();
  EXPECT_EQ(fake::streamFlags, 0x17);
  EXPECT_EQ(fake::streamLatency, 0.5);
  EXPECT_EQ(fake::streamCalls, "create schedule start stop invalidate sync release");
  fake::streamsStart = false;
  EXPECT_FALSE(source.open(place.path(), Seconds{0.5}, [](const auto&) {}));
  EXPECT_EQ(fake::streamCalls, "create schedule start invalidate sync release");
  fake::streamsStart = true;
  EXPECT_THAT(fake::queueLabels, testing::ElementsAre("app.marigold.Marigold.fsevents",
                                                      "app.marigold.Marigold.fsevents"));
}

}  // namespace
}  // namespace marigold
