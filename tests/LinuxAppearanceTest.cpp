#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>
#include <QtDBus/QDBusVirtualObject>
#include <QtGui/QGuiApplication>
#include <QtGui/QPalette>
#include <gtest/gtest.h>

#include "LinuxAppearance.h"
#include "support/DesktopServices.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

using Settings = QMap<QString, QVariantMap>;

// The portal's surface; what it answers is the test's.
class FakePortal final : public QDBusVirtualObject {
 public:
  QVariant answer;
  int asked = 0;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
    EXPECT_EQ(message.member(), "ReadAll");
    ++asked;
    return bus.send(message.createReply(answer));
  }
  [[nodiscard]] QString introspect(const QString&) const override { return {}; }
};

QVariant wrapped(const QVariant& value) {
  return QVariant::fromValue(QDBusVariant(value));
}

void usePalette(Qt::GlobalColor window, Qt::GlobalColor text) {
  QPalette palette;
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  QGuiApplication::setPalette(palette);
}

TEST(LinuxAppearance, FollowsThePortalAndThePalette) {
  const test::TemporaryDirectory home;
  // A bus without any service of the machine's.
  const test::DesktopService daemon({MARIGOLD_DBUS_DAEMON, "--nofork", "--print-address",
                                     "--config-file=" + home.write("bus.conf", R"(<busconfig>
    <listen>unix:dir=)" + home.path() + R"(</listen><policy context="default"><allow own="*"/>
    <allow send_destination="*"/><allow eavesdrop="true"/></policy></busconfig>)")});
  ::qputenv("QT_QPA_PLATFORM", "offscreen");
  int argc = 0;
  const QGuiApplication application(argc, nullptr);
  const QString service = "org.freedesktop.portal.Desktop";
  const QString object = "/org/freedesktop/portal/desktop";
  const QString address = QString::fromStdString(daemon.name());
  QDBusConnection bus = QDBusConnection::connectToBus(address, "portal");
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
  qDBusRegisterMetaType<Settings>();

  usePalette(Qt::white, Qt::black);
  LinuxAppearance appearance(QDBusConnection::connectToBus(address, "client"));
  EXPECT_EQ(appearance.settings(), (AppearanceSettings{false, false, false}));
  std::vector<AppearanceSettings> changes;
  appearance.onChange = [&] { changes.push_back(appearance.settings()); };
  // Waits for one change, and takes no other.
  const auto expect = [&](bool dark, bool contrast, bool still) {
    EXPECT_TRUE(test::turnUntil([&] { return !changes.empty(); }));
    EXPECT_EQ(changes, (std::vector{AppearanceSettings{dark, contrast, still}}));
    changes.clear();
  };
  usePalette(Qt::black, Qt::white);
  expect(true, false, false);

  portal.answer = "not settings";
  ASSERT_TRUE(bus.registerService(service));
  EXPECT_TRUE(test::turnUntil([&] { return portal.asked == 1; }));
  restart({{any, {{"color-scheme", 2U}, {"contrast", wrapped(1U)}}},
           {gnome, {{"enable-animations", false}, {"font-name", "Sans"}}}});
  expect(false, true, true);
  say(any, "contrast", 2U);
  expect(false, false, true);
  say(any, "color-scheme", "1");  // these are of another type or namespace
  say(any, "color-scheme", true);
  say(gnome, "color-scheme", 1U);
  say(gnome, "enable-animations", wrapped(true));
  expect(false, false, false);
  say(any, "reduced-motion", 1U);
  expect(false, false, true);
  say("org.gnome.desktop.a11y.interface", "high-contrast", true);
  expect(false, true, true);
  say(any, "color-scheme", 0U);
  expect(true, true, true);  // as the palette is
  usePalette(Qt::white, Qt::black);
  expect(false, true, true);
  say(any, "color-scheme", 1U);
  expect(true, true, true);
  usePalette(Qt::black, Qt::white);
  restart({{any, {{"color-scheme", 1U}}}});
  expect(true, false, false);
}

TEST(LinuxAppearance, IsOrdinaryWithoutBusAndDisplay) {
  int argc = 0;
  const QCoreApplication application(argc, nullptr);
  const LinuxAppearance appearance(QDBusConnection::connectToBus("unix:path=/nowhere", "none"));
  EXPECT_EQ(appearance.settings(), AppearanceSettings{});
}

}  // namespace
}  // namespace marigold
