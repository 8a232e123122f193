// The widgets on a real X11 desktop: server, window manager, tray, mouse and keyboard.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtGui/QScreen>
#include <QtGui/QWindow>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMenu>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include "linux/item/NativeMenu.h"
#include "linux/item/Strip.h"
#include "linux/item/TrayIcon.h"
#include "linux/popover/PopoverWindow.h"
#include "linux/system/LinuxApplicationControl.h"
#include "linux/system/X11.h"
#include "support/ChildProcess.h"
#include "support/ManualEventLoop.h"
#include "support/TemporaryDirectory.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

using test::ChildProcess;
using test::eventually;

class DesktopTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const auto& [name, value] : environment) {
      qputenv(name.c_str(), QByteArray::fromStdString(value));
    }
    qunsetenv("WAYLAND_DISPLAY");
    windowManager_.emplace(
        std::vector<std::string>{MARIGOLD_OPENBOX, "--sm-disable", "--startup", "echo ready"},
        environment);
    EXPECT_TRUE(windowManager_->outputLine("ready"));
    application_.emplace("xcb");
  }
  void TearDown() override {
    windowManager_.reset();
    application_.reset();
  }

  /// Does something with the mouse or the keyboard; words as for xdotool.
  void act(std::vector<std::string> words) const {
    words.insert(words.begin(), MARIGOLD_XDOTOOL);
    ChildProcess xdotool(words, environment);
    EXPECT_EQ(xdotool.finish(20).second, 0);
  }
  void point(const QPoint& at, std::vector<std::string> then = {}) const {
    then.insert(then.begin(), {"mousemove", std::to_string(at.x()), std::to_string(at.y())});
    act(then);
  }
  static QColor pixel(const QPoint& at) {
    return QGuiApplication::primaryScreen()
        ->grabWindow(0, at.x(), at.y(), 1, 1)
        .toImage()
        .pixel(0, 0);
  }
  /// Whether a window is the only one of its group: KWin hides the small ones of a group while
  /// another program is active.
  static bool standsAlone(const QWidget& window) {
    auto* const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    const auto id = static_cast<std::uint32_t>(window.effectiveWinId());
    const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> hints(
        xcb_get_property_reply(
            x11, xcb_get_property(x11, 0, id, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 8, 1), nullptr),
        &std::free);
    return *static_cast<std::uint32_t*>(xcb_get_property_value(hints.get())) == id;
  }
  /// Notes clicks with the edges of the item's area.
  static auto noted(std::vector<std::string>& clicks) {
    return [&clicks](const StatusItemClick& click, const std::optional<QRect>& area) {
      const QRect at = area.value_or(QRect());
      clicks.push_back(std::string(click.controlHeld ? "control " : "") +
                       (click.button == StatusItemClick::Button::left ? "left " : "right ") +
                       std::to_string(at.left()) + "," + std::to_string(at.top()) + " " +
                       std::to_string(at.width()) + "x" + std::to_string(at.height()));
    };
  }
  static StatusItemContent redContent() {
    const Size size{.width = 48, .height = 18};
    StatusItemContent content{.tooltip = "tip", .accessibilityLabel = "Marigold"};
    content.mark = {.size = size, .ops = {{FillRoundedRect{.size = size, .color = {.red = 1}}}}};
    content.square = {
        .size = {.width = 22, .height = 22},
        .ops = {{FillRoundedRect{.size = {.width = 22, .height = 22}, .color = {.green = 1}}}}};
    return content;
  }
  /// A window that has the focus, as of some other program.
  static std::unique_ptr<QWidget> focusedWindow() {
    auto window = std::make_unique<QWidget>();
    window->setGeometry(100, 500, 200, 100);
    window->show();
    EXPECT_TRUE(eventually([&] { return window->isActiveWindow(); }));
    return window;
  }

 private:
  test::TemporaryDirectory home_;
  ChildProcess xserver_{
      {MARIGOLD_XVFB, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "1280x800x24"}};

 protected:
  std::map<std::string, std::string> environment{
      {"DISPLAY", ":" + xserver_.outputLine("").value_or("")},
      {"HOME", home_.path()},
      {"XDG_RUNTIME_DIR", home_.path()},
      {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home_.path() + "/no-bus"}};
  std::optional<test::ToolkitApplication> application_;
  std::optional<ChildProcess> windowManager_;
};

TEST_F(DesktopTest, ThePopoverHasTheFocusAndClosesWhenItShould) {
  const auto other = focusedWindow();
  test::ManualEventLoop loop;
  const ItemPlace item{QRect(630, 0, 20, 20)};
  PopoverWindow popover(loop, item);
  int closed = 0;
  popover.onClosed = [&] { ++closed; };
  popover.setContent({.cards = {{.title = "Codex", .blocks = {CardText{"No usage data yet."}}}}});
  QWidget* window = nullptr;
  const auto opens = [&] {
    popover.open();
    return popover.isShown() && eventually([&] {
             window = QApplication::activeWindow();
             return window != nullptr && window != other.get();
           });
  };
  const auto closes = [&](int times) {
    return eventually([&] { return !popover.isShown(); }) && closed == times;
  };
  const auto focusOther = [&] { act({"windowactivate", std::to_string(other->winId())}); };
  ASSERT_TRUE(opens());
  EXPECT_TRUE(standsAlone(*window));
  // Where it is comes after the focus.
  EXPECT_TRUE(eventually([&] {
    const QRect place = window->frameGeometry();
    return place.top() == 26 && std::abs(place.center().x() - 640) <= 1;
  })) << window->frameGeometry().x()
      << "," << window->frameGeometry().y();
  point({640, 60}, {"click", "1", "key", "Escape"});
  EXPECT_TRUE(closes(1));
  ASSERT_TRUE(opens());

  // Outside, where nothing takes the focus; a click on the item would now be told.
  point({20, 300}, {"mousedown", "1"});
  EXPECT_TRUE(closes(2));
  loop.advance(Seconds{9.9});
  popover.open();
  EXPECT_FALSE(popover.isShown());
  act({"mouseup", "1"});
  EXPECT_TRUE(eventually([&] { return loop.nextTimer() > loop.now() + Seconds{0.3}; }));
  popover.open();
  EXPECT_FALSE(popover.isShown());
  loop.advance(Seconds{0.4});
  point(other->geometry().center(), {"click", "1"});
  ASSERT_TRUE(eventually([&] { return other->isActiveWindow(); }));

  // Some window managers take the focus back at first.
  ASSERT_TRUE(opens());
  int came = 0;
  QObject::connect(
      qGuiApp, &QGuiApplication::focusWindowChanged, window,
      [&](const QWindow* focused) { came += focused == window->windowHandle() ? 1 : 0; });
  for (int round = 1; round <= 3; ++round) {
    focusOther();
    EXPECT_TRUE(eventually([&] { return came == round; }));
  }
  loop.advance(Seconds{0.5});
  focusOther();
  EXPECT_TRUE(closes(3));
  popover.open();
  EXPECT_FALSE(popover.isShown()) << "it may have been lost to a click on the item";
  loop.advance(Seconds{0.4});
  ASSERT_TRUE(opens());
  popover.close();
  EXPECT_TRUE(closes(4));
  EXPECT_TRUE(eventually([&] { return window->windowHandle() == nullptr; })) << "costs memory";
  popover.open();
  EXPECT_TRUE(popover.isShown());
}

TEST_F(DesktopTest, TheStripIsClickedDraggedAndReachedByTheKeyboard) {
  const auto other = focusedWindow();
  std::vector<std::string> clicks;
  std::string saved;
  test::ManualEventLoop loop;
  const auto makeStrip = [&] {
    auto strip = std::make_unique<Strip>(
        loop, Strip::Place{.load = [&] { return saved; },
                           .save = [&](std::string text) { saved = std::move(text); }});
    strip->onClick = noted(clicks);
    strip->setContent(redContent());
    strip->show();
    EXPECT_TRUE(eventually([&] { return pixel(strip->geometry().center()) == QColor(Qt::red); }));
    QCoreApplication::processEvents();  // it has asked for its place
    return strip;
  };
  auto strip = makeStrip();
  const QRect place(1280 - 8 - 64, 8, 64, 26);
  EXPECT_EQ(strip->frameGeometry(), place);
  EXPECT_TRUE(standsAlone(*strip));
  EXPECT_TRUE(other->isActiveWindow());
  const QPoint edge(place.center().x(), place.top() + 1);
  const QColor plain = pixel(edge);
  act({"windowfocus", "--sync", std::to_string(strip->winId()), "key", "Return", "space", "Menu",
       "shift+F10", "Escape"});
  EXPECT_TRUE(eventually([&] { return clicks.size() == 4; }));
  EXPECT_EQ(std::exchange(clicks, {}),
            (std::vector<std::string>{"left 1208,8 64x26", "left 1208,8 64x26",
                                      "right 1208,8 64x26", "right 1208,8 64x26"}));
  EXPECT_TRUE(eventually([&] { return pixel(edge) != plain; })) << "no ring";
  // No compositor runs: round corners would be black.
  EXPECT_GT(pixel(place.topLeft()).red(), 0x30);
  EXPECT_EQ(pixel({place.left() + 3, place.center().y()}), QColor(0x1C, 0x1C, 0x1F));

  point(place.center(), {"click", "1", "keydown", "ctrl", "click", "1", "keyup", "ctrl", "click",
                         "3", "click", "2"});
  EXPECT_TRUE(eventually([&] { return clicks.size() == 3; }));
  EXPECT_EQ(clicks, (std::vector<std::string>{"left 1208,8 64x26", "control left 1208,8 64x26",
                                              "right 1208,8 64x26"}));
  clicks.clear();
  point(place.center(), {"mousedown", "1", "mousemove_relative", "2", "2", "mouseup", "1"});
  EXPECT_TRUE(eventually([&] { return clicks.size() == 1; }));
  EXPECT_EQ(saved, "");
  point(place.center(), {"mousedown", "1", "mousemove_relative", "--", "-5", "5", "mousemove",
                         "400", "300", "mouseup", "1"});
  EXPECT_TRUE(eventually([&] { return !saved.empty(); }));
  EXPECT_EQ(strip->pos(), QPoint(400, 300) - (place.center() - place.topLeft()));
  EXPECT_EQ(clicks.size(), 1U);
  EXPECT_TRUE(eventually([&] {
    return pixel(strip->geometry().center() - QPoint(0, 11)) == plain;
  })) << "a ring for the mouse";

  const QPoint left = strip->pos();
  strip.reset();
  strip = makeStrip();
  EXPECT_EQ(strip->pos(), left);

  // The window manager may at first find another place, then moves it for the user.
  for (const auto& [spot, remembered] :
       {std::pair(QPoint(300, 200), saved), {QPoint(500, 300), std::string("500,300")}}) {
    act({"windowmove", std::to_string(strip->winId()), std::to_string(spot.x()),
         std::to_string(spot.y())});
    EXPECT_TRUE(eventually([&] { return strip->pos() == spot; }));
    loop.advance(Seconds{1});
    EXPECT_EQ(saved, remembered);
  }
  StatusItemContent wider = redContent();
  wider.mark.size.width += 10;
  strip->setContent(wider);
  EXPECT_EQ(strip->pos(), QPoint(500, 300));
  strip.reset();
  EXPECT_EQ(makeStrip()->pos(), QPoint(500, 300));
}

TEST_F(DesktopTest, EachScreenHasTheRoomThatPanelsLeaveOfIt) {
  const auto panel = focusedWindow();
  auto* const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
  const std::string name = "_NET_WM_STRUT_PARTIAL";
  const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> strut(
      xcb_intern_atom_reply(
          x11, xcb_intern_atom(x11, 0, static_cast<std::uint16_t>(name.size()), name.data()),
          nullptr),
      &std::free);
  const QRect left(0, 0, 640, 800);
  const QRect right(640, 0, 640, 800);
  using Strut = std::array<std::uint32_t, 12>;
  for (const auto& [values, leaves, leavesRight] : std::vector<std::tuple<Strut, QRect, QRect>>{
           {{}, left, right},
           {{0, 0, 30, 0, 0, 0, 0, 0, 0, 639}, {0, 30, 640, 770}, right},
           {{0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 640, 1279}, left, {640, 0, 640, 760}},
           {{50, 60, 0, 0, 0, 799, 0, 799}, {50, 0, 590, 800}, {640, 0, 580, 800}},
           {{0, 0, 450, 0, 0, 0, 0, 0, 0, 639}, left, right},
           {{690, 0, 0, 0, 0, 799}, left, {690, 0, 590, 800}}}) {
    xcb_change_property(x11, XCB_PROP_MODE_REPLACE, static_cast<std::uint32_t>(panel->winId()),
                        strut->atom, XCB_ATOM_CARDINAL, 32, 12, values.data());
    // The window manager lists the window some time after it gave it the focus.
    EXPECT_TRUE(eventually(
        [&] { return x11WorkArea(left) == leaves && x11WorkArea(right) == leavesRight; }));
  }
}

TEST_F(DesktopTest, TheTrayIconComesAndGoesWithTheTray) {
  int changes = 0;
  const X11Selection tray(xembedTraySelection, [&] { ++changes; });
  EXPECT_FALSE(tray.owned());
  for (int round = 1; round <= 2; ++round) {
    std::optional<ChildProcess> host;
    host.emplace(std::vector<std::string>{MARIGOLD_TRAYER, "--edge", "bottom", "--align", "right",
                                          "--widthtype", "request", "--height", "24"},
                 environment);
    EXPECT_TRUE(eventually([&] { return tray.owned(); }));
    std::vector<std::string> clicks;
    TrayIcon icon;
    icon.onClick = noted(clicks);
    icon.setContent(redContent());
    const auto middle = [&] { return icon.area().value_or(QRect()).center(); };
    // The tray is still making room for a while.
    int steady = 0;
    ASSERT_TRUE(eventually([&, last = QPoint()]() mutable {
      const QPoint was = std::exchange(last, middle());
      steady = last == was && pixel(last) == QColor(Qt::green) ? steady + 1 : 0;
      return steady == 20;
    }));
    EXPECT_GT(middle().y(), 770);
    std::vector<std::string> expected;
    noted(expected)({}, icon.area());
    const std::string at = expected.front().substr(5);
    point(middle(), {"click", "1", "click", "1", "click", "3", "keydown", "ctrl", "click", "1",
                     "keyup", "ctrl"});
    EXPECT_TRUE(eventually([&] { return clicks.size() == 4; }));
    EXPECT_EQ(clicks, (std::vector<std::string>{"left " + at, "left " + at, "right " + at,
                                                "control left " + at}));
    host.reset();
    EXPECT_TRUE(eventually([&] { return !tray.owned(); }));
    EXPECT_TRUE(eventually([&] { return changes == 2 * round; }));
  }
}

TEST_F(DesktopTest, AMenuShowsEveryKindOfItemRunsWhatIsChosenAndGoesAway) {
  using enum MenuItem::Kind;
  for (const bool choose : {true, false}) {
    bool chosen = false;
    const auto quit = [&chosen] {
      chosen = true;
      QApplication::quit();
    };
    openNativeMenu({{.kind = radio, .title = "A & B", .checked = true, .indent = 1},
                    {.kind = radio, .title = "c", .checked = true, .action = quit},
                    MenuItem::separator(),
                    {.kind = submenu,
                     .title = "More",
                     .items = {{.kind = checkbox}, {.tooltip = "why", .enabled = false}}}},
                   {QRect(300, 200, 64, 26)});
    const QPointer<QMenu> menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    ASSERT_TRUE(menu && eventually([&] { return menu->windowHandle()->isExposed(); }));
    EXPECT_EQ(menu->geometry().top(), 200 + 26 + 6);
    EXPECT_NEAR(menu->geometry().center().x(), 332, 1);
    const auto actions = menu->actions();
    EXPECT_EQ(actions.value(0)->text(), "    A && B");
    EXPECT_TRUE(actions.value(0)->isChecked() && actions.value(1)->isChecked());
    const auto inner = actions.value(3)->menu()->actions();
    EXPECT_TRUE(inner.value(0)->isCheckable() && !inner.value(0)->isChecked());
    EXPECT_FALSE(inner.value(1)->isCheckable() || inner.value(1)->isEnabled());
    EXPECT_EQ(inner.value(1)->toolTip(), "why");
    EXPECT_TRUE(actions.value(3)->menu()->toolTipsVisible());
    if (choose) {
      act({"key", "Down", "Down", "Return"});
      QTimer::singleShot(20'000, qApp, &QApplication::quit);
      EXPECT_EQ(QApplication::exec(), 0);
    } else {
      point({700, 700}, {"click", "1"});
    }
    EXPECT_TRUE(eventually([&] { return menu.isNull(); }));
    EXPECT_EQ(chosen, choose);
  }
}

TEST_F(DesktopTest, AboutIsOneWindowThatClosesWithEscape) {
  QFont font;
  font.setPixelSize(13);  // as some desktops have it
  QApplication::setFont(font);
  LinuxApplicationControl application;
  const auto shown = [] {
    QList<QWidget*> windows = QApplication::topLevelWidgets();
    windows.removeIf([](const QWidget* window) { return !window->isVisible(); });
    return windows;
  };
  for (int round = 0; round < 2; ++round) {
    application.showAbout({"About N", "N", "9", "one\ntwo"});
    ASSERT_EQ(shown().size(), 1);
  }
  QWidget* const window = shown().first();
  EXPECT_EQ(window->windowTitle(), "About N");
  QStringList texts;
  const auto labels = window->findChildren<QLabel*>();
  for (const QLabel* const label : labels) {
    texts.append(label->text());
    EXPECT_GE(label->height(), label->heightForWidth(label->width()))
        << label->text().toStdString();
  }
  EXPECT_GT(labels.value(1)->fontInfo().pixelSize(), 15) << "the name stands out";
  EXPECT_EQ(texts.mid(1), (QStringList{"N", "9", "one", "two"}));
  ASSERT_TRUE(eventually([&] { return window->isActiveWindow(); }));
  act({"key", "Escape"});
  EXPECT_TRUE(eventually([&] { return shown().isEmpty(); }));
}

}  // namespace
}  // namespace marigold
