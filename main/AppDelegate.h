#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Drawing.h"
#include "EventLoop.h"
#include "MenuItem.h"
#include "ResetDrain.h"
#include "Surroundings.h"
#include "UsageStore.h"
#include "ports/Appearance.h"
#include "ports/ApplicationControl.h"
#include "ports/Attention.h"
#include "ports/LocalTimeText.h"
#include "ports/Log.h"
#include "ports/LoginItem.h"
#include "ports/Popover.h"
#include "ports/StatusItem.h"
#include "ports/Updater.h"

namespace marigold {

/// One provider of the menu bar, resolved for drawing.
struct MenuBarItem {
  ProviderID provider = ProviderID::claude;
  MenuGauge gauge;
  MenuBarSegment segment;
};

/// What the menu bar shows now: the store's menu-bar providers, in order, by the user's choices.
[[nodiscard]] std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now);

/// A development build has a bundle identifier of its own, which ends with ".dev".
[[nodiscard]] bool isDevBuild(std::string_view bundleIdentifier) noexcept;

/// The application as long as it runs: keeps the status item current, and opens the popover and the
/// menu. Lives on the main loop's thread, once a process.
class AppDelegate {
 public:
  /// What the delegate works with. The references must outlive it.
  struct Services {
    UsageStore& store;
    EventLoop& loop;
    Log& log;
    Attention& attention;
    StatusBar& statusBar;
    Popover& popover;
    Appearance& appearance;
    ApplicationControl& application;
    LoginItem& loginItem;
    Updater& updater;
    const LocalTimeText& localTime;
    const TextMeasurer& textMeasurer;
    const Surroundings& surroundings;
    int processId = 0;
  };

  explicit AppDelegate(const Services& services) : s_(services) {}
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;
  AppDelegate(AppDelegate&&) = delete;
  AppDelegate& operator=(AppDelegate&&) = delete;
  ~AppDelegate();

  void applicationDidFinishLaunching();
  void applicationWillTerminate();

  /// Draws the status item anew and plans the next time at which it must be.
  void refreshStatusItem();
  void showPopover(std::optional<Point> at);
  void showMenu(std::optional<Point> at);

 private:
  // A gauge on its way to empty: its frames, and how many are shown already.
  struct Drain {
    std::vector<double> frames;
    std::size_t shown = 0;
  };

  void setUpStatusItem();
  void setUpPopover();
  void statusItemClicked(const StatusItemClick& click);
  void popoverDidClose();
  [[nodiscard]] std::vector<MenuItem> menuItems();
  void followDrains(const MenuSlotMemos& memos, Date now, bool reduceMotion);
  void stepDrains();
  void scheduleRepaint(std::optional<Date> date);
  void addCardTimes(MenuRepaintTimes& times) const;
  void updateCards();
  // Everything that is shown.
  void refresh();
  [[nodiscard]] StatusItemContent content(const std::vector<MenuBarItem>& items, Date now,
                                          const AppearanceSettings& appearance) const;

  Services s_;
  std::unique_ptr<StatusItem> statusItem_;
  std::optional<StatusItemContent> shown_;  // nothing until the item shows something
  std::vector<ProviderCard> cards_;         // as the popover has them
  MenuSlotMemos lastMemos_;
  std::map<std::string, Drain> drains_;
  Timer drainTask_;
  Timer repaintTask_;
  Timer itemRetry_;
  std::unique_ptr<AttentionObserver> clockObserver_;
  bool engineRunning_ = false;
};

}  // namespace marigold
