#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QtGui/QAccessible>
#include <QtGui/QPixmap>
#include <QtWidgets/QLabel>
#include <gtest/gtest.h>

#include "PopoverWindow.h"
#include "ScreenPlaces.h"
#include "Strip.h"
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
TEST_F(WidgetsTest, WindowsOpenAtTheItemWhereItCanBe) {
  EXPECT_EQ(fromRootPixels({.x = 300, .y = 30}), (Point{.x = 150, .y = 15}));
  EXPECT_EQ(fromRootPixels({.x = 3000, .y = 30}), (Point{.x = 3000, .y = 30}));
  const QSize size(100, 60);
  const QPoint topRight(400 - 8 - 100, 8);
  EXPECT_EQ(placeNear(std::nullopt, size), topRight);
  for (const auto& [at, place] :
       std::vector<std::pair<Point, QPoint>>{{{.x = 200, .y = 10}, {150, 26}},
                                             {{.x = 200, .y = 390}, {150, 314}},
                                             {{.x = 399, .y = 190}, {292, 206}},
                                             {{.x = 60, .y = 0}, {10, 16}},
                                             {{.x = 10, .y = 399}, {8, 323}},
                                             {{.x = 0, .y = 0}, topRight},
                                             {{.x = 47, .y = 20}, topRight},
                                             {{.x = 200, .y = 400}, topRight},
                                             {{.x = -1, .y = 100}, topRight}}) {
    EXPECT_EQ(placeNear(at, size), place) << at.x << "," << at.y;
  }
  EXPECT_EQ(placeOnScreen({390, -20}, size), QPoint(300, 0));
  EXPECT_EQ(placeOnScreen({9000, 9000}, {500, 500}), QPoint(0, 0));
  qputenv("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_EQ(placeNear(Point{.x = 200, .y = 10}, size), topRight);
}

TEST_F(WidgetsTest, TheStripShowsTheMarkSharplyAndSpeaksIt) {
  for (const auto& [stored, place] : std::vector<std::pair<std::string, QPoint>>{
           {"30,70", {30, 70}}, {"9999,70", {400 - 56, 70}}, {"30;70", {400 - 8 - 56, 8}}}) {
    StatusItemContent content{.tooltip = "5h < 50% & more",
                              .accessibilityLabel = "Marigold",
                              .accessibilityValue = "Codex 5h 42%"};
    content.mark.size = {.width = 39.5, .height = 18};
    content.mark.add(FillRoundedRect{
        .origin = {.x = 0.5, .y = 0.5}, .size = {.width = 0.5, .height = 17}, .color = {.red = 1}});
    std::vector<StatusItemClick> clicks;
    Strip strip({.load = [&stored] { return stored; }, .save = {}});
    strip.onClick = [&](const StatusItemClick& click) { clicks.push_back(click); };
    strip.setContent(content);
    strip.show();
    EXPECT_EQ(strip.pos(), place);
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
    EXPECT_EQ(clicks[0].at, (Point{.x = place.x() + 28.0, .y = place.y() + 26.0}));
    EXPECT_EQ(clicks[1].button, StatusItemClick::Button::right);
  }
}

TEST_F(WidgetsTest, CardsChangeInPlaceWhileThePopoverIsOpen) {
  PopoverWindow popover;
  int closed = 0;
  popover.onClosed = [&] { ++closed; };
  ProviderCard codex{.title = "Codex",
                     .plan = "Plus",
                     .rows = {{.label = "5h", .value = "42%", .subLabel = "in 2h 5m"},
                              {.label = "Weekly", .value = "7%"}}};
  const ProviderCard claude{.title = "Claude",
                            .message =
                                "A <b>long</b> message & more, of more than one line: "
                                "the login that was found is not valid any more."};
  popover.setCards({codex, claude});
  EXPECT_FALSE(popover.isShown());
  popover.open(std::nullopt);
  std::vector<QLabel*> before;
  EXPECT_EQ(texts(&before).join(u'|').toStdString(),
            "Codex|Plus|5h|42%|in 2h 5m|Weekly|7%|Claude|" + claude.message);
  const int height = before.front()->window()->height();

  codex.rows = {{.label = "5h", .value = "43%", .subLabel = "in 2h 4m"}};
  popover.setCards({codex, claude});
  std::vector<QLabel*> after;
  EXPECT_EQ(texts(&after).join(u'|').toStdString(),
            "Codex|Plus|5h|43%|in 2h 4m|Claude|" + claude.message);
  EXPECT_EQ(after.at(3), before.at(3));
  EXPECT_EQ(after.back(), before.back());
  EXPECT_LT(after.front()->window()->height(), height);
  // More than fits the screen scrolls.
  popover.setCards(std::vector(9, claude));
  EXPECT_EQ(after.back()->window()->geometry().height(), 400 - 2 * 8);
  EXPECT_EQ(closed, 0);
  popover.close();
  popover.close();
  EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace marigold
