#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "UsageStore.h"
#include "app/PopoverController.h"
#include "app/StatusItemPicture.h"
#include "base/Drawing.h"
#include "base/EventLoop.h"
#include "base/MenuItem.h"
#include "base/Surroundings.h"
#include "ports/Appearance.h"
#include "ports/ApplicationControl.h"
#include "ports/Attention.h"
#include "ports/LocalTimeText.h"
#include "ports/Log.h"
#include "ports/Popover.h"
#include "ports/StatusItem.h"
#include "ports/UpdaterController.h"

namespace marigold {

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
    UpdaterController& updater;
    const LocalTimeText& localTime;
    const TextMeasurer& textMeasurer;
    const Surroundings& surroundings;
    int processId = 0;
    PopoverTraits popoverTraits{};
  };

  explicit AppDelegate(Services services)
      : s_(std::move(services)),
        picture_(s_.store, s_.localTime, s_.textMeasurer, s_.popoverTraits.texts,
                 s_.surroundings.isDevBuild()),
        popover_({.store = s_.store,
                  .loop = s_.loop,
                  .popover = s_.popover,
                  .appearance = s_.appearance,
                  .application = s_.application,
                  .localTime = s_.localTime,
                  .traits = s_.popoverTraits}) {}
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;
  ~AppDelegate();

  /// Called after each redraw of the status item.
  Work onRedrawn;

  void applicationDidFinishLaunching();
  void applicationWillTerminate();

  /// Draws the status item anew and plans the next time at which it must be.
  void refreshStatusItem();
  void showPopover();
  /// Opens the popover because the user asks for it elsewhere than at the status item; whether this
  /// desktop has one.
  bool openOnRequest();
  void showMenu();

 private:
  void setUpStatusItem();
  void statusItemClicked(const StatusItemClick& click);
  [[nodiscard]] std::vector<MenuItem> menuItems(Work open);
  // Shows the next frame of the drains that run, if any, in time.
  void scheduleDrain();
  void scheduleRepaint(std::optional<Date> date);
  // Everything that is shown.
  void refresh();

  Services s_;
  std::unique_ptr<StatusItem> statusItem_;
  StatusItemPicture picture_;
  PopoverController popover_;
  Timer drainTask_;
  Timer repaintTask_;
  Timer itemRetry_;
  std::unique_ptr<AttentionObserver> clockObserver_;
  bool engineRunning_ = false;
};

}  // namespace marigold
