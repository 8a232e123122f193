#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <QtGui/QAccessible>
#include <QtGui/QKeyEvent>
#include <QtGui/QPixmap>
#include <QtGui/QTextDocumentFragment>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QRadioButton>
#include <QtWidgets/QScrollArea>
#include <gtest/gtest.h>

#include "linux/item/Strip.h"
#include "linux/popover/PopoverWindow.h"
#include "linux/system/ScreenPlaces.h"
#include "support/ManualEventLoop.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

/// How often a widget was painted.
class PaintCounter final : public QObject {
 public:
  explicit PaintCounter(QWidget& widget) { widget.installEventFilter(this); }
  int count = 0;

 private:
  bool eventFilter(QObject* /*watched*/, QEvent* event) override {
    count += event->type() == QEvent::Paint ? 1 : 0;
    return false;
  }
};

class WidgetsTest : public testing::Test {
 private:
  const bool atScale_ = qputenv("QT_SCALE_FACTOR", "2");
  test::ToolkitApplication application_;

 protected:
  void TearDown() override { qunsetenv("QT_SCALE_FACTOR"); }

  test::ManualEventLoop loop;
  const ItemPlace nowhere;
  PopoverWindow popover{loop, nowhere};

  /// The popover's window.
  static QWidget& window() {
    const QWidgetList all = QApplication::topLevelWidgets();
    return **std::ranges::find_if(all, &QWidget::isVisible);
  }

  /// What is spoken of `object` and all in it, in this order, and how.
  static std::string spoken(const QAccessibleInterface& object) {
    std::string text;
    if (object.state().invisible) {
      return text;
    }
    if (const QString name = object.text(QAccessible::Name); !name.isEmpty()) {
      text = name.toStdString();
      text += object.state().checked || object.state().expanded ? "*" : "";
      text += object.state().collapsed ? "+" : "";
      switch (object.role()) {
        case QAccessible::Dialog:
        case QAccessible::Grouping:
          text += ':';
          break;
        case QAccessible::StaticText:
          break;
        default:
          text = '[' + text + ']';
      }
      text += '|';
    }
    for (int i = 0; i < object.childCount(); ++i) {
      text += spoken(*object.child(i));
    }
    return text;
  }
  static std::string spoken() { return spoken(*QAccessible::queryAccessibleInterface(&window())); }

  /// A widget by its accessible name.
  template <class Kind>
  static Kind& named(const std::string& name) {
    const auto all = window().findChildren<Kind*>();
    const auto found = std::ranges::find_if(all, [&](Kind* each) {
      return each->isVisible() &&
             QAccessible::queryAccessibleInterface(each)->text(QAccessible::Name).toStdString() ==
                 name;
    });
    if (found == all.end()) {
      throw std::logic_error("no " + name);
    }
    return **found;
  }

  static void press(int key, Qt::KeyboardModifiers modifiers = {}, const QString& text = {}) {
    QWidget* const focused = window().focusWidget();
    QKeyEvent shortcut(QEvent::ShortcutOverride, key, modifiers, text);
    QWidget& target = focused != nullptr ? *focused : window();
    QApplication::sendEvent(&target, &shortcut);
    QKeyEvent down(QEvent::KeyPress, key, modifiers, text);
    QApplication::sendEvent(&target, &down);
    QKeyEvent up(QEvent::KeyRelease, key, modifiers, text);
    QApplication::sendEvent(&target, &up);
    for (int i = 0; i < 4; ++i) {
      QCoreApplication::processEvents();
    }
  }
};

// The screen has 800 x 800 pixels, two to a point each way.
TEST_F(WidgetsTest, WindowsOpenAtTheItemAndNeverOverIt) {
  const QSize size(100, 60);
  const QRect corner(QPoint(400 - 8 - 100, 8), size);
  EXPECT_EQ(openingAt({}, size), corner);
  for (const auto& [item, wanted, opening] : std::vector<std::tuple<QRect, QSize, QRect>>{
           {{180, 0, 40, 20}, size, {150, 26, 100, 60}},
           {{180, 380, 40, 20}, size, {150, 314, 100, 60}},
           {{380, 190, 20, 10}, size, {292, 206, 100, 60}},
           {{0, 190, 4, 10}, size, {10, 165, 100, 60}},
           {{396, 190, 4, 10}, size, {290, 165, 100, 60}},
           {{40, 170, 60, 26}, {250, 300}, {106, 33, 250, 300}},
           {{170, 170, 60, 26}, {250, 300}, {75, 202, 250, 190}}}) {
    EXPECT_EQ(openingAt({item}, wanted), opening) << item.x() << "," << item.y();
  }
  EXPECT_EQ(placeOnScreen({390, -20}, size), QPoint(300, 0));
  EXPECT_EQ(placeOnScreen({9000, 9000}, {500, 500}), QPoint(0, 0));
}

TEST_F(WidgetsTest, HostsTellPlacesInOneUnitOrAnother) {
  qunsetenv("WAYLAND_DISPLAY");
  const auto icon = [](QPoint middle) { return QRect(middle - QPoint(24, 24), QSize(49, 49)); };
  const std::optional<QRect> none;
  for (const auto& [told, pointer, area] :
       std::vector<std::tuple<QPoint, QPoint, std::optional<QRect>>>{
           {{300, 60}, {150, 30}, icon({150, 30})},  // pixels
           {{150, 60}, {150, 60}, icon({150, 60})},  // points
           {{300, 60}, {300, 62}, icon({300, 60})},  // though they could be pixels
           {{75, 50}, {150, 100}, icon({75, 50})},   // from the keyboard: what comes closest
           {{0, 0}, {390, 10}, none},                // within the host's window
           {{47, 20}, {390, 10}, none},
           {{40, 20}, {38, 22}, icon({40, 20})},  // truly in the corner
           {{3000, 30}, {390, 10}, none},
           {{-1, 100}, {0, 100}, none}}) {
    EXPECT_EQ(clickedIcon(told, pointer), area) << told.x() << "," << told.y();
  }
  qputenv("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_EQ(clickedIcon({300, 60}, {150, 30}), none);
  qunsetenv("WAYLAND_DISPLAY");
}

TEST_F(WidgetsTest, TheStripShowsTheMarkSharplyAndSpeaksIt) {
  for (const auto& [stored, place] : std::vector<std::pair<std::string, QPoint>>{
           {"30,70", {30, 70}}, {"9999,70", {400 - 56, 70}}, {"30;70", {400 - 8 - 56, 8}}}) {
    StatusItemContent content{.tooltip = "5h < 50% & more\nWeekly",
                              .tooltipTitle = "[Dev] <5h>",
                              .accessibilityLabel = "Marigold",
                              .accessibilityValue = "Codex 5h 42%"};
    content.mark.size = {.width = 39.5, .height = 18};
    content.mark.add(FillRoundedRect{
        .origin = {.x = 0.5, .y = 0.5}, .size = {.width = 0.5, .height = 17}, .color = {.red = 1}});
    std::vector<StatusItemClick> clicks;
    std::optional<QRect> area;
    Strip strip(loop, {.load = [&stored] { return stored; }, .save = {}});
    strip.onClick = [&](const auto& click, const auto& at) {
      clicks.push_back(click);
      area = at;
    };
    strip.setContent(content);
    strip.show();
    EXPECT_EQ(strip.pos(), place);
    EXPECT_EQ(QTextDocumentFragment::fromHtml(strip.toolTip()).toPlainText(),
              "[Dev] <5h>\n5h < 50% & more\nWeekly");
    content.tooltip = content.tooltipTitle = "5h 42%";
    strip.setContent(content);
    EXPECT_EQ(strip.toolTip(), "5h 42%");
    const QImage image = strip.grab().toImage();
    EXPECT_EQ(image.size(), QSize(2 * 56, 2 * 26));
    for (const auto& [x, isMark] : {std::pair{16, false}, {17, true}, {18, false}}) {
      EXPECT_EQ(image.pixelColor(x, 26) == QColor(Qt::red), isMark) << x;
    }
    auto* const spoken = QAccessible::queryAccessibleInterface(&strip);
    EXPECT_EQ(spoken->role(), QAccessible::Button);
    EXPECT_EQ(spoken->text(QAccessible::Name), "Marigold");
    EXPECT_EQ(spoken->text(QAccessible::Value), "Codex 5h 42%");
    EXPECT_EQ(spoken->text(QAccessible::Description), "Codex 5h 42%");
    spoken->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    spoken->actionInterface()->doAction(QAccessibleActionInterface::showMenuAction());
    ASSERT_EQ(clicks.size(), 2U);
    EXPECT_EQ(clicks[0].button, StatusItemClick::Button::left);
    EXPECT_EQ(area, QRect(place, QSize(56, 26)));
    EXPECT_EQ(clicks[1].button, StatusItemClick::Button::right);
  }
}

TEST_F(WidgetsTest, CardsChangeInPlaceWhileThePopoverIsOpen) {
  int closed = 0;
  popover.onClosed = [&] { ++closed; };
  const auto row = [](std::string label, const std::string& value) {
    return CardRow{.label = std::move(label), .value = value, .spoken = "at " + value};
  };
  const std::string message =
      "A <b>long</b> message & more, of more than one line: "
      "the login that was found is not valid any more.";
  std::vector<std::string> pressed;
  ProviderCard codex{.key = "codex",
                     .title = "Codex",
                     .plan = "Plus",
                     .badge = CardBadge{.text = "off"},
                     .blocks = {row("5h", "42%"), row("Weekly", "7%"), CardText{message},
                                CardButton{.title = "Try Again", .press = Handler([&](int) {
                                                                   pressed.emplace_back("again");
                                                                 })},
                                CardDisclosure{.title = "What", .paragraphs = {"This."}}}};
  popover.setContent({.cards = {codex}});
  EXPECT_FALSE(popover.isShown());
  popover.open();
  const std::string buttons = "[Refresh Now]|[Settings]|";
  EXPECT_EQ(spoken(), "Marigold:|" + buttons + "Codex:|Plus|off|at 42%|at 7%|" + message +
                          "|[Try Again]|[What+]|");
  named<QPushButton>("What").click();
  auto& label = named<QLabel>(message);
  label.setSelection(2, 4);
  EXPECT_GT(label.height(), 2 * label.fontMetrics().height());
  const int height = window().height();
  QCoreApplication::sendPostedEvents();
  EXPECT_GT(window().height(), height);

  // What is above another text stays, and so does what does not change.
  PaintCounter stays(named<QWidget>("at 7%"));
  PaintCounter changes(named<QWidget>("at 42%"));
  const QWidget* const before = &named<QWidget>("at 42%");
  const int idle = named<QPushButton>("Try Again").width();
  codex.blocks[0] = row("5h", "43%");
  codex.blocks.insert(codex.blocks.begin(), CardText{"Last reading before this"});
  std::get<CardButton>(codex.blocks[4]).busy = true;
  popover.setContent({.cards = {codex}});
  QCoreApplication::sendPostedEvents();
  EXPECT_EQ(spoken(), "Marigold:|" + buttons +
                          "Codex:|Plus|off|Last reading before this|at 43%|at 7%|" + message +
                          "|[Try Again]|[What*]|This.|");
  EXPECT_EQ(&named<QWidget>("at 43%"), before);
  EXPECT_EQ(label.selectedText(), "<b>l");
  EXPECT_FALSE(named<QPushButton>("Try Again").isEnabled());
  EXPECT_GT(named<QPushButton>("Try Again").width(), idle) << "shows no progress";
  QCoreApplication::processEvents();
  stays.count = changes.count = 0;
  codex.blocks[1] = row("5h", "44%");
  popover.setContent({.cards = {codex}});
  QCoreApplication::processEvents();
  EXPECT_EQ(stays.count, 0);
  EXPECT_EQ(changes.count, 1);

  // A long plan makes way for the badge, and all turns around as a whole.
  codex.plan = std::string(200, 'x');
  std::get<CardButton>(codex.blocks[4]) = {.title = "Again…"};
  std::vector<QImage> looks;
  for (const bool mirrored : {false, true}) {
    QApplication::setLayoutDirection(mirrored ? Qt::RightToLeft : Qt::LeftToRight);
    popover.setContent({.cards = {codex}});
    const QRect plan = named<QLabel>(codex.plan).geometry();
    const QRect badge = named<QLabel>("off").geometry();
    EXPECT_LT(mirrored ? badge.right() : plan.right(), mirrored ? plan.left() : badge.left());
    EXPECT_GE(badge.width(), named<QLabel>("off").sizeHint().width());
    EXPECT_EQ(named<QLabel>(codex.plan).toolTip().toStdString(), codex.plan);
    looks.push_back(named<QPushButton>("Again…").grab().toImage());
  }
  EXPECT_EQ(looks[0], looks[1]) << "texts run their own way";
  QApplication::setLayoutDirection(Qt::LeftToRight);
  // More than fits the screen scrolls.
  popover.setContent({.cards = std::vector(9, codex)});
  EXPECT_EQ(window().geometry().height(), 400 - 2 * 8);
  EXPECT_EQ(closed, 0);
  popover.close();
  popover.close();
  EXPECT_EQ(closed, 1);
  popover.open();
  EXPECT_EQ(spoken().find("[What*]"), std::string::npos) << "each opening begins anew";
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(window().findChildren<QScrollArea*>().size(), 1) << "nothing is left of the last";
}

TEST_F(WidgetsTest, TheKeyboardReachesAllOfTheSettings) {
  std::vector<std::string> used;
  PopoverContent content;
  const auto row = [&](const std::string& title, auto control,
                       const std::vector<SettingsRow>& details = {}) {
    return SettingsRow{.key = title,
                       .title = title,
                       .control = control,
                       .details = details,
                       .detailsTitle = title + ": details",
                       .use = Handler([&used, title](int choice) {
                         used.push_back(title + ' ' + std::to_string(choice));
                       })};
  };
  const std::vector<SettingsOption> options{{.title = "a"}, {.title = "b"}, {.title = "c"}};
  using Kind = SettingsChoice::Kind;
  content.settings = {
      .title = "Settings",
      .sections = {
          {.title = "Assistants",
           .rows = {row("Claude", SettingsSwitch{true}, {row("Order", SettingsMoves{true, false})}),
                    row("Codex", SettingsSwitch{}, {row("Window", SettingsSwitch{})})}},
          {.title = "Bar",
           .rows = {row("Menu", SettingsChoice{.kind = Kind::menu, .options = options}),
                    row("Style", SettingsChoice{Kind::segments, options, 1}),
                    row("Color", SettingsChoice{Kind::colors, options, 2}),
                    row("Data", SettingsButton{.title = "Clear",
                                               .confirmation =
                                                   Confirmation{"Sure?", "Gone.", "Yes", "No"}}),
                    row("Note", SettingsNote{}), row("Quit", SettingsButton{})}}}};
  content.refreshNow = Handler([&](int) { used.emplace_back("refresh"); });
  content.showPage = Handler([&](int page) {
    content.page = static_cast<PopoverContent::Page>(page);
    popover.setContent(content);
  });
  popover.setContent(content);
  popover.open();
  window().activateWindow();
  const QPoint corner = window().geometry().topRight();
  press(Qt::Key_F5);
  press(Qt::Key_R, Qt::ControlModifier);
  press(Qt::Key_Comma, Qt::ControlModifier);
  EXPECT_EQ(std::exchange(used, {}), (std::vector<std::string>{"refresh", "refresh"}));
  EXPECT_EQ(window().geometry().topRight(), corner);
  EXPECT_EQ(
      spoken(),
      "Marigold:|[Back]|Settings:|Assistants:|[Claude: details*]|[Claude*]|Order:|[Move up]|"
      "[Move down]|[Codex: details+]|[Codex]|Bar:|Menu:|[a]|Style:|[a]|[b*]|[c]|Color:|[a]|[b]|"
      "[c*]|Data:|[Clear]|Note|[Quit]|");

  // Once through everything, using what is there.
  std::string way;
  named<QPushButton>("Back").setFocus(Qt::TabFocusReason);
  for (int step = 0; step < 10; ++step) {
    press(Qt::Key_Tab);
    QWidget& station = *window().focusWidget();
    EXPECT_GE(std::min(station.width(), station.height()), 24) << way;
    way += QAccessible::queryAccessibleInterface(&station)->text(QAccessible::Name).toStdString() +
           '|';
    if (qobject_cast<QRadioButton*>(&station) != nullptr) {
      press(Qt::Key_Left);
    } else if (qobject_cast<QComboBox*>(&station) != nullptr) {
      press(Qt::Key_Down);
      press(Qt::Key_R, Qt::ControlModifier, "\x12");
    } else {
      press(Qt::Key_Space, {}, " ");
    }
  }
  EXPECT_EQ(way, "Claude: details|Claude|Codex: details|Codex|Window|a|b|c|Clear|Yes|");
  EXPECT_EQ(std::exchange(used, {}),
            (std::vector<std::string>{"Claude 0", "Codex 1", "Window 1", "Menu 1", "refresh",
                                      "Style 0", "Color 1", "Data 0"}));
  EXPECT_NE(spoken().find("[Claude*]|[Codex: details*]|[Codex]|[Window]|Bar:|Menu:|[a]|Style:|[a]|"
                          "[b*]|[c]|Color:|[a]|[b]|[c*]|"),
            std::string::npos)
      << "none of it was taken: " << spoken();
  named<QPushButton>("Clear").click();
  named<QPushButton>("Back").click();
  press(Qt::Key_Comma, Qt::ControlModifier);
  named<QPushButton>("Clear").click();
  press(Qt::Key_Escape);
  EXPECT_TRUE(named<QPushButton>("Clear").hasFocus()) << "asked no more";
  press(Qt::Key_Escape);
  EXPECT_EQ(content.page, PopoverContent::Page::cards);
  press(Qt::Key_Escape);
  EXPECT_FALSE(popover.isShown());
  EXPECT_EQ(used, std::vector<std::string>());
}

}  // namespace
}  // namespace marigold
