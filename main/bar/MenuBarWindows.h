#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "model/MenuBarPreferences.h"
#include "model/ProviderSnapshot.h"

// Which of a provider's windows the menu bar shows, and which of its values are printed. Two
// windows are known by their label, "5h" and "Weekly"; any other is shown only by an automatic
// gauge. A null snapshot is a provider without one.

namespace marigold {

/// The windows that can be asked for by name, the preferred one first.
inline constexpr std::array knownMenuWindowKinds{MenuBarWindowKind::fiveHour,
                                                 MenuBarWindowKind::weekly};

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

/// "On" where there is only one scope to switch on, else the scope's own title.
[[nodiscard]] std::string_view textScopeTitle(MenuBarTextScope scope,
                                              std::span<const MenuBarTextScope> offered) noexcept;
/// The offered scope that a control marks as chosen.
[[nodiscard]] MenuBarTextScope displayedTextScope(
    MenuBarTextScope scope, std::span<const MenuBarTextScope> offered) noexcept;

}  // namespace marigold
