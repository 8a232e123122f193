#include "AppDelegate.h"

#include <algorithm>
#include <utility>

#include "MenuBarRender.h"
#include "Palette.h"

namespace marigold {

namespace {

// A redraw planned for less than this ahead, in seconds, waits for this long: no chain of redraws
// can keep the processor busy.
constexpr double leastRepaintDelay = 0.25;
constexpr Seconds itemRetryDelay{0.5};

void append(std::string& text, std::string_view separator, std::string_view more) {
  if (!text.empty()) {
    text += separator;
  }
  text += more;
}

// `line` without the phrase for how old `slot`'s reading is.
std::string withoutAge(std::string line, const MenuSlot& slot) {
  if (slot.age) {
    if (const auto at = line.rfind(slot.age->phrase); at != std::string::npos) {
      line.erase(at, slot.age->phrase.size());
    }
  }
  return line;
}

bool showsIdle(const std::vector<MenuBarItem>& items) {
  std::vector<const MenuSlot*> outer;
  std::vector<const MenuSlot*> inner;
  for (const MenuBarItem& item : items) {
    outer.push_back(&item.gauge.outer);
    inner.push_back(item.gauge.inner ? &*item.gauge.inner : nullptr);
  }
  return menuBarShowsIdle(outer, inner);
}

}  // namespace

std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now) {
  const Preferences& chosen = store.preferences();
  std::vector<MenuBarItem> items;
  for (const ProviderID provider : store.menuBarBars()) {
    const auto& snapshot = store.snapshot(provider);
    if (!snapshot) {
      continue;  // never so: who is in the bar is present
    }
    MenuGauge gauge =
        resolveMenuGauge(*snapshot, chosen.menuWindow(provider), chosen.textPrefs(provider),
                         chosen.menuBarStyle(), chosen.accent(provider), chosen.ringColors(), now);
    MenuBarSegment segment = menuBarSegment(gauge, chosen.menuBarStyle(), now);
    items.push_back(
        {.provider = provider, .gauge = std::move(gauge), .segment = std::move(segment)});
  }
  return items;
}

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
    showMenu(click.at);
  } else if (s_.popover.isShown()) {
    s_.popover.close();
  } else {
    showPopover(click.at);
  }
}

void AppDelegate::showPopover(std::optional<Point> at) {
  if (!statusItem_) {
    return;
  }
  s_.loginItem.refreshStatus();
  s_.application.activate();
  updateCards();
  s_.popover.open(at);
  refreshStatusItem();  // the countdowns of the cards count from now on
}

void AppDelegate::showMenu(std::optional<Point> at) {
  statusItem_->openMenu(menuItems(), at);
}

void AppDelegate::popoverDidClose() {
  refreshStatusItem();
}

std::vector<MenuItem> AppDelegate::menuItems() {
  std::vector<MenuItem> items{
      {.title = "Open Marigold",
       .action =
           [this] {
             s_.store.refreshOnUserAttention();
             showPopover(std::nullopt);
           }},
      {.title = "Refresh Now", .action = [this] { s_.store.refreshNow(); }},
      MenuItem::separator(),
  };
  if (s_.updater.canCheckForUpdates()) {
    items.push_back(
        {.title = "Check for Updates…", .action = [this] { s_.updater.checkForUpdates(); }});
    items.push_back(MenuItem::separator());
  }
  items.push_back({.title = "Quit Marigold", .action = [this] { s_.application.quit(); }});
  return items;
}

void AppDelegate::updateCards() {
  const Date now = s_.loop.date();
  std::vector<ProviderCard> cards;
  for (const ProviderID provider : s_.store.visibleProviders()) {
    const auto& snapshot = s_.store.snapshot(provider);
    cards.push_back(providerCard(provider, snapshot ? &*snapshot : nullptr, now, s_.localTime));
  }
  if (cards != cards_) {
    cards_ = std::move(cards);
    s_.popover.setCards(cards_);
  }
}

void AppDelegate::refresh() {
  refreshStatusItem();
  if (s_.popover.isShown()) {
    updateCards();
  }
}

// Starts a drain for every window that reset since the last redraw, and ends those whose window has
// been read again or is no longer shown.
void AppDelegate::followDrains(const MenuSlotMemos& memos, Date now, bool reduceMotion) {
  const MenuDrains resets = menuResetDrains(lastMemos_, memos, now);
  lastMemos_ = memos;
  if (reduceMotion) {
    drains_.clear();
    drainTask_.cancel();
    return;
  }
  for (const auto& [key, from] : resets) {
    drains_[key] = {.frames = drainFrames(from, menuDrainFrameCount)};
  }
  std::erase_if(drains_, [&](const auto& drain) {
    const auto memo = memos.find(drain.first);
    return memo == memos.end() || memo->second != MenuSlotMemo{};
  });
  if (drains_.empty()) {
    drainTask_.cancel();
  } else if (!resets.empty()) {
    drainTask_ = s_.loop.callAfter(Seconds{menuDrainDuration / menuDrainFrameCount},
                                   [this] { stepDrains(); });
  }
}

// Every card counts down to the resets of its windows.
void AppDelegate::addCardTimes(MenuRepaintTimes& times) const {
  for (const ProviderID provider : s_.store.visibleProviders()) {
    if (const auto& snapshot = s_.store.snapshot(provider)) {
      for (const UsageWindow& window : snapshot->windows) {
        if (window.resetsAt) {
          times.countdowns.push_back(*window.resetsAt);
          times.resets.push_back(*window.resetsAt);
        }
      }
    }
  }
}

void AppDelegate::stepDrains() {
  for (auto& [key, drain] : drains_) {
    ++drain.shown;
  }
  std::erase_if(drains_,
                [](const auto& entry) { return entry.second.shown >= entry.second.frames.size(); });
  if (!drains_.empty()) {
    drainTask_ = s_.loop.callAfter(Seconds{menuDrainDuration / menuDrainFrameCount},
                                   [this] { stepDrains(); });
  }
  refreshStatusItem();
}

void AppDelegate::refreshStatusItem() {
  if (!statusItem_) {
    return;
  }
  const Date now = s_.loop.date();
  const AppearanceSettings appearance = s_.appearance.settings();
  const std::vector<MenuBarItem> items = resolveMenuBar(s_.store, now);
  MenuSlotMemos memos;
  MenuRepaintTimes times;
  for (const MenuBarItem& item : items) {
    memos.merge(menuSlotMemos(item.provider, item.gauge));
    if (const auto& snapshot = s_.store.snapshot(item.provider)) {
      addMenuRepaintTimes(times, snapshot->windows, item.gauge, item.segment, now);
    }
  }
  if (s_.popover.isShown()) {
    addCardTimes(times);
  }
  followDrains(memos, now, appearance.reduceMotion);

  StatusItemContent next = content(items, now, appearance);
  const auto current = shown_ ? std::optional(shown_->mark.size.width) : std::nullopt;
  const double width = pinnedMarkWidth(next.mark.size.width, current, s_.popover.isShown());
  next.mark = menuBarRender::padded(std::move(next.mark), width);
  if (shown_ != next) {
    statusItem_->show(next);
    shown_ = std::move(next);
  }
  scheduleRepaint(nextMenuRepaint(now, times.countdowns, times.resets));
}

StatusItemContent AppDelegate::content(const std::vector<MenuBarItem>& items, Date now,
                                       const AppearanceSettings& appearance) const {
  const bool devBuild = isDevBuild(s_.surroundings.bundleIdentifier);
  StatusItemContent content{.accessibilityLabel = devBuild ? "Marigold Dev" : "Marigold"};

  MenuDrains drains;
  for (const auto& [key, drain] : drains_) {
    drains[key] = drain.frames[drain.shown];
  }
  MenuBarMark mark{
      .style = s_.store.preferences().menuBarStyle(),
      .darkMenuBar = appearance.darkMenuBar,
      .textColor = menuBarLabelColor(appearance.darkMenuBar, appearance.increaseContrast),
      .highContrast = appearance.increaseContrast,
      .devMarker = devBuild};
  for (const MenuBarItem& item : items) {
    const MenuSegmentLines lines = menuSegmentLines(item.gauge, item.segment, now, s_.localTime);
    for (std::size_t i = 0; i < lines.tooltip.size(); ++i) {
      const MenuSlot& slot = i > 0 && item.gauge.inner ? *item.gauge.inner : item.gauge.outer;
      append(content.tooltip, "\n", lines.tooltip[i]);
      append(content.tooltipWithoutAges, "\n", withoutAge(lines.tooltip[i], slot));
      append(content.accessibilityValue, "; ", lines.spoken[i]);
    }
    if (isDrawn(item.gauge)) {
      if (const std::string texts = segmentText(item.segment); !texts.empty()) {
        append(content.label, " | ", texts);
      }
      mark.segments.push_back(drainedSegment(item.segment, item.gauge, item.provider, drains));
    }
  }
  if (items.empty()) {
    const MenuBarEmptyState empty = menuBarEmptyStateText(std::ranges::any_of(
        allProviders, [this](ProviderID provider) { return s_.store.isPresent(provider); }));
    content.tooltip = empty.tooltip;
    content.tooltipWithoutAges = empty.tooltip;
    content.accessibilityValue = empty.spoken;
  }

  const bool idle = showsIdle(items);
  if (idle) {
    content.label.clear();
  }
  if (idle && drains.empty()) {
    content.mark = menuBarRender::idleImage(devBuild, mark.textColor);
    content.square = menuBarRender::idleSquare(devBuild, mark.textColor);
  } else {
    content.mark = menuBarRender::markImage(mark, s_.textMeasurer);
    content.square = menuBarRender::squareImage(mark);
  }
  return content;
}

void AppDelegate::scheduleRepaint(std::optional<Date> date) {
  repaintTask_.cancel();
  if (date) {
    const double delay = std::max(secondsBetween(s_.loop.date(), *date), leastRepaintDelay);
    repaintTask_ = s_.loop.callAfter(Seconds{delay}, [this] { refresh(); });
  }
}

}  // namespace marigold
