#include "app/AppDelegate.h"

#include <utility>

#include "PopoverView.h"
#include "app/StatusMenu.h"
#include "bar/MenuBarContent.h"

namespace marigold {

namespace {

constexpr Seconds itemRetryDelay{0.5};

}  // namespace

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
  s_.store.reregisterLoginItemIfEnabled();
  s_.store.start();
  engineRunning_ = true;
  refreshStatusItem();
}

void AppDelegate::applicationWillTerminate() {
  s_.store.onStateChange = nullptr;
  s_.popover.onClosed = nullptr;
  s_.appearance.onChange = nullptr;
  clockObserver_.reset();
  if (std::exchange(engineRunning_, false)) {
    s_.store.shutdown();
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
  s_.store.refreshLoginItemStatus();
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

void AppDelegate::refreshStatusItem() {
  if (!statusItem_) {
    return;
  }
  const auto [isNew, next] =
      picture_.redraw(s_.appearance.settings(), s_.popover.isShown(), s_.loop.date());
  if (isNew) {
    statusItem_->show(*picture_.content());
  }
  scheduleDrain();
  scheduleRepaint(next);
}

void AppDelegate::scheduleDrain() {
  if (!picture_.drains.empty() && !drainTask_) {
    drainTask_ = s_.loop.callAfter(RunningDrains::frameInterval, [this] {
      drainTask_.cancel();
      picture_.drains.step();
      refreshStatusItem();
    });
  }
}

void AppDelegate::scheduleRepaint(std::optional<Date> date) {
  repaintTask_ =
      date ? s_.loop.callAfter(menuRepaintDelay(s_.loop.date(), *date), [this] { refresh(); })
           : Timer();
}

}  // namespace marigold
