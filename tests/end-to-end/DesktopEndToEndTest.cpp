// The built program on desktops without a screen to see: its item as a tray host reads it, in real
// bars, and in the forms for desktops without one.

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QSize>
#include <QtCore/QtEndian>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusVariant>
#include <QtGui/QImage>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "end-to-end/ProgramFixture.h"
#include "linux/item/StatusNotifierStructures.h"
#include "support/BusObject.h"
#include "support/PrivateBus.h"
#include "support/Screen.h"
#include "support/SilentPort.h"
#include "support/Spoken.h"
#include "support/TrayHost.h"

namespace marigold {
namespace {

using test::ChildProcess;
using test::eventually;

// Gauge colours of the zones as pixels.
constexpr QRgb green = 0xFF47C78C;
constexpr QRgb red = 0xFFEB574A;

// How many pixels of the largest icon that the bus offers have this colour.
qsizetype countPixels(const QVariantMap& properties, QRgb color) {
  const QRgb inNetworkOrder = qToBigEndian(color);
  QByteArray bytes(sizeof color, '\0');
  std::memcpy(bytes.data(), &inNetworkOrder, sizeof color);
  return qdbus_cast<QList<DBusPixmap>>(properties["IconPixmap"]).last().pixels.count(bytes);
}

std::string tooltip(const QVariantMap& properties) {
  const auto told = qdbus_cast<DBusToolTip>(properties["ToolTip"]);
  return (told.title + "\n" + told.text).toStdString();
}

class DesktopEndToEnd : public test::ProgramFixture {
 protected:
  DesktopEndToEnd() {
    environment["DISPLAY"] = ":" + xserver_.outputLine("").value_or("");
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address;
    screen.emplace(environment["DISPLAY"]);
    home.write(preferences,
               R"({"perProviderMigrated": true, "menubar.claude": false, "menubar.grok": false})");
    codexSays(37, 12);
  }

  void startProgram() { program.emplace(std::vector{executable}, environment); }
  void startHost() { host.emplace(QString::fromStdString(bus.address), "host"); }
  bool itemCame() {
    return eventually([this] { return !host->item.isEmpty(); });
  }
  bool labelBecomes(const char* text) {
    return eventually([&] { return host->itemProperties()["XAyatanaLabel"] == text; });
  }
  // With the track that gauges have on the strip's dark ground.
  [[nodiscard]] bool stripIsShown() const {
    const QRect corner(500, 0, 300, 50);
    return screen->count(green, corner) > 5 && screen->count(qRgb(78, 78, 80), corner) > 5;
  }
  // The popover or a menu, by what covers the black ground between the bars at the edges.
  [[nodiscard]] bool popoverIsShown() const {
    return screen->count(qRgb(0, 0, 0), {0, 60, 800, 480}) < 800 * 480 - 2000;
  }
  bool popoverBecomes(bool shown) {
    return eventually([&] { return popoverIsShown() == shown; });
  }
  // Or the menu. It may be seen before it has the keyboard.
  void closePopover() {
    EXPECT_TRUE(eventually([this] {
      act({"key", "Escape"});
      return !popoverIsShown();
    }));
  }
  void act(std::vector<std::string> words) const {
    words.insert(words.begin(), MARIGOLD_XDOTOOL);
    EXPECT_EQ(run(words).finish().second, 0);
  }

 private:
  ChildProcess xserver_{
      {MARIGOLD_XVFB, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "800x600x24"}};

 protected:
  test::PrivateBus bus{home};  // any user, since some bars refuse to run as root
  std::optional<test::Screen> screen;
  std::optional<test::TrayHost> host;
  std::optional<ChildProcess> program;
};

TEST_F(DesktopEndToEnd, ATrayHostReadsTheMarkAndFollowsIt) {
  startHost();
  startProgram();
  ASSERT_TRUE(itemCame());
  ASSERT_TRUE(labelBecomes("37%"));
  QVariantMap properties = host->itemProperties();
  EXPECT_EQ(properties["Id"], "marigold") << "no development build";
  EXPECT_GT(countPixels(properties, green), 20);
  EXPECT_EQ(tooltip(properties),
            "Codex: 5h 37% used, updated just now\n"
            "Codex: 5h 37% used, updated just now\nCodex: Weekly 12% used, updated just now");
  EXPECT_EQ(properties["IconAccessibleDesc"],
            "Codex 5h 37%, updated just now; Codex Weekly 12%, updated just now");
  QList<int> ids;
  EXPECT_TRUE(test::menuText(host->layout(), ids).starts_with("(Open Marigold;Refresh Now;"));

  codexSays(95, 12);
  EXPECT_TRUE(labelBecomes("95%"));
  EXPECT_GT(countPixels(host->itemProperties(), red), 20);

  EXPECT_FALSE(popoverIsShown());
  const auto event = [&](int id, const char* what) {
    host->askMenu("Event", {id, what, QVariant::fromValue(QDBusVariant(0)), 0U});
  };
  for (const auto& [click, asks] : std::vector<std::pair<const char*, std::function<void()>>>{
           {"Plasma, left",
            [&] {
              host->askItem("ProvideXdgActivationToken", {""});
              host->askItem("Activate", {780, 10});
            }},
           {"GNOME, once, and the menu's first entry",
            [&] {
              host->askMenu("AboutToShow", {0});
              event(0, "opened");
              event(ids.at(1), "clicked");
              event(0, "closed");
            }},
           {"GNOME, twice", [&] { host->askItem("Activate", {0, 0}); }},
           {"swaybar, right", [&] { host->askItem("ContextMenu", {700, 10}); }}}) {
    asks();
    EXPECT_TRUE(popoverBecomes(true)) << click;
    closePopover();
  }
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(popoverBecomes(true));
  host->askItem("Activate", {780, 10});
  EXPECT_TRUE(popoverBecomes(false)) << "by a second click";

  event(ids.last(), "clicked");
  EXPECT_EQ(program->finish().second, 0) << "the menu's last entry quits";
}

TEST_F(DesktopEndToEnd, HostsComeAndGo) {
  startProgram();
  ASSERT_TRUE(eventually([this] { return stripIsShown(); }))
      << "no tray: the strip at the top right";
  const auto iconIsShown = [this] { return screen->count(green, {700, 540, 100, 60}) > 5; };
  {
    const ChildProcess tray = run({MARIGOLD_TRAYER, "--edge", "bottom", "--align", "right",
                                   "--widthtype", "request", "--height", "60"});
    EXPECT_TRUE(eventually([&] { return !stripIsShown() && iconIsShown(); })) << "an old tray";
    startHost();
    ASSERT_TRUE(itemCame()) << "a host that comes late";
    EXPECT_TRUE(eventually([&] { return !iconIsShown(); }));
    ASSERT_TRUE(labelBecomes("37%"));
    host.reset();
    EXPECT_TRUE(eventually(iconIsShown));
  }
  EXPECT_TRUE(eventually([this] { return stripIsShown(); }));
  startHost();
  ASSERT_TRUE(itemCame()) << "a host that was started again";
  EXPECT_TRUE(eventually([this] { return !stripIsShown(); }));
  codexSays(38, 12);
  EXPECT_TRUE(labelBecomes("38%"));

  host.reset();
  bus.restart();
  startHost();
  ASSERT_TRUE(itemCame()) << "on a bus that was started again";
  ASSERT_TRUE(labelBecomes("38%"));
  EXPECT_EQ(program->end(), "0");
}

TEST_F(DesktopEndToEnd, TheStripSpeaks) {
  environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
  const test::SpokenBus spoken(bus, environment);
  startProgram();
  std::string text;
  EXPECT_TRUE(eventually([&] {
    text = spoken.tree().text();
    return text.find(
               "Marigold: Codex 5h 37%, updated just now; Codex Weekly 12%, updated just now") !=
           std::string::npos;
  })) << text;
  EXPECT_EQ(program->end(), "0");
}

TEST_F(DesktopEndToEnd, WaitsForNoSilentBusAndEndsWhileThePopoverIsOpen) {
  const test::SilentPort port;
  const std::string silent = "tcp:host=127.0.0.1,port=" + std::to_string(port.number());
  for (const std::string& address : {silent, bus.address, bus.address}) {
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = environment["DBUS_SESSION_BUS_ADDRESS"] = address;
    startProgram();
    ASSERT_TRUE(eventually([this] { return stripIsShown(); }));
    act({"mousemove", "770", "20", "click", "1"});
    ASSERT_TRUE(popoverBecomes(true));
    EXPECT_EQ(program->end(), "0") << "windows end in no certain order";
  }
}

// In a bar, in a tray of the older kind and without either.
TEST_F(DesktopEndToEnd, EveryFormOnX11ShowsTheGaugeAndTakesClicks) {
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
  const std::string lxqt = home.write("panel.conf",
                                      "panels=p\n[p]\npanelSize=30\nposition=Top\nplugins=tray\n"
                                      "[tray]\ntype=statusnotifier\n");
  ChildProcess manager = run({MARIGOLD_OPENBOX, "--sm-disable", "--startup", "echo ready"});
  ASSERT_TRUE(manager.outputLine("ready"));
  struct Row {
    std::vector<std::vector<std::string>> bar;
    QRect shows;
  };
  for (const auto& [bar, shows] :
       {Row{{{MARIGOLD_XFCONFD}, {MARIGOLD_XFCE4_PANEL, "--disable-wm-check"}}, {0, 0, 60, 30}},
        Row{{{MARIGOLD_LXQT_PANEL, "-c", lxqt}}, {0, 0, 60, 30}},
        Row{{{MARIGOLD_TRAYER, "--edge", "bottom", "--align", "right", "--widthtype", "request",
              "--height", "60"}},
            {700, 540, 100, 60}},
        Row{{}, {500, 0, 300, 50}}}) {
    SCOPED_TRACE(bar.empty() ? "the strip" : bar.back().front());
    std::list<ChildProcess> running;
    for (const std::vector<std::string>& command : bar) {
      running.emplace_back(command, environment);
    }
    startProgram();
    ASSERT_TRUE(eventually([&] { return screen->count(green, shows) > 10; }));
    const QPoint gauge = screen->find(green, shows).front();
    const std::vector<std::string> there{"mousemove", std::to_string(gauge.x()),
                                         std::to_string(gauge.y()), "click"};
    for (const char* const button : {"1", "3"}) {
      std::vector<std::string> click = there;
      click.emplace_back(button);
      act(click);
      EXPECT_TRUE(popoverBecomes(true)) << "or the menu; button " << button;
      closePopover();
    }
    EXPECT_EQ(program->end(), "0");
  }
}

// The windows of sway's tree that float at the size that they want, not at one that they are given.
std::vector<QSize> floatingWindows(const QJsonObject& node) {
  const auto size = [&](const char* name) {
    const QJsonObject rectangle = node[name].toObject();
    return QSize(rectangle["width"].toInt(), rectangle["height"].toInt());
  };
  std::vector<QSize> found;
  if (node["type"] == "floating_con" && size("rect") == size("geometry")) {
    found.push_back(size("rect"));
  }
  for (const char* const below : {"nodes", "floating_nodes"}) {
    for (const auto& each : node[below].toArray()) {
      std::ranges::copy(floatingWindows(each.toObject()), std::back_inserter(found));
    }
  }
  return found;
}

// One bar after the other.
TEST_F(DesktopEndToEnd, SwayFloatsItsWindowsAndItsBarsShowWhatTheyShowBest) {
  // Neither the compositor nor what it starts may run as root.
  std::vector<std::string> asOrdinaryUser;
  const std::string place = home.path() + "/sway";
  home.write("sway/waybar.json",
             R"({"modules-right":["tray"],"height":30,"tray":{"icon-size":20}})");
  home.write("sway/style.css", "window#waybar { background: #202020; }");
  home.write("sway/config",
             "xwayland disable\noutput HEADLESS-1 resolution 800x300\n"
             "bar b {\nswaybar_command true\nposition top\nheight 30\ntray_output *\n"
             "workspace_buttons no\n}\n");
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
  environment["SWAYSOCK"] = place + "/ipc";
  environment["WLR_BACKENDS"] = "headless";
  environment["WLR_LIBINPUT_NO_DEVICES"] = "1";
  environment["WLR_RENDERER"] = "pixman";
  environment["LIBSEAT_BACKEND"] = "noop";
  const auto runAsOrdinaryUser = [&](std::vector<std::string> command) {
    command.insert(command.begin(), asOrdinaryUser.begin(), asOrdinaryUser.end());
    return run(command);
  };
  const ChildProcess sway = runAsOrdinaryUser({MARIGOLD_SWAY, "-c", place + "/config"});
  environment.erase("DISPLAY");
  environment["WAYLAND_DISPLAY"] = place + "/wayland-1";
  // It answers once it has set up all that its configuration says.
  const auto sees = [this](const char* what) {
    const std::string answer = run({MARIGOLD_SWAYMSG, "-t", what}).finish().first;
    return QJsonDocument::fromJson(answer.c_str());
  };
  ASSERT_TRUE(eventually([&] {
    return sees("get_outputs")[0]["current_mode"]["width"] == 800 &&
           ::access((place + "/wayland-1").c_str(), F_OK) == 0;
  }));
  const auto columns = [&] {
    runAsOrdinaryUser({MARIGOLD_GRIM, "-t", "ppm", place + "/picture.ppm"}).finish();
    const QImage bar = QImage(QString::fromStdString(place + "/picture.ppm")).copy(620, 0, 180, 30);
    int unlikeFirst = 0;
    for (int x = 0; x < bar.width(); ++x) {
      unlikeFirst += bar.copy(x, 0, 1, 30) == bar.copy(0, 0, 1, 30) ? 0 : 1;
    }
    return unlikeFirst;
  };
  struct Row {
    std::vector<std::string> bar;
    int least = 0;  // columns of it that show something
    int most = 0;
    std::vector<int> heights;  // of the icons that it is offered
  };
  std::vector<QSize> windows;
  for (const auto& [command, least, most, heights] :
       {Row{{MARIGOLD_WAYBAR, "-c", place + "/waybar.json", "-s", place + "/style.css"},
            26,
            100,
            {20}},
        Row{{MARIGOLD_SWAYBAR, "-b", "b"}, 10, 25, {22, 24, 32, 48}}}) {
    SCOPED_TRACE(command.front());
    environment["HOME"] = environment["XDG_RUNTIME_DIR"] = place;
    const ChildProcess bar = runAsOrdinaryUser(command);
    environment["HOME"] = environment["XDG_RUNTIME_DIR"] = home.path();
    if (!program) {
      startProgram();
    }
    int shown = 0;
    EXPECT_TRUE(eventually([&] {
      shown = columns();
      return shown >= least && shown <= most;
    })) << shown
        << ": gauge and text, or a square";

    const QString name = "org.kde.StatusNotifierWatcher";
    const test::BusObject watcher{bus.connect("bar"), name, "/StatusNotifierWatcher", name};
    const QStringList items = watcher.property("RegisteredStatusNotifierItems").toStringList();
    const test::BusObject item{watcher.bus, items.value(0).section('/', 0, 0),
                               "/StatusNotifierItem", "org.kde.StatusNotifierItem"};
    std::vector<int> offered;
    for (const auto& icon : qdbus_cast<QList<DBusPixmap>>(item.property("IconPixmap"))) {
      offered.push_back(icon.height);
    }
    EXPECT_EQ(offered, heights);
    for (const char* const click : {"Activate", "ContextMenu"}) {
      (void)item.ask(click, {0, 0});
      const std::vector<QSize> before = windows;
      EXPECT_TRUE(eventually([&] {
        windows = floatingWindows(sees("get_tree").object());
        return windows.size() == 1 && windows != before && windows[0].height() < 290;
      })) << click;
    }
    QDBusConnection::disconnectFromBus("bar");
  }
  EXPECT_EQ(program->end(), "0");
}

}  // namespace
}  // namespace marigold
