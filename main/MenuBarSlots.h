#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MenuBarPreferences.h"
#include "ProviderSnapshot.h"
#include "Time.h"
#include "ports/LocalTimeText.h"

// From a provider's reading and the user's choices to what the menu bar shows of it: gauges, the
// short texts beside them, tooltips and spoken texts. Two windows are known by their label, "5h"
// and "Weekly"; any other is shown only by an automatic gauge.

namespace marigold {

/// Printed where no percentage can be shown: an en dash.
inline constexpr std::string_view noReadingToken = "\u2013";
inline constexpr std::string_view thinSpace = "\u2009";
inline constexpr std::string_view hairSpace = "\u200A";

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

/// The gauges and exact short texts drawn for one provider.
struct MenuBarSegment {
  GaugeBar bar;
  std::optional<std::string> token;
  std::optional<GaugeBar> inner;
  std::optional<std::string> innerToken;
  std::optional<std::string> reset;
  std::optional<std::string> innerReset;
  std::optional<std::string> label;
  std::optional<std::string> innerLabel;
  // A bar that its slot does not render is kept, for a drain, but not drawn.
  bool rendersBar = true;
  bool rendersInner = true;

  bool operator==(const MenuBarSegment&) const = default;
};

/// Lines of text, one per slot.
struct MenuSegmentLines {
  std::vector<std::string> tooltip;
  std::vector<std::string> spoken;
};

struct MenuBarEmptyState {
  std::string_view tooltip;
  std::string_view spoken;
};

// Choosing a window. A null snapshot is a provider without one.

/// `automatic`, then the known windows that the snapshot holds.
[[nodiscard]] std::vector<MenuBarWindowKind> availableMenuWindowKinds(
    const ProviderSnapshot& snapshot);
/// The window of a kind; for `automatic` the five-hour window, else the headline.
[[nodiscard]] std::optional<UsageWindow> resolveMenuWindow(MenuBarWindowKind kind,
                                                           const ProviderSnapshot& snapshot);
/// `automatic` in place of a window that the provider no longer offers. A choice is kept while the
/// provider has no data.
[[nodiscard]] MenuBarWindowKind normalizedMenuWindowKind(MenuBarWindowKind kind,
                                                         const ProviderSnapshot* snapshot);
/// The kind a gauge follows: an automatic one prefers a window whose text is wanted.
[[nodiscard]] MenuBarWindowKind menuGaugeWindow(MenuBarWindowKind kind,
                                                const ProviderSnapshot& snapshot,
                                                const MenuBarTextPrefs& prefs);
/// The snapshot with only the windows whose reset is unknown or still to come.
[[nodiscard]] ProviderSnapshot runningWindowsOnly(const ProviderSnapshot& snapshot, Date now);

// Choosing what is printed.

/// The scopes that a provider's controls offer, `off` first.
[[nodiscard]] std::vector<MenuBarTextScope> availableTextScopes(const ProviderSnapshot* snapshot);
/// "On" where there is only one scope to switch on, else the scope's own title.
[[nodiscard]] std::string_view textScopeTitle(MenuBarTextScope scope,
                                              std::span<const MenuBarTextScope> offered) noexcept;
/// The offered scope that a control marks as chosen.
[[nodiscard]] MenuBarTextScope displayedTextScope(
    MenuBarTextScope scope, std::span<const MenuBarTextScope> offered) noexcept;
/// The choices as they work for this provider: with one known window at most, any scope but `off`
/// prints whatever is shown.
[[nodiscard]] MenuBarTextPrefs effectivePrefs(const MenuBarTextPrefs& prefs,
                                              const ProviderSnapshot* snapshot);

// Resolving.

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

[[nodiscard]] MenuBarSegment menuBarSegment(const MenuGauge& gauge, MenuBarStyle style, Date now);
[[nodiscard]] std::vector<MenuBarSegment> menuBarSegments(std::span<const MenuGauge> gauges,
                                                          MenuBarStyle style, Date now);
/// Whether a provider has a place in the mark: some slot has a window or renders a gauge. One that
/// is off, not installed or never read keeps its tooltip only.
[[nodiscard]] bool isDrawn(const MenuGauge& gauge) noexcept;
/// The printed texts in the order the mark draws them, separated by spaces; may be empty.
[[nodiscard]] std::string segmentText(const MenuBarSegment& segment);
/// The lines of the outer and of the inner slot, each with its reset where `segment` prints it.
[[nodiscard]] MenuSegmentLines menuSegmentLines(const MenuGauge& gauge,
                                                const MenuBarSegment& segment, Date now,
                                                const LocalTimeText& localTime);

// Texts.

/// Countdown in the mark: "59m", "2h05m", "3d04h", "12d"; nothing unless the reset is to come.
[[nodiscard]] std::optional<std::string> menuResetToken(std::optional<Date> resetsAt, Date now);
/// Countdown in a sentence: "resets in 2h 5m", from a day on "resets Tue 3:05 PM".
[[nodiscard]] std::optional<std::string> windowResetText(std::optional<Date> resetsAt, Date now,
                                                         const LocalTimeText& localTime);
/// "5h", "wk".
[[nodiscard]] std::optional<std::string> menuWindowShortLabel(
    std::optional<std::string_view> label);
/// "1m" at least, "23h", "99d" at most.
[[nodiscard]] std::string shortAge(double seconds);
/// What stands in for the lines while no provider is shown in the menu bar.
[[nodiscard]] MenuBarEmptyState menuBarEmptyStateText(bool anyProviderPresent) noexcept;

}  // namespace marigold
