#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "macos/MacApplication.h"
#include "macos/MacText.h"
#include "macos/gnustep/FakeSystem.h"
#include "macos/gnustep/Program.h"
#include "macos/gnustep/User.h"
#include "support/CodexHome.h"

namespace marigold {
namespace {

using test::eventually;
using test::Program;

TEST(MacApplication, LivesFromLaunchToEnd) {
  const std::string home = fromMac(NSHomeDirectory());
  fake::logged.clear();
  NSStatusBar* const bar = NSStatusBar.systemStatusBar;
  [bar refuseItems:1];
  auto application = std::make_unique<MacApplication>();
  const id<NSApplicationDelegate> delegate = NSApp.delegate;
  NSNotification* const note = static_cast<id>([[NSObject alloc] init]);
  [delegate applicationDidFinishLaunching:note];
  ASSERT_GE(fake::logged.size(), 2U);
  EXPECT_NE(fake::logged[0].second.find("launched (pid " + std::to_string(::getpid())),
            std::string::npos);
  EXPECT_NE(fake::logged[1].second.find("status item had no button; retrying shortly"),
            std::string::npos);
  EXPECT_EQ(fromMac([NSApp.mainMenu itemAtIndex:1].title), "Edit");
  ASSERT_TRUE(eventually([&] { return bar.items.count == 1 && bar.items[0].button.image != nil; }));
  NSStatusBarButton* const button = bar.items[0].button;
  EXPECT_EQ(fromMac(button.accessibilityLabel), "Marigold");

  // A line of the Codex tool's reaches the mark by the file system's events.
  const double now = [NSDate date].timeIntervalSince1970;
  const double idle = button.image.size.width;
  const auto writeCodex = [&](double percent) {
    const auto directory = std::filesystem::path(home) / ".codex/sessions/2026/01/01";
    std::filesystem::create_directories(directory);
    std::ofstream(directory / "rollout-2026-01-01T00-00-00-a.jsonl", std::ios::app)
        << test::recordLine(percent, now);
  };
  const auto shows = [&](const std::string& text) {
    return eventually([&] { return fromMac(button.toolTip).find(text) != std::string::npos; });
  };
  writeCodex(42);
  EXPECT_TRUE(shows("42%")) << fromMac(button.toolTip);
  EXPECT_GT(button.image.size.width, idle);
  writeCodex(43);
  EXPECT_TRUE(shows("43%")) << fromMac(button.toolTip);

  NSImage* const before = button.image;
  button.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
  EXPECT_TRUE(eventually([&] { return button.image != before; })) << "drawn for the bar as it is";

  [button performClick:nil];
  EXPECT_EQ(NSEvent.monitors, 1) << "the popover is open";
  [button performClick:nil];
  EXPECT_TRUE(eventually([] { return NSEvent.monitors == 0; })) << "the second click closes it";
  const auto titles = std::make_shared<std::string>();
  [NSStatusBar setMenuOpened:^(NSMenu* menu) {
    [menu update];
    for (NSMenuItem* entry in menu.itemArray) {
      *titles += fromMac(entry.title) + (entry.enabled ? "|" : "#|");
    }
  }];
  EXPECT_TRUE(test::xdotoolUntil(test::clickOn(button, 3), [&] { return !titles->empty(); }));
  [NSStatusBar setMenuOpened:nil];
  EXPECT_TRUE(titles->starts_with("Refresh Now|Show in Menu Bar|")) << *titles;
  EXPECT_NE(titles->find("|Check for Updates…#|About Marigold|"), std::string::npos) << *titles;
  EXPECT_TRUE(titles->ends_with("|Quit Marigold|")) << *titles;

  [delegate applicationWillTerminate:note];
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);  // else this process would leave, with success
  (void)std::signal(SIGALRM, SIG_DFL);
  EXPECT_EQ(bar.items.count, 0U);
  application.reset();
  EXPECT_EQ(NSApp.delegate, nil);
  fake::logged.clear();
}

TEST(MacProgram, EndsInOrderBySignalAndByItsMenu) {
  {
    Program program({MARIGOLD_PROGRAM});
    ASSERT_TRUE(program.says("launched (pid " + std::to_string(program.id()))) << program.output();
    ::kill(program.id(), SIGTERM);
    EXPECT_EQ(program.status(), 0) << program.output();
  }
  Program program({MARIGOLD_PROGRAM});
  ASSERT_TRUE(program.says("launched"));
  // A right click, and one on the menu's last row, which is there about.
  double row = 571;
  const auto quits = [&] {
    test::xdotool(test::clickAt(990, 10, 3) + "sleep 0.5 mousemove 960 560 sleep 0.2 " +
                  test::clickAt(960, row));
    row += 3;
    return program.status(4) == 0;
  };
  EXPECT_TRUE(eventually(quits, 60)) << program.output();
}

TEST(MacProgram, AnswersOneShotModes) {
  Program version({MARIGOLD_PROGRAM, "--version"});
  EXPECT_EQ(version.status(), 0);
  EXPECT_TRUE(version.output().starts_with("Marigold ")) << version.output();
  Program check({MARIGOLD_PROGRAM, "--selftest"});
  EXPECT_EQ(check.status(60), 0);
  EXPECT_NE(check.output().find("SELFTEST PASS"), std::string::npos) << check.output();
}

}  // namespace
}  // namespace marigold
