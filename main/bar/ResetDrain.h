#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bar/MenuBarSegments.h"

// When a window resets, its gauge drains to empty over a short animation.

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

/// The drains that run. Every redraw is told to it, which starts and ends them; in between `step`
/// moves them on.
class RunningDrains {
 public:
  static constexpr int frameCount = 24;
  /// Between two frames: 30 a second, so that a drain is over before the eye comes to wait for it.
  static constexpr Seconds frameInterval{0.8 / frameCount};

  /// A redraw shows `memos`: starts a drain for every window that reset since the last redraw, and
  /// ends those whose window has been read again or is no longer shown. With `reduceMotion` none
  /// runs.
  void redraw(const MenuSlotMemos& memos, Date now, bool reduceMotion);
  /// Shows the next frame of each; one whose last frame was shown is over.
  void step();

  [[nodiscard]] bool empty() const noexcept { return drains_.empty(); }
  /// What each shows now.
  [[nodiscard]] MenuDrains percentages() const;

 private:
  struct Drain {
    std::vector<double> frames;
    std::size_t shown = 0;
  };

  MenuSlotMemos lastMemos_;
  std::map<std::string, Drain> drains_;
};

}  // namespace marigold
