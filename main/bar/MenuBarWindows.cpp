#include "bar/MenuBarWindows.h"

#include <algorithm>
#include <iterator>

namespace marigold {

std::vector<MenuBarWindowKind> availableMenuWindowKinds(const ProviderSnapshot& snapshot) {
  std::vector kinds{MenuBarWindowKind::automatic};
  std::ranges::copy_if(knownMenuWindowKinds, std::back_inserter(kinds),
                       [&](MenuBarWindowKind kind) { return offers(snapshot, kind); });
  return kinds;
}

std::optional<UsageWindow> resolveMenuWindow(MenuBarWindowKind kind,
                                             const ProviderSnapshot& snapshot) {
  const bool automatic = kind == MenuBarWindowKind::automatic;
  const UsageWindow* found =
      snapshot.window(limitLabel(automatic ? MenuBarWindowKind::fiveHour : kind));
  if (found == nullptr && automatic) {
    found = snapshot.headlineWindow();
  }
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

MenuBarWindowKind normalizedMenuWindowKind(MenuBarWindowKind kind,
                                           const ProviderSnapshot* snapshot) {
  const bool known = snapshot != nullptr && snapshot->isUsable();
  return !known || offers(*snapshot, kind) ? kind : MenuBarWindowKind::automatic;
}

MenuBarWindowKind menuGaugeWindow(MenuBarWindowKind kind, const ProviderSnapshot& snapshot,
                                  const MenuBarTextPrefs& prefs) {
  if (kind != MenuBarWindowKind::automatic) {
    return kind;
  }
  const auto* const wanted =
      std::ranges::find_if(knownMenuWindowKinds, [&](MenuBarWindowKind known) {
        return offers(snapshot, known) && prefs.covers(limitLabel(known));
      });
  return wanted != knownMenuWindowKinds.end() ? *wanted : kind;
}

ProviderSnapshot runningWindowsOnly(const ProviderSnapshot& snapshot, Date now) {
  ProviderSnapshot running = snapshot;
  std::erase_if(running.windows, [now](const UsageWindow& window) {
    return window.resetsAt && !(*window.resetsAt > now);
  });
  return running;
}

std::string_view textScopeTitle(MenuBarTextScope scope,
                                std::span<const MenuBarTextScope> offered) noexcept {
  return offered.size() == 2 && scope != MenuBarTextScope::off ? "On" : title(scope);
}

MenuBarTextScope displayedTextScope(MenuBarTextScope scope,
                                    std::span<const MenuBarTextScope> offered) noexcept {
  const bool keep = scope == MenuBarTextScope::off || offered.empty() ||
                    std::ranges::find(offered, scope) != offered.end();
  return keep ? scope : offered.back();
}

}  // namespace marigold
