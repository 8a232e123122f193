#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MenuBarSlots.h"
#include "ProviderSnapshot.h"
#include "UsageStore.h"
#include "ports/LocalTimeText.h"

namespace marigold {

/// One provider of the menu bar, resolved for drawing.
struct MenuBarItem {
  ProviderID provider = ProviderID::claude;
  MenuGauge gauge;
  MenuBarSegment segment;
};

/// What the menu bar shows now: the store's menu-bar providers, in order, by the user's choices.
[[nodiscard]] std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now);

/// When the texts of `items` change by themselves: a window resets, or a countdown that the mark
/// prints moves on. Ages are left to the next reading: a line a minute would say nothing.
[[nodiscard]] std::optional<Date> nextTextChange(const std::vector<MenuBarItem>& items, Date now);

/// The mark for a machine without a display: one line per provider with its tooltip, then, unless
/// it is empty, one line with the texts that the mark prints ("mark: 5h 37% | 12%"). Lines end with
/// a line feed.
[[nodiscard]] std::string textForm(const std::vector<MenuBarItem>& items, const UsageStore& store,
                                   Date now, const LocalTimeText& times);

}  // namespace marigold
