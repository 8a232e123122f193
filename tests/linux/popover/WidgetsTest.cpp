#include <algorithm>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <QtGui/QAccessible>
#include <QtGui/QPixmap>
#include <QtGui/QTextDocumentFragment>
#include <QtWidgets/QLabel>
#include <gtest/gtest.h>

#include "linux/item/Strip.h"
#include "linux/popover/PopoverWindow.h"
#include "linux/system/ScreenPlaces.h"
#include "support/ManualEventLoop.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

class WidgetsTest : public testing::Test {
 protected:
  void SetUp() override {
    qunsetenv("WAYLAND_DISPLAY");
    qputenv("QT_SCALE_FACTOR", "2");
    application_.emplace();
  }
  void TearDown() override { qunsetenv("QT_SCALE_FACTOR"); }

  /// All texts that are shown, from top to bottom.
  static QStringList texts(std::vector<QLabel*>* labels = nullptr) {
    std::vector<QLabel*> found;
    for (QWidget* const widget : QApplication::allWidgets()) {
      if (auto* const label = qobject_cast<QLabel*>(widget);
          label != nullptr && label->isVisible()) {
        found.push_back(label);
      }
    }
    const auto place = [](const QLabel* label) {
      const QPoint point = label->mapToGlobal(QPoint());
      return std::pair(point.y() / 4, point.x());
    };
    std::ranges::sort(found, {}, place);
    QStringList result;
    for (const QLabel* const label : found) {
      EXPECT_GE(label->width(), label->wordWrap() ? 0 : label->sizeHint().width());
      EXPECT_GE(label->height(), label->heightForWidth(label->width()));
      result.append(label->text());
    }
    if (labels != nullptr) {
      *labels = found;
    }
    return result;
  }

 private:
  std::optional<test::ToolkitApplication> application_;
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
    test::ManualEventLoop loop;
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
  test::ManualEventLoop loop;
  const ItemPlace nowhere;
  PopoverWindow popover(loop, nowhere);
  int closed = 0;
  popover.onClosed = [&] { ++closed; };
  ProviderCard codex{.title = "Codex",
                     .plan = "Plus",
                     .blocks = {CardRow{.label = "5h", .value = "42%", .subLabel = "in 2h 5m"},
                                CardRow{.label = "Weekly", .value = "7%"}}};
  const std::string message =
      "A <b>long</b> message & more, of more than one line: "
      "the login that was found is not valid any more.";
  const ProviderCard claude{.title = "Claude", .blocks = {CardText{message}}};
  popover.setContent({.cards = {codex, claude}});
  EXPECT_FALSE(popover.isShown());
  popover.open();
  std::vector<QLabel*> before;
  EXPECT_EQ(texts(&before).join(u'|').toStdString(),
            "Codex|Plus|5h|42%|in 2h 5m|Weekly|7%|Claude|" + message);
  const int height = before.front()->window()->height();

  codex.blocks = {CardRow{.label = "5h", .value = "43%", .subLabel = "in 2h 4m"}};
  popover.setContent({.cards = {codex, claude}});
  std::vector<QLabel*> after;
  EXPECT_EQ(texts(&after).join(u'|').toStdString(), "Codex|Plus|5h|43%|in 2h 4m|Claude|" + message);
  EXPECT_EQ(after.at(3), before.at(3));
  EXPECT_EQ(after.back(), before.back());
  EXPECT_LT(after.front()->window()->height(), height);
  // A long plan makes way, and rows turn around as a whole.
  codex.plan = std::string(200, 'x');
  popover.setContent({.cards = {codex}});
  const auto edges = [&](const char* text) {
    QCoreApplication::processEvents();
    for (const QLabel* const label : after.front()->window()->findChildren<QLabel*>()) {
      if (label->text() == text) {
        const int left = label->mapTo(label->window(), QPoint()).x();
        return std::pair(left, left + label->width());
      }
    }
    return std::pair(0, 0);
  };
  const int width = after.front()->window()->width();
  EXPECT_LT(edges("43%").second, width);
  EXPECT_EQ(edges(codex.plan.c_str()).second, edges("43%").second);
  EXPECT_LT(edges("5h").first, edges("43%").first);
  QApplication::setLayoutDirection(Qt::RightToLeft);
  popover.setContent({.cards = {codex}});
  EXPECT_GT(edges("5h").first, edges("43%").first);
  EXPECT_GT(edges("Codex").first, edges(codex.plan.c_str()).first);
  QApplication::setLayoutDirection(Qt::LeftToRight);
  // More than fits the screen scrolls.
  popover.setContent({.cards = {claude}});
  const auto unscrolled = edges(message.c_str());
  popover.setContent({.cards = std::vector(9, claude)});
  EXPECT_EQ(edges(message.c_str()), unscrolled) << "no narrower by the bar";
  EXPECT_EQ(after.front()->window()->geometry().height(), 400 - 2 * 8);
  EXPECT_EQ(closed, 0);
  popover.close();
  popover.close();
  EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace marigold
