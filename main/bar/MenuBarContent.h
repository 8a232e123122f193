#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bar/ResetDrain.h"
#include "model/Preferences.h"

// The whole menu bar: every provider's gauge, and the texts and segments that the status item is
// made of.

namespace marigold {

/// One provider of the menu bar, resolved by the user's choices.
struct MenuBarItem {
  ProviderID provider = ProviderID::claude;
  MenuGauge gauge;
  MenuBarSegment segment;
  std::vector<Date> windowResets;  ///< of all its windows, of which any may change what is shown
};

/// The providers of the menu bar, in the order of their snapshots.
[[nodiscard]] std::vector<MenuBarItem> resolveMenuBar(std::span<const ProviderSnapshot> snapshots,
                                                      const Preferences& chosen, Date now);
[[nodiscard]] MenuSlotMemos menuSlotMemos(const std::vector<MenuBarItem>& items);

/// What the status item shows and says.
struct MenuBarContent {
  std::vector<MenuBarSegment> segments;  ///< of the drawn providers, as their drains show them
  bool isIdle = true;                    ///< the idle image stands in for the segments
  std::string label;                     ///< the printed texts; may be empty
  std::string tooltip;                   ///< lines separated by line feeds
  std::string tooltipWithoutAges;        ///< the same less the ages of readings
  std::string title;                     ///< the first line that tells a reading, else the first
  std::string spoken;

  bool operator==(const MenuBarContent&) const = default;
};

/// `anyProviderPresent`: some provider has a reading, shown in the menu bar or not.
[[nodiscard]] MenuBarContent menuBarContent(const std::vector<MenuBarItem>& items,
                                            const MenuDrains& drains, bool anyProviderPresent,
                                            Date now, const LocalTimeText& localTime);

/// No slot renders a gauge.
[[nodiscard]] bool menuBarShowsIdle(const std::vector<MenuBarItem>& items) noexcept;

/// The width of the item: it never shrinks under an open popover, which would jump with it.
[[nodiscard]] double pinnedMarkWidth(double natural, std::optional<double> current,
                                     bool popoverShown) noexcept;

/// The dates at which something shown changes by itself.
struct MenuRepaintTimes {
  std::vector<Date> countdowns;  ///< something changes at this moment
  std::vector<Date> resets;      ///< a countdown to this moment is printed
};
/// Those of the menu bar, and of the open popover's cards about these snapshots: windows reset, and
/// the ages of readings come to be worded or drawn otherwise.
[[nodiscard]] MenuRepaintTimes menuRepaintTimes(const std::vector<MenuBarItem>& items,
                                                std::span<const ProviderSnapshot> cards, Date now);
/// When to redraw: a quarter of a second after the next change, so that it has surely happened.
[[nodiscard]] std::optional<Date> nextMenuRepaint(Date now, std::span<const Date> countdowns,
                                                  std::span<const Date> resets);
/// How long to wait for that: at least as long as that quarter, so that no chain of redraws can
/// keep the processor busy.
[[nodiscard]] Seconds menuRepaintDelay(Date now, Date next) noexcept;

}  // namespace marigold
