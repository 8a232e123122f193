#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bar/MenuBarTexts.h"
#include "base/Time.h"
#include "model/MenuBarPreferences.h"
#include "model/ProviderSnapshot.h"

// From a provider's reading and the user's choices to the gauges that the menu bar shows of it.

namespace marigold {

/// The drawable state of one gauge.
struct GaugeBar {
  enum class Mode : std::uint8_t {
    normal,  ///< in full colour
    stale,   ///< faded
    hollow,  ///< without a filled arc
  };
  double percent = 0;  ///< 0 to 100
  Mode mode = Mode::hollow;
  ProviderAccent accent = ProviderAccent::automatic;

  bool operator==(const GaugeBar&) const = default;
};

/// One resolved window of one provider.
struct MenuSlot {
  GaugeBar bar;
  std::string token{noReadingToken};  ///< the percentage as printed, or the age of a reading
  std::string tooltip;                ///< one line
  std::string tooltipWithoutAge;      ///< the same less how old the reading is
  std::string spoken;                 ///< for assistive technologies
  bool rendersGauge = false;
  std::optional<ReadingAge> age;           ///< of the reading behind the slot
  std::optional<std::string> windowLabel;  ///< of the window shown
  std::optional<Date> resetsAt;            ///< of that window

  bool operator==(const MenuSlot&) const = default;
};

/// What the menu bar shows of one provider.
struct MenuGauge {
  MenuSlot outer;                 ///< the window the gauge follows
  std::optional<MenuSlot> inner;  ///< the provider's other known window
  MenuBarTextPrefs prefs;         ///< in effect for this provider

  bool operator==(const MenuGauge&) const = default;
};

[[nodiscard]] MenuSlot resolveMenuSlot(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                                       ProviderAccent accent, Date now);
/// The slot of the known window that `outer` does not show; nothing when `outer` shows no window or
/// there is no other.
[[nodiscard]] std::optional<MenuSlot> menuInnerSlot(const MenuSlot& outer,
                                                    const ProviderSnapshot& snapshot,
                                                    ProviderAccent accent, Date now);
[[nodiscard]] MenuGauge resolveMenuGauge(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                                         const MenuBarTextPrefs& prefs, MenuBarStyle style,
                                         ProviderAccent accent, RingColorMode colors, Date now);
/// The accent of a gauge that shows the window with this label.
[[nodiscard]] ProviderAccent slotAccent(RingColorMode colors, ProviderAccent accent,
                                        std::optional<std::string_view> label) noexcept;
/// The colour that a tooltip names; nothing for hollow gauges and for colours by usage below red.
[[nodiscard]] std::optional<std::string_view> menuSlotColorWord(const GaugeBar& bar) noexcept;

}  // namespace marigold
