#pragma once

#include <optional>
#include <tuple>
#include <vector>

#include "MenuBarRender.h"
#include "UsageStore.h"
#include "bar/ResetDrain.h"
#include "base/Drawing.h"
#include "popover/DesktopTexts.h"
#include "ports/Appearance.h"
#include "ports/LocalTimeText.h"
#include "ports/StatusItem.h"

namespace marigold {

/// The published readings among those of `providers`, in a desktop's words.
[[nodiscard]] std::vector<ProviderSnapshot> publishedReadings(
    const UsageStore& store, const std::vector<ProviderID>& providers, DesktopTexts texts);

/// What the status item shows of the store, and what one redraw of it leaves to the next: a width
/// that must not shrink, drains that run.
class StatusItemPicture {
 public:
  /// The references must outlive this.
  StatusItemPicture(const UsageStore& store, const LocalTimeText& localTime,
                    const TextMeasurer& textMeasurer, DesktopTexts texts, bool devBuild)
      : store_(store),
        localTime_(localTime),
        textMeasurer_(textMeasurer),
        texts_(texts),
        devBuild_(devBuild) {}

  struct Redraw {
    std::optional<StatusItemContent> shown;  ///< what to show, if that is another than before
    std::optional<Date> next;  ///< when something shown, in an open popover too, changes by itself
  };
  Redraw redraw(AppearanceSettings appearance, bool popoverShown, Date now);

  RunningDrains drains;  ///< the next redraw shows the step they are at

 private:
  [[nodiscard]] std::vector<ProviderSnapshot> published(
      const std::vector<ProviderID>& providers) const {
    return publishedReadings(store_, providers, texts_);
  }
  const MenuBarRender::Images& images(const MenuBarContent& content, MenuBarStyle style,
                                      const AppearanceSettings& looks);

  const UsageStore& store_;
  const LocalTimeText& localTime_;
  const TextMeasurer& textMeasurer_;
  DesktopTexts texts_;
  bool devBuild_;
  // All that the images depend on.
  using Imaged = std::tuple<std::vector<MenuBarSegment>, bool, MenuBarStyle, AppearanceSettings>;
  std::optional<Imaged> imaged_;
  MenuBarRender::Images images_;
  std::optional<StatusItemContent> content_;  // as last redrawn
};

}  // namespace marigold
