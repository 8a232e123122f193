#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusReply>
#include <QtGui/QGuiApplication>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include "linux/system/LinuxAttention.h"
#include "support/Eventually.h"
#include "support/PrivateBus.h"

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

}  // namespace
}  // namespace marigold
