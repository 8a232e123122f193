#include "app/AppDelegate.h"

#include <utility>

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
  popover_.onShownChanged = [this] { refreshStatusItem(); };
  s_.store.onStateChange = [this] { refresh(); };
  clockObserver_ = s_.attention.observe(AttentionEvent::clockChange, [this] { refresh(); });
  s_.store.reregisterLoginItemIfEnabled();
  s_.store.start();
  engineRunning_ = true;
  refreshStatusItem();
}

void AppDelegate::applicationWillTerminate() {
  s_.store.onStateChange = nullptr;
  popover_.stop();
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
    return menuItems([this] { showPopover(); });
  };
  statusItem_->onGroundChange = [this] { refreshStatusItem(); };
  s_.appearance.onChange = [this] { refresh(); };
}

void AppDelegate::statusItemClicked(const StatusItemClick& click) {
  s_.store.refreshOnUserAttention();
  if (click.button == StatusItemClick::Button::right || click.controlHeld) {
    if (popover_.isShown()) {
      popover_.close();
    }
    showMenu();
  } else if (popover_.isShown()) {
    popover_.close();
  } else {
    showPopover();
  }
}

void AppDelegate::showPopover() {
  if (statusItem_) {
    popover_.open();
  }
}

bool AppDelegate::openOnRequest() {
  s_.store.refreshOnUserAttention();
  showPopover();
  return popover_.isShown();
}

void AppDelegate::showMenu() {
  if (statusItem_) {
    statusItem_->openMenu(menuItems({}));
  }
}

std::vector<MenuItem> AppDelegate::menuItems(Work open) {
  return statusMenu(s_.store, s_.updater, s_.application, s_.popoverTraits.texts, std::move(open));
}

void AppDelegate::refresh() {
  refreshStatusItem();
  popover_.refresh();
}

void AppDelegate::refreshStatusItem() {
  if (!statusItem_) {
    return;
  }
  AppearanceSettings looks = s_.appearance.settings();
  if (looks.darkMenuBar == DarkMenuBar::unknown) {
    looks.darkMenuBar = statusItem_->ownGround();
  }
  const auto [shown, next] = picture_.redraw(looks, popover_.isShown(), s_.loop.date());
  if (shown) {
    statusItem_->show(*shown);
  }
  scheduleDrain();
  scheduleRepaint(next);
  if (onRedrawn) {
    onRedrawn();
  }
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
