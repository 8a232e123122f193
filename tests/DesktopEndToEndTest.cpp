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

#include "Time.h"
#include "support/ChildProcess.h"
#include "support/DesktopServices.h"
#include "support/RolloutLines.h"
#include "support/TemporaryDirectory.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

using test::ChildProcess;

constexpr double soon = 2.5;     // from a change on disk to the mark, in seconds
constexpr double patience = 20;  // for what starts or ends a process

// Gauge colours of the zones as pixels.
constexpr std::uint32_t green = 0xFF47C78C;
constexpr std::uint32_t red = 0xFFEB574A;

// Turns the loop, in which this process answers as a tray host, until `wanted` holds.
template <class Condition>
bool within(double seconds, Condition wanted) {
  QElapsedTimer timer;
  timer.start();
  while (!wanted()) {
    if (static_cast<double>(timer.elapsed()) > seconds * 1000) {
      return false;
    }
    QCoreApplication::processEvents();
    ::usleep(5000);
  }
  return true;
}

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

class DesktopEndToEnd : public testing::Test {
 protected:
  DesktopEndToEnd() {
    environment["DISPLAY"] = ":" + xserver_.name();
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus_.name();
    screen.emplace(environment["DISPLAY"]);
    choose("codex");
    show(37, 12);
  }

  // Only this provider is in the menu bar.
  void choose(const std::string& provider) const {
    std::string choices = R"({"perProviderMigrated": true)";
    for (const std::string each : {"claude", "codex", "grok"}) {
      choices += R"(, "menubar.)" + each + R"(": )" + (each == provider ? "true" : "false");
    }
    home.write(".config/app.marigold.Marigold/preferences.json", choices + "}");
  }
  // Codex reports these percentages, now.
  void show(double fiveHour, double weekly, double resetsIn = 4 * 86400.0) const {
    test::append(home.path() + "/codex/sessions/2026/11/22/rollout-a.jsonl",
                 test::tokenCount(fiveHour, weekly, resetsIn));
  }
  [[nodiscard]] ChildProcess start(const std::vector<std::string>& command) const {
    return {command, environment};
  }
  void startProgram() { program.emplace(std::vector<std::string>{MARIGOLD_PROGRAM}, environment); }
  void startHost() {
    static int started = 0;
    host.emplace(QString::fromStdString(bus_.name()), ("host" + std::to_string(++started)).c_str());
  }
  bool itemCame() {
    return within(patience, [this] { return !host->item.isEmpty(); });
  }
  bool labelBecomes(const char* text, double seconds) {
    return within(seconds, [&] { return host->itemProperties()["XAyatanaLabel"] == text; });
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
  void act(std::vector<std::string> words) const {
    words.insert(words.begin(), MARIGOLD_XDOTOOL);
    EXPECT_EQ(start(words).finish(patience).second, 0);
  }
  void endProgram() {
    program->tell(SIGTERM);
    if (program->finish(patience).second != 0) {
      std::string said;
      while (const auto line = program->errorLine([](const std::string&) { return true; }, 1)) {
        said += *line + "\n";
      }
      ADD_FAILURE() << said;
    }
  }

  static int argumentCount;
  QCoreApplication application_{argumentCount, nullptr};
  test::TemporaryDirectory home;

 private:
  test::DesktopService xserver_{
      {MARIGOLD_XVFB, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "800x600x24"}};
  // Any user may speak on it, since some bars refuse to run as root.
  test::DesktopService bus_{{MARIGOLD_DBUS_DAEMON, "--nofork", "--print-address",
                             "--config-file=" + home.write("bus.conf", R"(<busconfig>
  <listen>unix:tmpdir=/tmp</listen>
  <policy context="default"><allow user="*"/><allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/></policy>
</busconfig>)")}};

 protected:
  std::map<std::string, std::string> environment{
      {"HOME", home.path()},
      {"XDG_RUNTIME_DIR", home.path()},
      {"CODEX_HOME", home.path() + "/codex"},
      {"PATH", "/usr/bin:/bin"},
      {"LC_ALL", "C.UTF-8"},
      {"TZ", "UTC"},
      {"NO_AT_BRIDGE", "1"},
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"}};
  std::optional<Screen> screen;
  std::optional<test::TrayHost> host;
  std::optional<ChildProcess> program;
};
int DesktopEndToEnd::argumentCount = 0;

TEST_F(DesktopEndToEnd, ATrayHostReadsTheMarkAndFollowsIt) {
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(labelBecomes("37%", patience));
  QVariantMap properties = host->itemProperties();
  EXPECT_EQ(sizes(pixmaps(properties)), "22x22 24x24 32x32 48x48 ");
  EXPECT_GT(pixmaps(properties).back().count(green), 20);
  EXPECT_EQ(tooltip(properties),
            "Codex: 5h 37% used, updated just now\nCodex: Weekly 12% used, updated just now");
  EXPECT_EQ(properties["IconAccessibleDesc"],
            "Codex 5h 37%, updated just now; Codex Weekly 12%, updated just now");
  QList<int> ids;
  EXPECT_EQ(test::menuText(host->askMenu("GetLayout", {0, -1, QStringList()}).value(1), ids),
            "(Open Marigold;Refresh Now;separator;Quit Marigold;)");

  show(95, 12);
  EXPECT_TRUE(labelBecomes("95%", soon));
  EXPECT_GT(pixmaps(host->itemProperties()).back().count(red), 20);

  EXPECT_FALSE(popoverIsShown());
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(within(soon, [this] { return popoverIsShown(); }));
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(within(soon, [this] { return !popoverIsShown(); }));
  host->askItem("ContextMenu", {700, 10});
  EXPECT_TRUE(within(soon, [this] { return popoverIsShown(); })) << "the menu is as large";
  act({"key", "Escape"});

  host->askMenu("Event", {ids.last(), "clicked", QVariant::fromValue(QDBusVariant(0)), 0U});
  EXPECT_EQ(program->finish(patience).second, 0) << "the menu's last entry quits";
}

TEST_F(DesktopEndToEnd, HostsComeAndGo) {
  startProgram();
  ASSERT_TRUE(within(patience, [this] { return stripIsShown(); })) << "no tray: the strip";
  EXPECT_TRUE(within(soon, [this] {
    return screen->count(green, screen->width() - 300, 0, 300, 100) > 5;
  })) << "at the top right";

  startHost();
  ASSERT_TRUE(itemCame()) << "a host that comes late";
  EXPECT_TRUE(within(soon, [this] { return !stripIsShown(); }));
  ASSERT_TRUE(labelBecomes("37%", soon));

  host.reset();
  EXPECT_TRUE(within(soon, [this] { return stripIsShown(); }));
  startHost();
  ASSERT_TRUE(itemCame()) << "a host that was started again";
  EXPECT_TRUE(within(soon, [this] { return !stripIsShown(); }));
  show(38, 12);
  EXPECT_TRUE(labelBecomes("38%", soon));
  endProgram();
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
  const ChildProcess launcher = start({MARIGOLD_AT_SPI_BUS_LAUNCHER, "--launch-immediately"});
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
  ASSERT_TRUE(within(patience, [&] { return address().startsWith("unix:"); }));
  startProgram();
  const QDBusConnection spoken = QDBusConnection::connectToBus(address(), "spoken");
  std::string tree;
  EXPECT_TRUE(within(patience, [&] {
    tree = spokenTree(spoken, "org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root");
    return tree.find(
               "|Marigold|Codex 5h 37%, updated just now; Codex Weekly 12%, "
               "updated just now\n") != std::string::npos;
  })) << tree;
  endProgram();
  QDBusConnection::disconnectFromBus("spoken");
  QDBusConnection::disconnectFromBus("session");
}

TEST_F(DesktopEndToEnd, AWindowThatResetsDrainsAndThenSaysSo) {
  show(80, 12, 5);
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(labelBecomes("80%", patience));
  const auto iconsSent = [this] { return std::ranges::count(host->heard, std::string("NewIcon")); };
  const auto before = iconsSent();
  EXPECT_TRUE(within(8, [this] {
    return tooltip(host->itemProperties()).find("5h window reset, no new reading yet") !=
           std::string::npos;
  }));
  EXPECT_TRUE(within(soon, [&] { return iconsSent() > before + 8; })) << "its frames";
  EXPECT_TRUE(within(soon, [this] {
    return pixmaps(host->itemProperties()).back().count(green) == 0;
  })) << "nothing left of it";
  endProgram();
}

// A line of Grok's log, written some seconds ago.
std::string grokLine(const std::string& msg, double secondsAgo, const std::string& ctx) {
  const Date time = Date(std::chrono::system_clock::now()) - Seconds{secondsAgo};
  return R"({"ts":")" + isoText(time) + R"(","msg":")" + msg + R"(","ctx":)" + ctx + "}\n";
}
std::string billing(int percent, double secondsAgo) {
  const Date end = Date(std::chrono::system_clock::now()) + Seconds{4 * 86400.0};
  return grokLine("billing: fetched credits config", secondsAgo,
                  R"({"config":{"creditUsagePercent":)" + std::to_string(percent) +
                      R"(,"currentPeriod":{"end":")" + isoText(end) +
                      R"("}},"subscriptionTier":"X Premium"})");
}
std::string exhaustion(int hours, double secondsAgo) {
  return grokLine("shell.turn.failed", secondsAgo,
                  R"({"kind":"rate_limited","message":"subscription: usage-exhausted, rolling )" +
                      std::to_string(hours) + R"(-hour window"})");
}

class GrokEndToEnd : public DesktopEndToEnd {
 protected:
  GrokEndToEnd() {
    environment["GROK_HOME"] = home.path() + "/grok";
    choose("grok");
  }
  bool tooltipBecomes(const std::string& text, double seconds) {
    const bool is =
        within(seconds, [&] { return host && tooltip(host->itemProperties()) == text + "\n"; });
    EXPECT_TRUE(is) << tooltip(host->itemProperties());
    return is;
  }
  std::string log = home.path() + "/grok/logs/unified.jsonl";
};

TEST_F(GrokEndToEnd, FollowsTheLogAsItGrowsGoesAndComesBack) {
  test::append(log, billing(15, 3));
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(tooltipBecomes("Grok: Weekly 15% used, updated just now", patience));
  EXPECT_TRUE(labelBecomes("15%", soon));
  EXPECT_EQ(host->itemProperties()["IconAccessibleDesc"], "Grok Weekly 15%, updated just now");

  test::append(log, exhaustion(24, 2));
  EXPECT_TRUE(tooltipBecomes("Grok: 24h 100% used, updated just now", soon));
  EXPECT_TRUE(labelBecomes("100%", soon));
  EXPECT_EQ(host->itemProperties()["IconAccessibleDesc"], "Grok 24h 100%, updated just now");
  EXPECT_GT(pixmaps(host->itemProperties()).back().count(red), 20);

  test::append(log, billing(16, 0));
  EXPECT_TRUE(tooltipBecomes("Grok: Weekly 16% used, updated just now", soon));

  std::filesystem::rename(log, log + ".away");
  EXPECT_TRUE(tooltipBecomes("Grok: Weekly 16% used, data just now", soon)) << "not running";
  std::filesystem::rename(log + ".away", log);
  EXPECT_TRUE(tooltipBecomes("Grok: Weekly 16% used, updated just now", soon));
  endProgram();
}

TEST_F(GrokEndToEnd, AnExhaustionEndsWithItsWindow) {
  test::append(log, billing(15, 7200) + exhaustion(1, 3594));
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(tooltipBecomes("Grok: 1h was 100% used, 59m ago", patience));
  ASSERT_TRUE(tooltipBecomes("Grok: 1h window reset, no new reading yet", patience));
  test::append(log, grokLine("shell.turn.inference_done", 0, "{}"));
  EXPECT_TRUE(tooltipBecomes("Grok: no reading", soon));
  test::append(log, billing(2, 0));
  EXPECT_TRUE(tooltipBecomes("Grok: Weekly 2% used, updated just now", soon));
  endProgram();
}

TEST_F(DesktopEndToEnd, EndsWhileThePopoverIsOpen) {
  for (int round = 0; round < 3; ++round) {  // windows end in no certain order
    startProgram();
    ASSERT_TRUE(within(patience, [this] {
      return screen->count(green, screen->width() - 300, 0, 300, 100) > 5;
    })) << "the strip";
    act({"mousemove", "770", "20", "click", "1"});
    ASSERT_TRUE(within(patience, [this] { return popoverIsShown(); }));
    endProgram();
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
  const ChildProcess settings = start({MARIGOLD_XFCONFD});
  const ChildProcess panel = start({MARIGOLD_XFCE4_PANEL, "--disable-wm-check"});
  startProgram();
  const auto iconIsShown = [this] { return screen->count(green, 0, 0, 60, 30) > 10; };
  EXPECT_TRUE(within(patience, iconIsShown));

  act({"mousemove", "11", "15", "click", "1"});
  EXPECT_TRUE(within(soon, [this] { return popoverIsShown(); }));
  act({"key", "Escape"});
  EXPECT_TRUE(within(soon, [this] { return !popoverIsShown(); }));
  act({"mousemove", "11", "15", "click", "3"});
  EXPECT_TRUE(within(soon, [this] { return popoverIsShown(); })) << "the menu, by the panel";
  act({"key", "Escape"});
  endProgram();
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
  const ChildProcess sway = start(command);
  environment.erase("DISPLAY");
  environment["WAYLAND_DISPLAY"] = place + "/wayland-1";
  environment["HOME"] = home.path();
  environment["XDG_RUNTIME_DIR"] = home.path();
  ASSERT_TRUE(
      within(patience, [&] { return ::access((place + "/wayland-1").c_str(), F_OK) == 0; }));
  startProgram();

  const auto columns = [&] {
    std::vector<std::string> grim = asOrdinaryUser;
    grim.insert(grim.end(), {MARIGOLD_GRIM, "-t", "ppm", place + "/picture.ppm"});
    start(grim).finish(patience);
    return columnsWithColor(place + "/picture.ppm", 30);
  };
  EXPECT_TRUE(within(patience, [&] { return columns() > 25; })) << "gauge and text, not a square";
  endProgram();
}

}  // namespace
}  // namespace marigold
