#include <memory>
#include <string_view>

#include <QtGui/QGuiApplication>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include "linux/system/LinuxAttention.h"
#include "support/ChildProcess.h"
#include "support/Eventually.h"

namespace marigold {
namespace {

TEST(LinuxAttention, TellsOfAnotherDesktopOnX11Only) {
  int argc = 0;
  {
    const QCoreApplication application(argc, nullptr);
    LinuxEventLoop loop;
    BusLink bus(loop, "", false);
    LinuxAttention attention(loop, bus, bus);
    EXPECT_FALSE(attention.observe(AttentionEvent::spaceChange, [] {}));
  }
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

}  // namespace
}  // namespace marigold
