#include "app/StatusItemPicture.h"

#include <algorithm>
#include <utility>

#include "bar/MenuBarContent.h"
#include "bar/Palette.h"

namespace marigold {

std::vector<ProviderSnapshot> publishedReadings(const UsageStore& store,
                                                const std::vector<ProviderID>& providers,
                                                DesktopTexts texts) {
  std::vector<ProviderSnapshot> readings;
  for (const ProviderID provider : providers) {
    if (const auto& snapshot = store.snapshot(provider)) {
      readings.push_back(worded(*snapshot, texts));
    }
  }
  return readings;
}

StatusItemPicture::Redraw StatusItemPicture::redraw(AppearanceSettings appearance,
                                                    bool popoverShown, Date now) {
  const Preferences& chosen = store_.preferences();
  appearance.darkMenuBar = effectiveDarkMenuBar(chosen.barColors(), appearance.darkMenuBar);
  const std::vector<MenuBarItem> items =
      resolveMenuBar(published(store_.menuBarBars()), chosen, now);
  drains.redraw(menuSlotMemos(items), now, appearance.reduceMotion);

  const bool anyPresent = std::ranges::any_of(
      allCases<ProviderID>, [this](ProviderID provider) { return store_.isPresent(provider); });
  const MenuBarContent content =
      menuBarContent(items, drains.percentages(), anyPresent, now, localTime_);
  StatusItemContent next =
      MenuBarRender::statusItemContent(images(content, chosen.menuBarStyle(), appearance), content,
                                       appearance.darkMenuBar, devBuild_);
  const auto current = content_ ? std::optional(content_->mark.size.width) : std::nullopt;
  const double width = pinnedMarkWidth(next.mark.size.width, current, popoverShown);
  next.mark = MenuBarRender::padded(std::move(next.mark), width);
  Redraw result;
  if (content_ != next) {
    content_ = next;
    result.shown = std::move(next);
  }

  const auto cards =
      popoverShown ? published(store_.visibleProviders()) : std::vector<ProviderSnapshot>();
  const MenuRepaintTimes times = menuRepaintTimes(items, cards, now);
  result.next = nextMenuRepaint(now, times.countdowns, times.resets);
  return result;
}

// Mostly only ages have moved on, which no image shows, and to measure its texts is most of the
// work.
const MenuBarRender::Images& StatusItemPicture::images(const MenuBarContent& content,
                                                       MenuBarStyle style,
                                                       const AppearanceSettings& looks) {
  Imaged imaged{content.segments, content.isIdle, style, looks};
  if (imaged_ != imaged) {
    imaged_ = std::move(imaged);
    images_ = MenuBarRender::images(content, style, looks, devBuild_, textMeasurer_);
  }
  return images_;
}

}  // namespace marigold
