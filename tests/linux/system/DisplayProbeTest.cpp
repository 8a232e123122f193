#include <gmock/gmock.h>

#include "linux/system/DisplayProbe.h"
#include "support/ChildProcess.h"
#include "support/RecordingLog.h"
#include "support/SilentPort.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

TEST(DisplayProbe, TakesTheFirstPlatformThatOpens) {
  using namespace std::string_literals;
  const test::TemporaryDirectory home;
  // One entry for any display: family, address, number, name and cookie, each after its length.
  const std::string authority = home.write("authority",
                                           "\xff\xff\0\0\0\0\0\x12MIT-MAGIC-COOKIE-1\0\x10"
                                           "0123456789abcdef"s);
  test::ChildProcess server({MARIGOLD_XVFB, "-displayfd", "1", "-auth", authority});
  const std::string display = ":" + server.outputLine("").value_or("");
  const test::SilentPort port;  // those of X servers are counted from 6000
  const std::string silent = "127.0.0.1:" + std::to_string(port.number() - 6000);

  struct Row {
    Environment environment;
    std::optional<std::string> usable;
    std::vector<std::string> says;
    double patience = 20;
  };
  for (const Row& row : {
           Row{{}, std::nullopt, {}},
           Row{{{"WAYLAND_DISPLAY", "dead"}, {"DISPLAY", "dead"}},
               std::nullopt,
               {"display: wayland dead cannot be opened", "display: xcb dead cannot be opened"}},
           Row{{{"WAYLAND_DISPLAY", "dead"}, {"DISPLAY", display}, {"XAUTHORITY", authority}},
               "xcb",
               {"display: wayland dead cannot be opened"}},
           Row{{{"DISPLAY", display}},
               std::nullopt,
               {"display: xcb " + display + " cannot be opened"}},
           Row{{{"QT_QPA_PLATFORM", "offscreen"}, {"DISPLAY", "dead"}}, "offscreen", {}},
           Row{{{"QT_QPA_PLATFORM", ";xcb:a;nonsense;minimal:b;vnc"}, {"DISPLAY", "dead"}},
               "minimal:b;vnc",
               {"display: xcb:a dead cannot be opened", "display: nonsense cannot be opened"}},
           Row{{{"DISPLAY", silent}},
               std::nullopt,
               {"display: xcb " + silent + " does not answer"},
               0.3},
       }) {
    test::RecordingLog log;
    EXPECT_EQ(usablePlatforms(row.environment, log, [] {}, Seconds{row.patience}), row.usable);
    EXPECT_EQ(log.lines, row.says);
  }
}

}  // namespace
}  // namespace marigold
