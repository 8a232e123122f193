#include "app/AppDelegate.h"

#include <algorithm>
#include <utility>

#include "MenuBarRender.h"
#include "PopoverView.h"
#include "app/StatusMenu.h"
#include "bar/MenuBarContent.h"
#include "bar/Palette.h"

namespace marigold {

namespace {

// A redraw planned for less than this ahead, in seconds, waits for this long: no chain of redraws
// can keep the processor busy.
constexpr double leastRepaintDelay = 0.25;
constexpr Seconds itemRetryDelay{0.5};

}  // namespace

bool isDevBuild(std::string_view bundleIdentifier) noexcept {
  return bundleIdentifier.ends_with(".dev");
}

AppDelegate::~AppDelegate() {
  applicationWillTerminate();
}

void AppDelegate::applicationDidFinishLaunching() {
  s_.log.note("launched (pid " + std::to_string(s_.processId) + ")");
  s_.application.installMainMenu();
  setUpStatusItem();
  setUpPopover();
  s_.store.onStateChange = [this] { refresh(); };
  clockObserver_ = s_.attention.observe(AttentionEvent::clockChange, [this] { refresh(); });
  s_.loginItem.reregisterIfEnabled();
  s_.store.start();
  engineRunning_ = true;
  refreshStatusItem();
}

void AppDelegate::applicationWillTerminate() {
  s_.store.onStateChange = nullptr;
  s_.popover.onClosed = nullptr;
  s_.appearance.onChange = nullptr;
  clockObserver_.reset();
  if (engineRunning_) {
    s_.store.shutdown();
    engineRunning_ = false;
  }
  itemRetry_.cancel();
  drainTask_.cancel();
  repaintTask_.cancel();
}

void AppDelegate::setUpStatusItem() {
  statusItem_ = s_.statusBar.makeItem();
  if (!statusItem_) {
    s_.log.error("status item had no button; retrying shortly");
    itemRetry_ = s_.loop.callAfter(itemRetryDelay, [this] {
      setUpStatusItem();
      refreshStatusItem();
    });
    return;
  }
  statusItem_->onClick = [this](const StatusItemClick& click) { statusItemClicked(click); };
  statusItem_->onMenuRead = [this](bool opening) {
    if (opening) {
      s_.store.refreshOnUserAttention();
    }
    return menuItems();
  };
  s_.appearance.onChange = [this] { refreshStatusItem(); };
}

void AppDelegate::setUpPopover() {
  s_.popover.onClosed = [this] { popoverDidClose(); };
}

void AppDelegate::statusItemClicked(const StatusItemClick& click) {
  s_.store.refreshOnUserAttention();
  if (click.button == StatusItemClick::Button::right || click.controlHeld) {
    if (s_.popover.isShown()) {
      s_.popover.close();
    }
    showMenu();
  } else if (s_.popover.isShown()) {
    s_.popover.close();
  } else {
    showPopover();
  }
}

void AppDelegate::showPopover() {
  if (!statusItem_) {
    return;
  }
  s_.loginItem.refreshStatus();
  s_.application.activate();
  updateCards();
  s_.popover.open();
  refreshStatusItem();  // the countdowns of the cards count from now on
}

void AppDelegate::showMenu() {
  statusItem_->openMenu(menuItems());
}

void AppDelegate::popoverDidClose() {
  refreshStatusItem();
}

std::vector<MenuItem> AppDelegate::menuItems() {
  return statusMenu(s_.store, s_.updater, s_.application, [this] { showPopover(); });
}

void AppDelegate::updateCards() {
  const Date now = s_.loop.date();
  PopoverContent content;
  for (const ProviderID provider : s_.store.visibleProviders()) {
    const auto& snapshot = s_.store.snapshot(provider);
    content.cards.push_back(
        providerCard(provider, snapshot ? &*snapshot : nullptr, now, s_.localTime));
  }
  if (content != content_) {
    content_ = std::move(content);
    s_.popover.setContent(content_);
  }
}

void AppDelegate::refresh() {
  refreshStatusItem();
  if (s_.popover.isShown()) {
    updateCards();
  }
}

std::vector<ProviderSnapshot> AppDelegate::snapshots(
    const std::vector<ProviderID>& providers) const {
  std::vector<ProviderSnapshot> published;
  for (const ProviderID provider : providers) {
    if (const auto& snapshot = s_.store.snapshot(provider)) {
      published.push_back(*snapshot);
    }
  }
  return published;
}

void AppDelegate::refreshStatusItem() {
  if (!statusItem_) {
    return;
  }
  const Date now = s_.loop.date();
  const Preferences& chosen = s_.store.preferences();
  AppearanceSettings appearance = s_.appearance.settings();
  appearance.darkMenuBar = effectiveDarkMenuBar(chosen.barColors(), appearance.darkMenuBar);
  const bool popoverShown = s_.popover.isShown();
  const std::vector<MenuBarItem> items =
      resolveMenuBar(snapshots(s_.store.menuBarBars()), chosen, now);
  drains_.redraw(menuSlotMemos(items), now, appearance.reduceMotion);

  const bool anyPresent = std::ranges::any_of(
      allCases<ProviderID>, [this](ProviderID provider) { return s_.store.isPresent(provider); });
  StatusItemContent next = MenuBarRender::statusItemContent(
      menuBarContent(items, drains_.percentages(), anyPresent, now, s_.localTime),
      chosen.menuBarStyle(), appearance, isDevBuild(s_.surroundings.bundleIdentifier),
      s_.textMeasurer);
  const auto current = shown_ ? std::optional(shown_->mark.size.width) : std::nullopt;
  const double width = pinnedMarkWidth(next.mark.size.width, current, popoverShown);
  next.mark = MenuBarRender::padded(std::move(next.mark), width);
  if (shown_ != next) {
    statusItem_->show(next);
    shown_ = std::move(next);
  }

  scheduleDrain();
  const auto cards =
      popoverShown ? snapshots(s_.store.visibleProviders()) : std::vector<ProviderSnapshot>();
  const MenuRepaintTimes times = menuRepaintTimes(items, cards, now);
  scheduleRepaint(nextMenuRepaint(now, times.countdowns, times.resets));
}

void AppDelegate::scheduleDrain() {
  if (drains_.empty()) {
    drainTask_.cancel();
  } else if (!drainTask_) {
    drainTask_ = s_.loop.callAfter(RunningDrains::frameInterval, [this] {
      drainTask_.cancel();
      drains_.step();
      refreshStatusItem();
    });
  }
}

void AppDelegate::scheduleRepaint(std::optional<Date> date) {
  repaintTask_.cancel();
  if (date) {
    const double delay = std::max(secondsBetween(s_.loop.date(), *date), leastRepaintDelay);
    repaintTask_ = s_.loop.callAfter(Seconds{delay}, [this] { refresh(); });
  }
}

}  // namespace marigold
