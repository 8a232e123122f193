#pragma once

#include <string>
#include <vector>

#include "MenuBarSlots.h"
#include "ProviderSnapshot.h"
#include "UsageStore.h"
#include "ports/LocalTimeText.h"

namespace marigold {

/// One provider of the menu bar, resolved for drawing.
struct MenuBarItem {
  ProviderID provider;
  MenuGauge gauge;
  MenuBarSegment segment;
};

/// What the menu bar shows now: the store's menu-bar providers, in order, by the user's choices.
[[nodiscard]] std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now);

/// The mark for a machine without a display: one line per provider with its tooltip, then one line
/// with the texts that the mark prints ("mark: 5h 37% | 12%"). Lines end with a line feed.
[[nodiscard]] std::string textForm(const UsageStore& store, Date now, const LocalTimeText& times);

}  // namespace marigold
