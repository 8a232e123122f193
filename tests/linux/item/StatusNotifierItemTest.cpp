#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>
#include <QtGui/QImage>
#include <gmock/gmock.h>
#include <sys/prctl.h>

#include "linux/item/DBusMenuLayout.h"
#include "linux/item/StatusNotifierItem.h"
#include "linux/item/StatusNotifierStructures.h"
#include "support/PrivateBus.h"
#include "support/ToolkitApplication.h"
#include "support/TrayHost.h"

namespace marigold {

namespace {

using test::eventually;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// The signature of a value as it came over the bus.
std::string signatureOf(const QVariant& value) {
  return value.metaType() == QMetaType::fromType<QDBusArgument>()
             ? value.value<QDBusArgument>().currentSignature().toStdString()
             : std::string(QDBusMetaType::typeToSignature(value.metaType()));
}

std::string signaturesOf(const QVariantMap& properties) {
  std::string result;
  for (auto each = properties.begin(); each != properties.end(); ++each) {
    result += each.key().toStdString() + " " + signatureOf(each.value()) + "\n";
  }
  return result;
}

/// The last word of the error that refused a call.
std::string refusal(const QVariantList& answer) {
  return answer.value(0).toString().section('.', -1).toStdString();
}

/// Events as EventGroup takes them.
QVariant events(QList<DBusMenuEvent> all) {
  for (DBusMenuEvent& event : all) {
    event.data = QDBusVariant(0);
  }
  return QVariant::fromValue(all);
}

// An item with a host that came after it, on a bus that serves all tests here because a process
// looks for its session's bus once.
class StatusNotifier : public testing::Test {
 protected:
  static inline std::optional<test::PrivateBus> bus;
  static void SetUpTestSuite() {
    static int argc = 0;
    static const QCoreApplication application(argc, nullptr);
    static const test::TemporaryDirectory home;
    if (!bus) {
      qputenv("DBUS_SESSION_BUS_ADDRESS", bus.emplace(home).address.c_str());
    }
  }
  void SetUp() override {
    item->connectTo(sessionBus().toStdString());
    host.emplace(sessionBus(), "host");
    ASSERT_TRUE(becomesAvailable());
  }

  static QString sessionBus() { return qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"); }
  bool becomesAvailable() {
    return eventually([this] { return item->available(); });
  }

  std::unique_ptr<StatusNotifierItem> item = std::make_unique<StatusNotifierItem>(false);
  std::optional<test::TrayHost> host;
};

TEST_F(StatusNotifier, OffersWhatHostsReadInTheTypesTheyExpect) {
  QImage image(3, 2, QImage::Format_ARGB32);
  image.fill(0x80402010);
  image.setPixel(2, 1, 0x01020304);
  item->setPixmaps({image});
  item->setToolTip("R&D <5h>", "first\nR&D");
  item->setLabel("37%");

  const QVariantMap properties = host->itemProperties();
  EXPECT_EQ(signaturesOf(properties),
            "AttentionIconName s\nAttentionIconPixmap a(iiay)\nAttentionMovieName s\nCategory s\n"
            "IconAccessibleDesc s\nIconName s\nIconPixmap a(iiay)\nIconThemePath s\nId s\n"
            "ItemIsMenu b\nMenu o\nOverlayIconName s\nOverlayIconPixmap a(iiay)\nStatus s\n"
            "Title s\nToolTip (sa(iiay)ss)\nWindowId i\nXAyatanaLabel s\nXAyatanaLabelGuide s\n");
  EXPECT_EQ(properties["Id"], "marigold");
  EXPECT_EQ(properties["ItemIsMenu"], false);
  EXPECT_EQ(properties["XAyatanaLabel"], "37%");
  EXPECT_EQ(signaturesOf(host->properties("/MenuBar", "com.canonical.dbusmenu")),
            "IconThemePath as\nStatus s\nTextDirection s\nVersion u\n");

  const auto icons = qdbus_cast<QList<DBusPixmap>>(properties["IconPixmap"]);
  ASSERT_EQ(icons.size(), 1);
  EXPECT_EQ(QSize(icons[0].width, icons[0].height), image.size());
  EXPECT_EQ(icons[0].pixels.toHex(' '),
            "80 40 20 10 80 40 20 10 80 40 20 10 80 40 20 10 80 40 20 10 01 02 03 04");
  const auto tip = qdbus_cast<DBusToolTip>(properties["ToolTip"]);
  EXPECT_EQ(tip.title.toStdString(), "R+D ‹5h›");
  EXPECT_EQ(tip.text, "first\nR+D");
}

TEST_F(StatusNotifier, TellsEachChangeOnceATurn) {
  const auto heard = [&] {
    eventually([&] { return !host->heard.empty(); });
    host->itemProperties();  // answered after the signals of the same turn
    return std::exchange(host->heard, {});
  };
  item->onMenuRead = [](bool) {
    ADD_FAILURE() << "no host has read the menu";
    return std::vector<MenuItem>();
  };
  for (const uint shade : {1U, 2U, 3U}) {
    QImage image(1, 1, QImage::Format_ARGB32);
    image.fill(shade);
    item->setPixmaps({image});
  }
  item->setToolTip("tip", "tip");
  item->setLabel("2%");
  EXPECT_THAT(heard(), UnorderedElementsAre("NewIcon", "NewToolTip", "XAyatanaNewLabel"));
  item->setToolTip("another", "tip");
  item->setToolTip("tip", "tip");
  item->setLabel("2%");
  item->setAccessibleDescription("Marigold");
  EXPECT_THAT(heard(), ElementsAre("NewIcon")) << "it is read with the icon";
}

TEST_F(StatusNotifier, FindsWatchersThatComeBack) {
  const QString name = host->item;
  int told = 0;
  item->onAvailabilityChange = [&] { ++told; };
  EXPECT_FALSE(item->hostIsWaybar());
  host.reset();
  EXPECT_TRUE(eventually([&] { return told >= 1; }));
  EXPECT_FALSE(item->available());

  ::prctl(PR_SET_NAME, "swaybar");  // the watcher is this process
  host.emplace(sessionBus(), "swaybar");
  EXPECT_TRUE(becomesAvailable());
  QImage image(1, 1, QImage::Format_ARGB32);
  image.fill(0x80FF0000);
  item->setPixmaps({image});
  const auto icons = qdbus_cast<QList<DBusPixmap>>(host->itemProperties()["IconPixmap"]);
  EXPECT_EQ(icons.value(0).pixels.toHex(' '), "80 80 00 00") << "premultiplied";
  host.reset();
  EXPECT_TRUE(eventually([&] { return !item->available(); }));

  ::prctl(PR_SET_NAME, "waybar");
  host.emplace(sessionBus(), "again", false);
  EXPECT_TRUE(eventually([&] { return item->hostIsWaybar(); }));
  host->itemProperties();
  EXPECT_FALSE(item->available()) << "nobody shows the item";
  host->gainHost();
  EXPECT_TRUE(becomesAvailable());
  EXPECT_EQ(host->item, name);
  ::prctl(PR_SET_NAME, "tests");
  item.reset();
  EXPECT_TRUE(
      eventually([&] { return refusal(host->askItem("Activate", {1, 2})) == "ServiceUnknown"; }));
}

TEST_F(StatusNotifier, HandsOnClicksThatMayEndTheItem) {
  std::string clicks;
  item->onContextMenu = [&](int x, int y) { clicks += "c" + std::to_string(x + y); };
  item->onActivate = [&](int x, int y) {
    clicks += "a" + std::to_string(x - y) + item->takeActivationToken();
    item.reset();
  };
  host->askItem("ContextMenu", {1, 2});
  host->askItem("SecondaryActivate", {1, 2});
  host->askItem("Scroll", {120, "vertical"});
  host->askItem("ProvideXdgActivationToken", {"token"});
  host->askItem("ProvideXdgActivationToken", {""});
  EXPECT_EQ(host->askItem("Activate", {7, -2}), QVariantList{});
  EXPECT_TRUE(eventually([&] { return item == nullptr; }));
  EXPECT_EQ(clicks, "c3a9token");
}

TEST_F(StatusNotifier, ExportsTheMenuAndFollowsItsChanges) {
  std::string ran;
  bool on = false;
  int opened = 0;
  std::string title = "one";
  const auto radio = [&](const std::string& text, bool checked) {
    return MenuItem{.kind = MenuItem::Kind::radio,
                    .title = text,
                    .checked = checked,
                    .indent = 1,
                    .action = [&ran, text] { ran += text; }};
  };
  item->onMenuRead = [&](bool opening) {
    opened += opening ? 1 : 0;
    MenuItem checkbox{.kind = MenuItem::Kind::checkbox, .title = "a_b & c", .checked = on};
    checkbox.action = [&] { item.reset(); };
    MenuItem sub{.kind = MenuItem::Kind::submenu, .title = "sub"};
    sub.items = {radio(title, false), radio("two", true)};
    return std::vector<MenuItem>{
        checkbox,
        MenuItem::separator(),
        {.title = "off", .enabled = false, .action = [&] { ran += "disabled"; }},
        sub};
  };
  QList<int> ids;
  const auto layout = [&](int id = 0, int depth = -1, const QStringList& names = {}) {
    ids.clear();
    return test::menuText(host->layout(id, depth, names), ids);
  };
  EXPECT_EQ(layout(), "(a__b & cc;separator;off~;sub(    oner;    twor*;);)");
  EXPECT_EQ(opened, 0) << "reading is not opening";
  const QList<int> atFirst = ids;
  EXPECT_EQ(layout(atFirst.value(4)), "sub(    oner;    twor*;)");
  EXPECT_EQ(layout(0, 1, {"label", "children-display"}), "(a__b & c;;off;sub();)");

  host->heard.clear();
  EXPECT_EQ(host->askMenu("AboutToShow", {0}), QVariantList{false});
  on = true;
  EXPECT_EQ(host->askMenu("AboutToShow", {0}), QVariantList{true});
  EXPECT_EQ(opened, 2);
  EXPECT_THAT(host->heard, ElementsAre("ItemsPropertiesUpdated", "LayoutUpdated"));
  title = "three";
  EXPECT_EQ(layout(), "(a__b & cc*;separator;off~;sub(    threer;    twor*;);)");
  EXPECT_EQ(ids.first(5), atFirst.first(5));
  EXPECT_FALSE(ids.contains(atFirst[5]) || ids.contains(atFirst[6])) << "another level now";

  const int stale = atFirst[6];
  const QVariantList unknown = host->askMenu(
      "EventGroup", {events({{stale, "clicked"}, {ids[3], "clicked"}, {ids[6], "hovered"}})});
  EXPECT_EQ(qdbus_cast<QList<int>>(unknown.value(0)), QList<int>{stale});
  // Some hosts never tell that they open it.
  const auto follows = [&] {
    return eventually(
        [&] { return !host->heard.empty() && host->heard.back() == "LayoutUpdated"; });
  };
  host->heard.clear();
  title = "four";
  host->askMenu("EventGroup", {events({{ids[6], "clicked"}})});
  EXPECT_TRUE(follows()) << "what was chosen";
  host->heard.clear();
  on = false;
  item->setLabel("1%");
  EXPECT_TRUE(follows()) << "what is shown";
  host->askMenu("EventGroup", {events({{ids[1], "clicked"}})});
  EXPECT_TRUE(eventually([&] { return item == nullptr; })) << "an action may end the item";
  EXPECT_EQ(ran, "two");
}

TEST_F(StatusNotifier, AnswersHostileCalls) {
  item->onMenuRead = [](bool) { return std::vector<MenuItem>{{.title = "only"}}; };
  constexpr int lowest = std::numeric_limits<int>::min();
  const QStringList none;
  QList<int> ids;
  EXPECT_EQ(test::menuText(host->layout(0, lowest), ids), "(only;)");
  const QVariant zeros = QVariant::fromValue(QList<int>(1000, 0));
  EXPECT_EQ(signatureOf(host->askMenu("GetGroupProperties", {zeros, none}).value(0)), "a(ia{sv})");
  const QVariantList strangers =
      host->askMenu("AboutToShowGroup", {QVariant::fromValue(QList<int>{0, 99, lowest})});
  EXPECT_EQ(qdbus_cast<QList<int>>(strangers.value(0)), QList<int>{});
  EXPECT_EQ(qdbus_cast<QList<int>>(strangers.value(1)), (QList<int>{99, lowest}));

  const QVariant value = QVariant::fromValue(QDBusVariant("x"));
  const QVariant time = QVariant::fromValue(0U);
  for (const auto& [method, arguments, word] :
       {std::tuple<const char*, QVariantList, const char*>{
            "GetLayout", {99, 1, none}, "InvalidArgs"},
        {"GetProperty", {99, "label"}, "InvalidArgs"},
        {"GetProperty", {0, "label"}, "InvalidArgs"},
        {"AboutToShow", {lowest}, "InvalidArgs"},
        {"Event", {99, "clicked", value, time}, "InvalidArgs"},
        {"Event", {"clicked"}, "UnknownMethod"},
        {"refresh", {true}, "UnknownMethod"}}) {
    EXPECT_EQ(refusal(host->askMenu(method, arguments)), word) << method;
  }
  EXPECT_EQ(refusal(host->askItem("hostsChanged")), "UnknownMethod");
  EXPECT_EQ(refusal(host->ask("/StatusNotifierItem", "org.freedesktop.DBus.Properties", "Set",
                              {"org.kde.StatusNotifierItem", "Title", value})),
            "PropertyReadOnly");
}

TEST_F(StatusNotifier, IsQuietlyUnavailableUntilThereIsABus) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a process with a bus of its own
  EXPECT_EXIT(
      {
        bus->stop();
        bool fine = eventually([&] { return !item->available(); });
        StatusNotifierItem late(true);
        late.connectTo(sessionBus().toStdString());
        late.setLabel("37%");
        QCoreApplication::processEvents();
        fine = fine && !late.available();
        host.reset();
        bus->restart();
        item->connectTo(sessionBus().toStdString());
        host.emplace(sessionBus(), "later");
        std::_Exit(fine && becomesAvailable() && !host->item.isEmpty() ? EXIT_SUCCESS
                                                                       : EXIT_FAILURE);
      },
      testing::ExitedWithCode(EXIT_SUCCESS), "^$");
}

}  // namespace
}  // namespace marigold

#include "StatusNotifierItemTest.moc"
