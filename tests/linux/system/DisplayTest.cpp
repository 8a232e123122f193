#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusReply>
#include <QtGui/QGuiApplication>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include "linux/system/DisplayProbe.h"
#include "linux/system/LinuxAttention.h"
#include "support/PrivateBus.h"
#include "support/SilentPort.h"
#include "support/SimplePorts.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

TEST(LinuxAttention, TellsOfAnotherDesktopOnX11) {
  int argc = 0;
  test::ChildProcess server({MARIGOLD_XVFB, "-displayfd", "1"});
  const std::string display = ":" + server.outputLine("").value_or("");
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> manager(
      xcb_connect(display.c_str(), nullptr), &xcb_disconnect);
  const auto say = [&](std::string_view property, std::uint32_t value) {
    xcb_connection_t* c = manager.get();
    auto* const atom = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(property.size()), property.data()),
        nullptr);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE,
                        xcb_setup_roots_iterator(xcb_get_setup(c)).data->root, atom->atom,
                        XCB_ATOM_CARDINAL, 32, 1, &value);
    xcb_flush(c);
    std::free(atom);  // NOLINT(*-no-malloc, *-owning-memory)
  };
  say("_NET_CURRENT_DESKTOP", 3);

  ::qputenv("QT_QPA_PLATFORM", "xcb");
  ::qputenv("DISPLAY", display.c_str());
  const QGuiApplication application(argc, nullptr);
  LinuxEventLoop loop;
  BusLink bus(loop, "", false);
  LinuxAttention attention(loop, bus, bus);
  int told = 0;
  const auto observer = attention.observe(AttentionEvent::spaceChange, [&] { ++told; });
  ASSERT_TRUE(observer);
  say("_NET_CURRENT_DESKTOP", 3);
  say("_NET_ACTIVE_WINDOW", 4);
  say("_NET_CURRENT_DESKTOP", 0);
  EXPECT_TRUE(test::eventually([&] { return told > 0; }));
  say("_NET_CURRENT_DESKTOP", 1);
  EXPECT_TRUE(test::eventually([&] { return told > 1; }));
  EXPECT_EQ(told, 2);
}

TEST(LinuxAttention, TellsWhenTheMachineOrTheScreenHasWoken) {
  int argc = 0;
  const QCoreApplication application(argc, nullptr);
  const test::TemporaryDirectory home;
  const test::PrivateBus session(home, "session");
  auto system = std::make_unique<test::PrivateBus>(home, "system");
  system->stop();
  std::filesystem::remove(home.path() + "/system");
  LinuxEventLoop loop;
  BusLink sessionLink(loop, session.address, true);
  BusLink systemLink(loop, system->address, false, MARIGOLD_PROGRAM);
  LinuxAttention attention(loop, sessionLink, systemLink);
  system->restart();
  bool found = false;
  const auto finding = systemLink.follow([&](const auto& /*bus*/) { found = true; });
  ASSERT_TRUE(test::eventually([&] {
    loop.dispatch();
    return found;
  })) << "a bus that comes late";
  std::string told;
  const auto wake = attention.observe(AttentionEvent::wake, [&] { told += "wake "; });
  auto screen = attention.observe(AttentionEvent::screenWake, [&] { told += "screen "; });
  // What is told of a signal that says so: first on one bus, then on the other.
  const auto toldOf = [&](const QString& path, const QString& interface, const QString& member,
                          bool begins) {
    told.clear();
    const auto roundTrip = [](const QDBusConnection& bus) {
      EXPECT_TRUE(bus.interface()->registeredServiceNames().isValid());
    };
    for (const auto& [where, link] :
         {std::pair<const test::PrivateBus*, BusLink*>(&session, &sessionLink),
          {system.get(), &systemLink}}) {
      (void)link->follow(roundTrip);  // it listens
      QDBusConnection bus = where->connect("sender");
      bus.registerService("org.freedesktop.login1");
      bus.send(QDBusMessage::createSignal(path, interface, member) << begins);
      roundTrip(bus);
      (void)link->follow(roundTrip);
      QCoreApplication::processEvents();
      told += "| ";
      QDBusConnection::disconnectFromBus("sender");
    }
    return told;
  };
  for (const bool begins : {true, false}) {
    for (const QString desktop : {"freedesktop", "gnome", "cinnamon", "mate", "xfce"}) {
      EXPECT_EQ(toldOf("/S", "org." + desktop + ".ScreenSaver", "ActiveChanged", begins),
                begins ? "| | " : "screen | | ");
    }
    EXPECT_EQ(toldOf("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep",
                     begins),
              begins ? "| | " : "| wake | ");
  }
  screen.reset();
  EXPECT_EQ(toldOf("/S", "org.gnome.ScreenSaver", "ActiveChanged", false), "| | ");
}

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
