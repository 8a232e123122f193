#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>
#include <QtDBus/QDBusVirtualObject>
#include <QtGui/QGuiApplication>
#include <QtGui/QPalette>
#include <gtest/gtest.h>

#include "linux/system/LinuxAppearance.h"
#include "linux/system/LinuxEventLoop.h"
#include "support/PrivateBus.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

using Settings = QMap<QString, QVariantMap>;

// The portal's surface; what it answers is the test's.
class FakePortal final : public QDBusVirtualObject {
 public:
  QVariant answer;
  int asked = 0;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
    EXPECT_TRUE(message.member() == "ReadAll" || message.member() == "GetProperty");
    ++asked;
    return bus.send(message.createReply(answer));
  }
  [[nodiscard]] QString introspect(const QString&) const override { return {}; }
};

QVariant wrapped(const QVariant& value) {
  return QVariant::fromValue(QDBusVariant(value));
}

constexpr auto unknown = DarkMenuBar::unknown;
constexpr auto light = DarkMenuBar::no;
constexpr auto dark = DarkMenuBar::yes;

class LinuxAppearanceTest : public testing::Test {
 protected:
  void SetUp() override {
    qDBusRegisterMetaType<Settings>();
    appearance.onChange = [this] { changes.push_back(appearance.settings()); };
  }
  void TearDown() override { QDBusConnection::disconnectFromBus("others"); }

  // Waits for one change, and takes no other.
  void expect(DarkMenuBar ground, bool contrast, bool still, bool darkWindows) {
    EXPECT_TRUE(test::eventually([this] { return !changes.empty(); }));
    EXPECT_EQ(changes, (std::vector{AppearanceSettings{ground, contrast, still, darkWindows}}));
    changes.clear();
  }
  static void usePalette(Qt::GlobalColor window, Qt::GlobalColor text) {
    QPalette palette;
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    QGuiApplication::setPalette(palette);
  }
  test::TemporaryDirectory home;
  test::PrivateBus daemon{home};
  test::ToolkitApplication application;
  LinuxEventLoop loop;
  BusLink link{loop, daemon.address, true};
  LinuxAppearance appearance{link};
  QDBusConnection bus = daemon.connect("others");
  std::vector<AppearanceSettings> changes;
};

TEST_F(LinuxAppearanceTest, FollowsThePortalAndThePalette) {
  const QString service = "org.freedesktop.portal.Desktop";
  const QString object = "/org/freedesktop/portal/desktop";
  FakePortal portal;
  ASSERT_TRUE(bus.registerVirtualObject(object, &portal));
  const auto restart = [&](const Settings& settings) {
    portal.answer = QVariant::fromValue(settings);
    bus.unregisterService(service);
    EXPECT_TRUE(bus.registerService(service));
  };
  const auto say = [&](const char* space, const char* key, const QVariant& value) {
    QDBusMessage signal =
        QDBusMessage::createSignal(object, "org.freedesktop.portal.Settings", "SettingChanged");
    bus.send(signal << space << key << wrapped(value));
  };
  const char* any = "org.freedesktop.appearance";
  const char* gnome = "org.gnome.desktop.interface";

  EXPECT_EQ(appearance.settings(), (AppearanceSettings{unknown, false, false}))
      << "the toolkit's own colours tell nothing";
  usePalette(Qt::white, Qt::black);
  expect(light, false, false, false);
  usePalette(Qt::black, Qt::white);
  expect(dark, false, false, true);

  portal.answer = "not settings";
  ASSERT_TRUE(bus.registerService(service));
  EXPECT_TRUE(test::eventually([&] { return portal.asked == 1; }));
  restart({{any, {{"color-scheme", 2U}, {"contrast", wrapped(1U)}}},
           {gnome, {{"enable-animations", false}, {"font-name", "Sans"}}}});
  expect(light, true, true, false);
  EXPECT_EQ(QGuiApplication::palette().color(QPalette::Window), QColor(Qt::white))
      << "windows as the portal says";
  say(any, "contrast", 2U);
  expect(light, false, true, false);
  say(any, "color-scheme", "1");  // these are of another type or namespace
  say(any, "color-scheme", true);
  say(gnome, "color-scheme", 1U);
  say(gnome, "enable-animations", wrapped(true));
  expect(light, false, false, false);
  say(any, "reduced-motion", 1U);
  expect(light, false, true, false);
  say("org.gnome.desktop.a11y.interface", "high-contrast", true);
  expect(light, true, true, false);
  say(any, "color-scheme", 0U);
  expect(dark, true, true, true);  // as the palette is
  usePalette(Qt::white, Qt::black);
  expect(light, true, true, false);
  say(any, "color-scheme", 1U);
  expect(dark, true, true, true);
  restart({{any, {{"color-scheme", 1U}}}});
  expect(dark, false, false, true);
  EXPECT_LT(qGray(QGuiApplication::palette().color(QPalette::Window).rgb()), 64);
  usePalette(Qt::black, Qt::white);
  EXPECT_EQ(QGuiApplication::palette().color(QPalette::Window), QColor(Qt::black))
      << "a dark theme stays as it is";
}

TEST_F(LinuxAppearanceTest, ABarThatDecidesByItselfGoesFirst) {
  home.write("data/plasma/desktoptheme/night/colors",
             "[Colors:Window]\nBackgroundNormal=49,54,59\n");
  home.write("data/plasma/desktoptheme/day/colors",
             "[Colors:Window]\nBackgroundNormal=239,240,241\n");
  ::qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(home.path()));
  ::qputenv("XDG_DATA_HOME", QByteArray::fromStdString(home.path() + "/data"));
  const auto plasmaHas = [this](const std::string& style) {
    home.write("plasmarc", "[Theme]\nname=" + style + "\n");
  };
  FakePortal panel;  // of its settings
  ASSERT_TRUE(bus.registerVirtualObject("/org/xfce/Xfconf", &panel));
  ASSERT_TRUE(bus.registerService("org.xfce.Xfconf"));
  const auto panelIsDark = [&](const char* channel, bool value) {
    QDBusMessage signal =
        QDBusMessage::createSignal("/org/xfce/Xfconf", "org.xfce.Xfconf", "PropertyChanged");
    bus.send(signal << channel << "/panels/dark-mode" << wrapped(value));
  };
  const auto meet = [this](const char* program) {
    ::prctl(PR_SET_NAME, program);  // the watcher is this process
    bus.unregisterService("org.kde.StatusNotifierWatcher");
    EXPECT_TRUE(bus.registerService("org.kde.StatusNotifierWatcher"));
  };
  usePalette(Qt::white, Qt::black);
  expect(light, false, false, false);
  for (const char* program : {"gnome-shell", "waybar", "swaybar"}) {
    meet(program);
    expect(dark, false, false, false);
    bus.unregisterService("org.kde.StatusNotifierWatcher");
    expect(light, false, false, false);
  }
  panel.answer = wrapped(true);
  meet("xfce4-panel");
  expect(dark, false, false, false);
  panelIsDark("others", false);
  panelIsDark("xfce4-panel", false);
  expect(light, false, false, false);
  plasmaHas("night");
  meet("kded5");
  expect(dark, false, false, false);
  plasmaHas("day");
  expect(light, false, false, false);
  usePalette(Qt::black, Qt::white);
  expect(light, false, false, true);
  plasmaHas("default");
  expect(dark, false, false, true);  // as applications are
}

}  // namespace
}  // namespace marigold
