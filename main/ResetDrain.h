#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MenuBarSlots.h"

// When a window resets, its gauge drains to empty over a short animation; and when the mark must be
// redrawn because time alone changes it.

namespace marigold {

/// What one window looked like at the last redraw.
struct MenuSlotMemo {
  GaugeBar::Mode mode = GaugeBar::Mode::hollow;
  double percent = 0;
  std::optional<Date> resetsAt;

  bool operator==(const MenuSlotMemo&) const = default;
};

/// By provider and window: "claude|5h".
using MenuSlotMemos = std::map<std::string, MenuSlotMemo>;
/// The percentage that a draining window shows, by the same keys.
using MenuDrains = std::map<std::string, double>;

/// A reset longer ago than this, in seconds, is not animated.
inline constexpr double menuResetDrainWindow = 60;
/// A drain's frames and how long they take in all, in seconds: 30 frames a second, and over before
/// the eye comes to wait for it.
inline constexpr int menuDrainFrameCount = 24;
inline constexpr double menuDrainDuration = 0.8;

/// The memos of a gauge's slots; a slot without a window label has none.
[[nodiscard]] MenuSlotMemos menuSlotMemos(ProviderID provider, const MenuGauge& gauge);

/// The windows that reset between two redraws and have not been read again since, each with the
/// percentage it drains from. A window whose new reading has come with the reset does not drain.
[[nodiscard]] MenuDrains menuResetDrains(const MenuSlotMemos& before, const MenuSlotMemos& after,
                                         Date now);

/// The percentages of a drain's frames, fast at first and 0 at the end. `count` is at least 1.
[[nodiscard]] std::vector<double> drainFrames(double from, int count);

/// The segment as drawn during a drain: its draining gauges show their drain's percentage, its
/// texts stay.
[[nodiscard]] MenuBarSegment drainedSegment(MenuBarSegment segment, const MenuGauge& gauge,
                                            ProviderID provider, const MenuDrains& drains);

/// The dates at which the mark, its tooltip or its spoken text change by themselves.
struct MenuRepaintTimes {
  std::vector<Date> countdowns;  ///< something changes at this moment
  std::vector<Date> resets;      ///< a countdown to this moment is printed
};
/// Adds those of one provider: the resets of all its windows, of which any may change what is
/// shown, and when its reading's age reads otherwise.
void addMenuRepaintTimes(MenuRepaintTimes& times, std::span<const UsageWindow> windows,
                         const MenuGauge& gauge, const MenuBarSegment& segment, Date now);
/// When to redraw: a quarter of a second after the next change, so that it has surely happened.
[[nodiscard]] std::optional<Date> nextMenuRepaint(Date now, std::span<const Date> countdowns,
                                                  std::span<const Date> resets);

/// Whether the idle image stands in for the mark: no slot renders a gauge. An absent inner slot is
/// null.
[[nodiscard]] bool menuBarShowsIdle(std::span<const MenuSlot* const> outer,
                                    std::span<const MenuSlot* const> inner) noexcept;

/// The width of the item: it never shrinks under an open popover, which would jump with it.
[[nodiscard]] double pinnedMarkWidth(double natural, std::optional<double> current,
                                     bool popoverShown) noexcept;

}  // namespace marigold
