// The built program on desktops without a screen to see: its item as a tray host reads it, in real
// bars, and in the forms for desktops without one.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusVariant>
#include <QtGui/QImage>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include "end-to-end/ProgramFixture.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

using test::ChildProcess;
using test::eventually;
using test::soon;

// Gauge colours of the zones as pixels.
constexpr std::uint32_t green = 0xFF47C78C;
constexpr std::uint32_t red = 0xFFEB574A;

template <class Reply>
std::unique_ptr<Reply, decltype(&std::free)> owned(Reply* reply) {
  return {reply, &std::free};
}

// How many pixels of a picture have exactly this value.
int countPixels(const QImage& picture, std::uint32_t color) {
  int found = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      found += picture.pixel(x, y) == color ? 1 : 0;
    }
  }
  return found;
}

// What an X server shows.
class Screen {
 public:
  explicit Screen(const std::string& display)
      : connection_(xcb_connect(display.c_str(), nullptr), &xcb_disconnect),
        screen_(xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data) {}

  // How many pixels of a rectangle have this colour.
  [[nodiscard]] int count(std::uint32_t color, int x, int y, int width, int height) const {
    const auto image = owned(xcb_get_image_reply(
        connection_.get(),
        xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, screen_->root,
                      static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                      static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), ~0U),
        nullptr));
    if (!image) {
      return 0;
    }
    const QImage shown(xcb_get_image_data(image.get()), width, height, QImage::Format_RGB32);
    return countPixels(shown, color | 0xFF000000U);
  }
  [[nodiscard]] int count(std::uint32_t color) const {
    return count(color, 0, 0, screen_->width_in_pixels, screen_->height_in_pixels);
  }
  [[nodiscard]] int width() const { return screen_->width_in_pixels; }

  // The sizes of the windows that are shown, icons of trays aside.
  [[nodiscard]] std::vector<std::pair<int, int>> windows() const {
    std::vector<std::pair<int, int>> sizes;
    const auto tree = owned(xcb_query_tree_reply(
        connection_.get(), xcb_query_tree(connection_.get(), screen_->root), nullptr));
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i) {
      const xcb_window_t window = *std::next(xcb_query_tree_children(tree.get()), i);
      const auto attributes = owned(xcb_get_window_attributes_reply(
          connection_.get(), xcb_get_window_attributes(connection_.get(), window), nullptr));
      const auto geometry = owned(xcb_get_geometry_reply(
          connection_.get(), xcb_get_geometry(connection_.get(), window), nullptr));
      if (attributes && geometry && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
          attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT) {
        sizes.emplace_back(geometry->width, geometry->height);
      }
    }
    return sizes;
  }

 private:
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
  xcb_screen_t* screen_;
};

// One icon as offered over the bus.
struct Pixmap {
  int width = 0;
  int height = 0;
  QByteArray bytes;

  // How many pixels have exactly this value, alpha in the top byte, as the bytes are to be read.
  [[nodiscard]] int count(std::uint32_t color) const {
    int found = 0;
    for (qsizetype i = 0; i + 3 < bytes.size(); i += 4) {
      const auto byte = [&](qsizetype at) {
        return static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[i + at]));
      };
      found += (byte(0) << 24U | byte(1) << 16U | byte(2) << 8U | byte(3)) == color ? 1 : 0;
    }
    return found;
  }
};

std::vector<Pixmap> pixmaps(const QVariantMap& properties) {
  std::vector<Pixmap> all;
  const auto argument = properties["IconPixmap"].value<QDBusArgument>();
  argument.beginArray();
  while (!argument.atEnd()) {
    Pixmap& pixmap = all.emplace_back();
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.bytes;
    argument.endStructure();
  }
  argument.endArray();
  return all;
}

std::string sizes(const std::vector<Pixmap>& all) {
  std::string text;
  for (const Pixmap& pixmap : all) {
    EXPECT_EQ(pixmap.bytes.size(), qsizetype{4} * pixmap.width * pixmap.height);
    text += std::to_string(pixmap.width) + "x" + std::to_string(pixmap.height) + " ";
  }
  return text;
}

// The lines of the tooltip.
std::string tooltip(const QVariantMap& properties) {
  QString icon;
  QString title;
  QString text;
  const auto argument = properties["ToolTip"].value<QDBusArgument>();
  argument.beginStructure();
  argument >> icon;
  argument.beginArray();
  while (!argument.atEnd()) {
    argument.asVariant();
  }
  argument.endArray();
  argument >> title >> text;
  argument.endStructure();
  return (title + "\n" + text).toStdString();
}

// How many columns of the upper rows of a picture show something that is not of the bar's grey.
int columnsWithColor(const std::string& file, int rows) {
  const QImage picture(QString::fromStdString(file));
  int found = 0;
  for (int x = 0; x < picture.width(); ++x) {
    bool colored = false;
    for (int y = 0; y < std::min(rows, picture.height()); ++y) {
      colored = colored || std::abs(qGray(picture.pixel(x, y)) - 0x20) > 16;
    }
    found += colored ? 1 : 0;
  }
  return found;
}

class DesktopEndToEnd : public test::ProgramFixture {
 protected:
  DesktopEndToEnd() {
    environment["DISPLAY"] = ":" + xserver_.outputLine("").value_or("");
    environment["DBUS_SESSION_BUS_ADDRESS"] = busAddress;
    bus->outputLine("unix:");
    screen.emplace(environment["DISPLAY"]);
    home.write(".config/app.marigold.Marigold/preferences.json",
               R"({"perProviderMigrated": true, "menubar.claude": false, "menubar.grok": false})");
    codexSays(37, 12);
  }

  void startProgram() { program.emplace(std::vector{executable}, environment); }
  void startHost() {
    static int started = 0;
    host.emplace(QString::fromStdString(busAddress), ("host" + std::to_string(++started)).c_str());
  }
  bool itemCame() {
    return eventually([this] { return !host->item.isEmpty(); });
  }
  bool labelBecomes(const char* text, double seconds = 20) {
    return eventually([&] { return host->itemProperties()["XAyatanaLabel"] == text; }, seconds);
  }
  [[nodiscard]] bool isShown(int leastWidth, int mostWidth, int leastHeight, int mostHeight) const {
    return std::ranges::any_of(screen->windows(), [&](const auto& size) {
      return size.first > leastWidth && size.first < mostWidth && size.second > leastHeight &&
             size.second < mostHeight;
    });
  }
  // Whether the strip is shown, and the popover or a menu: by their sizes.
  [[nodiscard]] bool stripIsShown() const { return isShown(20, 300, 15, 50); }
  [[nodiscard]] bool popoverIsShown() const { return isShown(100, 700, 60, 590); }
  bool popoverBecomes(bool shown, double seconds = soon) {
    return eventually([&] { return popoverIsShown() == shown; }, seconds);
  }
  void act(std::vector<std::string> words) const {
    words.insert(words.begin(), MARIGOLD_XDOTOOL);
    EXPECT_EQ(run(words).finish().second, 0);
  }

 private:
  ChildProcess xserver_{
      {MARIGOLD_XVFB, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "800x600x24"}};

 protected:
  // Any user may speak on it, since some bars refuse to run as root.
  std::string busAddress = "unix:path=" + home.path() + "/bus";
  std::vector<std::string> busCommand{
      MARIGOLD_DBUS_DAEMON, "--nofork", "--print-address",
      "--config-file=" + home.write("bus.conf", "<busconfig><listen>" + busAddress + R"(</listen>
  <auth>EXTERNAL</auth><policy context="default"><allow user="*"/><allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/></policy>
</busconfig>)")};
  std::optional<ChildProcess> bus{std::in_place, busCommand};
  std::optional<Screen> screen;
  std::optional<test::TrayHost> host;
  std::optional<ChildProcess> program;
};

TEST_F(DesktopEndToEnd, ATrayHostReadsTheMarkAndFollowsIt) {
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(labelBecomes("37%"));
  QVariantMap properties = host->itemProperties();
  EXPECT_EQ(sizes(pixmaps(properties)), "22x22 24x24 32x32 48x48 ");
  EXPECT_GT(pixmaps(properties).back().count(green), 20);
  EXPECT_EQ(tooltip(properties),
            "Codex: 5h 37% used, updated just now\n"
            "Codex: 5h 37% used, updated just now\nCodex: Weekly 12% used, updated just now");
  EXPECT_EQ(properties["IconAccessibleDesc"],
            "Codex 5h 37%, updated just now; Codex Weekly 12%, updated just now");
  QList<int> ids;
  EXPECT_EQ(test::menuText(host->askMenu("GetLayout", {0, -1, QStringList()}).value(1), ids),
            "(Open Marigold;Refresh Now;separator;Quit Marigold;)");

  codexSays(95, 12);
  EXPECT_TRUE(labelBecomes("95%", soon));
  EXPECT_GT(pixmaps(host->itemProperties()).back().count(red), 20);

  EXPECT_FALSE(popoverIsShown());
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(popoverBecomes(true));
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(popoverBecomes(false));
  host->askItem("ContextMenu", {700, 10});
  EXPECT_TRUE(popoverBecomes(true)) << "the menu is as large";
  act({"key", "Escape"});

  host->askMenu("Event", {ids.last(), "clicked", QVariant::fromValue(QDBusVariant(0)), 0U});
  EXPECT_EQ(program->finish().second, 0) << "the menu's last entry quits";
}

TEST_F(DesktopEndToEnd, HostsComeAndGo) {
  startProgram();
  ASSERT_TRUE(eventually([this] { return stripIsShown(); })) << "no tray: the strip";
  EXPECT_TRUE(eventually([this] { return screen->count(green, 500, 0, 300, 100) > 5; }))
      << "at the top right";
  const auto iconIsShown = [this] { return screen->count(green, 700, 540, 100, 60) > 5; };
  {
    const ChildProcess tray = run({MARIGOLD_TRAYER, "--edge", "bottom", "--align", "right",
                                   "--widthtype", "request", "--height", "60"});
    EXPECT_TRUE(eventually([&] { return !stripIsShown() && iconIsShown(); })) << "an old tray";
    startHost();
    ASSERT_TRUE(itemCame()) << "a host that comes late";
    EXPECT_TRUE(eventually([&] { return !iconIsShown(); }, soon));
    ASSERT_TRUE(labelBecomes("37%", soon));
    host.reset();
    EXPECT_TRUE(eventually(iconIsShown, soon));
  }
  EXPECT_TRUE(eventually([this] { return stripIsShown(); }));
  startHost();
  ASSERT_TRUE(itemCame()) << "a host that was started again";
  EXPECT_TRUE(eventually([this] { return !stripIsShown(); }, soon));
  codexSays(38, 12);
  EXPECT_TRUE(labelBecomes("38%", soon));

  host.reset();
  bus.emplace(busCommand);
  bus->outputLine("unix:");
  startHost();
  ASSERT_TRUE(itemCame()) << "on a bus that was started again";
  ASSERT_TRUE(labelBecomes("38%"));
  EXPECT_EQ(program->end(), "0");
}

// The tree of assistive technologies as text, a line of role, name and description for each object
// below `path` of the application at `service`.
std::string spokenTree(const QDBusConnection& bus, const QString& service, const QString& path) {
  const QString interface = "org.a11y.atspi.Accessible";
  const auto ask = [&](const QString& from, const QString& method, const QVariantList& words) {
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, from, method);
    call.setArguments(words);
    return bus.call(call, QDBus::Block, 2000).arguments().value(0);
  };
  const auto property = [&](const char* name) {
    return ask("org.freedesktop.DBus.Properties", "Get", {interface, name})
        .value<QDBusVariant>()
        .variant()
        .toString()
        .toStdString();
  };
  std::string text = ask(interface, "GetRoleName", {}).toString().toStdString() + "|" +
                     property("Name") + "|" + property("Description") + "\n";
  const auto children = ask(interface, "GetChildren", {}).value<QDBusArgument>();
  std::vector<std::pair<QString, QDBusObjectPath>> found;
  children.beginArray();
  while (!children.atEnd()) {
    auto& [childService, childPath] = found.emplace_back();
    children.beginStructure();
    children >> childService >> childPath;
    children.endStructure();
  }
  children.endArray();
  for (const auto& [childService, childPath] : found) {
    text += spokenTree(bus, childService, childPath.path());
  }
  return text;
}

TEST_F(DesktopEndToEnd, TheStripSpeaks) {
  environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
  const ChildProcess launcher = run({MARIGOLD_AT_SPI_BUS_LAUNCHER, "--launch-immediately"});
  QDBusConnection session =
      QDBusConnection::connectToBus(environment["DBUS_SESSION_BUS_ADDRESS"].c_str(), "session");
  const auto address = [&] {
    return session
        .call(QDBusMessage::createMethodCall("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus",
                                             "GetAddress"))
        .arguments()
        .value(0)
        .toString();
  };
  ASSERT_TRUE(eventually([&] { return address().startsWith("unix:"); }));
  startProgram();
  const QDBusConnection spoken = QDBusConnection::connectToBus(address(), "spoken");
  std::string tree;
  EXPECT_TRUE(eventually([&] {
    tree = spokenTree(spoken, "org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root");
    return tree.find(
               "|Marigold|Codex 5h 37%, updated just now; Codex Weekly 12%, "
               "updated just now\n") != std::string::npos;
  })) << tree;
  EXPECT_EQ(program->end(), "0");
  QDBusConnection::disconnectFromBus("spoken");
  QDBusConnection::disconnectFromBus("session");
}

TEST_F(DesktopEndToEnd, AWindowThatResetsDrainsAndThenSaysSo) {
  codexSays(80, 12, 5);
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(labelBecomes("80%"));
  const auto iconsSent = [this] { return std::ranges::count(host->heard, std::string("NewIcon")); };
  const auto before = iconsSent();
  EXPECT_TRUE(eventually(
      [this] {
        return tooltip(host->itemProperties()).find("5h window reset, no new reading yet") !=
               std::string::npos;
      },
      8));
  EXPECT_TRUE(eventually([&] { return iconsSent() > before + 8; }, soon)) << "its frames";
  EXPECT_TRUE(
      eventually([this] { return pixmaps(host->itemProperties()).back().count(green) == 0; }, soon))
      << "nothing left of it";
  EXPECT_EQ(program->end(), "0");
}

TEST_F(DesktopEndToEnd, EndsWhileThePopoverIsOpen) {
  for (int round = 0; round < 3; ++round) {  // windows end in no certain order
    startProgram();
    ASSERT_TRUE(eventually([this] {
      return screen->count(green, screen->width() - 300, 0, 300, 100) > 5;
    })) << "the strip";
    act({"mousemove", "770", "20", "click", "1"});
    ASSERT_TRUE(popoverBecomes(true, 20));
    EXPECT_EQ(program->end(), "0");
  }
}

TEST_F(DesktopEndToEnd, AnXfcePanelShowsTheSquares) {
  home.write(".config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml",
             R"(<?xml version="1.0"?><channel name="xfce4-panel" version="1.0">
 <property name="configver" type="int" value="2"/>
 <property name="panels" type="array"><value type="int" value="1"/>
  <property name="panel-1" type="empty">
   <property name="position" type="string" value="p=6;x=0;y=0"/>
   <property name="length" type="uint" value="100"/>
   <property name="size" type="uint" value="30"/>
   <property name="position-locked" type="bool" value="true"/>
   <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
  </property></property>
 <property name="plugins" type="empty">
  <property name="plugin-1" type="string" value="systray"/></property>
</channel>)");
  const ChildProcess settings = run({MARIGOLD_XFCONFD});
  const ChildProcess panel = run({MARIGOLD_XFCE4_PANEL, "--disable-wm-check"});
  startProgram();
  const auto iconIsShown = [this] { return screen->count(green, 0, 0, 60, 30) > 10; };
  EXPECT_TRUE(eventually(iconIsShown));

  act({"mousemove", "11", "15", "click", "1"});
  EXPECT_TRUE(popoverBecomes(true));
  act({"key", "Escape"});
  EXPECT_TRUE(popoverBecomes(false));
  act({"mousemove", "11", "15", "click", "3"});
  EXPECT_TRUE(popoverBecomes(true)) << "the menu, by the panel";
  act({"key", "Escape"});
  EXPECT_EQ(program->end(), "0");
}

TEST_F(DesktopEndToEnd, WaybarShowsTheWideMark) {
  // Neither the compositor nor what it starts may run as root.
  std::vector<std::string> asOrdinaryUser;
  const std::string place = home.path() + "/sway";
  home.write("sway/waybar.json",
             R"({"modules-right":["tray"],"height":30,"tray":{"icon-size":20}})");
  home.write("sway/style.css", "window#waybar { background: #202020; }");
  home.write("sway/config",
             "xwayland disable\noutput HEADLESS-1 resolution 800x300\nexec waybar -c " + place +
                 "/waybar.json -s " + place + "/style.css\n");
  if (::geteuid() == 0) {
    asOrdinaryUser = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    ASSERT_EQ(::chmod(home.path().c_str(), 0711), 0);
    ASSERT_EQ(::chown(place.c_str(), 65534, 65534), 0);
  }
  ASSERT_EQ(::chmod(place.c_str(), 0700), 0);
  environment["HOME"] = place;
  environment["XDG_RUNTIME_DIR"] = place;
  // Qt's plugin leaves a few of the display library's objects behind at its end.
  environment["LSAN_OPTIONS"] =
      "suppressions=" + home.write("leaks", "leak:libwayland-client.so\n");
  environment["WLR_BACKENDS"] = "headless";
  environment["WLR_LIBINPUT_NO_DEVICES"] = "1";
  environment["WLR_RENDERER"] = "pixman";
  environment["LIBSEAT_BACKEND"] = "noop";
  std::vector<std::string> command = asOrdinaryUser;
  command.insert(command.end(), {MARIGOLD_SWAY, "-c", place + "/config"});
  const ChildProcess sway = run(command);
  environment.erase("DISPLAY");
  environment["WAYLAND_DISPLAY"] = place + "/wayland-1";
  environment["HOME"] = home.path();
  environment["XDG_RUNTIME_DIR"] = home.path();
  ASSERT_TRUE(eventually([&] { return ::access((place + "/wayland-1").c_str(), F_OK) == 0; }));
  startProgram();

  const auto columns = [&] {
    std::vector<std::string> grim = asOrdinaryUser;
    grim.insert(grim.end(), {MARIGOLD_GRIM, "-t", "ppm", place + "/picture.ppm"});
    run(grim).finish();
    return columnsWithColor(place + "/picture.ppm", 30);
  };
  EXPECT_TRUE(eventually([&] { return columns() > 25; })) << "gauge and text, not a square";
  EXPECT_EQ(program->end(), "0");
}

}  // namespace
}  // namespace marigold
