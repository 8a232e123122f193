#pragma once

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "MenuBarPreferences.h"
#include "ProviderSnapshot.h"
#include "ports/Defaults.h"

namespace marigold {

// Keys, one set per provider: a prefix and the provider's raw value.

/// Boolean: the provider is shown at all. Absent: true.
[[nodiscard]] std::string visibleKey(ProviderID provider);
/// Boolean: the provider has a menu-bar slot. Absent: all but Grok.
[[nodiscard]] std::string menuBarKey(ProviderID provider);
/// `MenuBarWindowKind`: the window of its slot. Absent: `automatic`.
[[nodiscard]] std::string windowKey(ProviderID provider);
/// `ProviderAccent`. Absent: `automatic`.
[[nodiscard]] std::string accentKey(ProviderID provider);
/// Boolean that releases before the text scopes read: the percentage is printed.
[[nodiscard]] std::string showPercentKey(ProviderID provider);
/// `MenuBarTextScope` of the percentage.
[[nodiscard]] std::string percentWindowsKey(ProviderID provider);
/// `MenuBarTextScope` of the reset countdown.
[[nodiscard]] std::string resetWindowsKey(ProviderID provider);
/// The percentage's scope in the older vocabulary, for older releases.
[[nodiscard]] std::string percentScopeKey(ProviderID provider);
/// The same of the reset countdown.
[[nodiscard]] std::string resetScopeKey(ProviderID provider);

// Keys of the whole application.

inline constexpr auto providerOrderKey = "providerOrder";      ///< text, see encodeProviderOrder
inline constexpr auto menuBarLabelsKey = "menuBarLabels";      ///< boolean, false when absent
inline constexpr auto menuBarStyleKey = "menuBarStyle";        ///< `MenuBarStyle`, else `rings`
inline constexpr auto ringColorsKey = "ringColors";            ///< `RingColorMode`, else `byUsage`
inline constexpr auto claudeTurnedOffKey = "claudeTurnedOff";  ///< boolean, false when absent

// Display order.

inline constexpr auto defaultProviderOrder = allProviders;
using ProviderOrder = std::vector<ProviderID>;

/// Raw values joined by commas.
[[nodiscard]] std::string encodeProviderOrder(const ProviderOrder& order);
/// Each provider exactly once, whatever the text holds; absent text gives the default order.
[[nodiscard]] ProviderOrder decodeProviderOrder(std::optional<std::string_view> text);
/// The first occurrence of each provider, then those that are missing, in default order.
[[nodiscard]] ProviderOrder sanitizeProviderOrder(const ProviderOrder& order);
/// `order` with the provider and its neighbour above (`up`) or below swapped; at the end unchanged.
[[nodiscard]] ProviderOrder moveInOrder(ProviderOrder order, ProviderID provider, bool up);

// Menu-bar membership.

[[nodiscard]] constexpr bool effectiveMenuBarMembership(bool visible, bool inMenuBar) noexcept {
  return visible && inMenuBar;
}
/// The providers of `order` for which `include` holds.
[[nodiscard]] ProviderOrder menuBarProviders(const ProviderOrder& order,
                                             const std::function<bool(ProviderID)>& include);

// Migrations: what older releases stored, carried forward once and never over a later choice. Each
// stores its results together with the marker that says it has run.

/// The members of the menu bar that the former global mode amounts to; also those of a new user.
[[nodiscard]] std::set<ProviderID> migratedMenuBarMembership(
    std::optional<std::string_view> legacyMode);
[[nodiscard]] MenuBarWindowKind migratedMenuBarWindow(std::optional<std::string_view> legacy);
[[nodiscard]] constexpr bool migratedShowPercent(std::optional<bool> legacyGlobal) noexcept {
  return legacyGlobal.value_or(true);
}

/// The former global menu-bar mode and window become every provider's own.
void migrateGlobalSettingsIfNeeded(Defaults& defaults);
/// The former global percentage switch becomes every provider's own.
void migratePercentSettingIfNeeded(Defaults& defaults);
/// Removes the consent that is no longer asked for. Never turns Claude off.
void migrateClaudeConsentIfNeeded(Defaults& defaults);

struct TextScopes {
  MenuBarTextScope percent = MenuBarTextScope::fiveHour;
  MenuBarTextScope reset = MenuBarTextScope::off;

  bool operator==(const TextScopes&) const = default;
};
/// The stored scopes of a provider whose slot shows `window`. A choice made in an older release
/// after the current value was written wins; what was migrated is stored at once.
[[nodiscard]] TextScopes loadTextScopes(Defaults& defaults, ProviderID provider,
                                        MenuBarWindowKind window);

/// The user's choices: loaded and migrated once, then each change stored at once.
class Preferences {
 public:
  /// `defaults` must outlive this object.
  explicit Preferences(Defaults& defaults);

  /// Called after each change of a value; storing the same value again is none.
  std::function<void()> onChange;

  [[nodiscard]] const ProviderOrder& providerOrder() const noexcept { return order_; }
  [[nodiscard]] bool isVisible(ProviderID provider) const noexcept { return of(provider).visible; }
  [[nodiscard]] bool showsInMenuBar(ProviderID provider) const noexcept {
    return of(provider).inMenuBar;
  }
  /// Chosen for the menu bar and visible.
  [[nodiscard]] bool showsInMenuBarEffective(ProviderID provider) const noexcept {
    return effectiveMenuBarMembership(isVisible(provider), showsInMenuBar(provider));
  }
  [[nodiscard]] MenuBarWindowKind menuWindow(ProviderID provider) const noexcept {
    return of(provider).window;
  }
  [[nodiscard]] ProviderAccent accent(ProviderID provider) const noexcept {
    return of(provider).accent;
  }
  [[nodiscard]] MenuBarTextScope percentScope(ProviderID provider) const noexcept {
    return of(provider).scopes.percent;
  }
  [[nodiscard]] MenuBarTextScope resetScope(ProviderID provider) const noexcept {
    return of(provider).scopes.reset;
  }
  [[nodiscard]] MenuBarTextPrefs textPrefs(ProviderID provider) const noexcept {
    return {.percent = percentScope(provider), .reset = resetScope(provider), .labels = labels_};
  }
  [[nodiscard]] bool menuBarLabels() const noexcept { return labels_; }
  [[nodiscard]] MenuBarStyle menuBarStyle() const noexcept { return style_; }
  [[nodiscard]] RingColorMode ringColors() const noexcept { return ringColors_; }
  [[nodiscard]] bool claudeTurnedOff() const noexcept { return claudeTurnedOff_; }

  void setVisible(ProviderID provider, bool visible);
  void setShowsInMenuBar(ProviderID provider, bool shows);
  void setMenuWindow(ProviderID provider, MenuBarWindowKind window);
  void setAccent(ProviderID provider, ProviderAccent accent);
  void setPercentScope(ProviderID provider, MenuBarTextScope scope);
  void setResetScope(ProviderID provider, MenuBarTextScope scope);
  void setMenuBarLabels(bool labels);
  void setMenuBarStyle(MenuBarStyle style);
  void setRingColors(RingColorMode mode);
  void setClaudeTurnedOff(bool off);
  /// One place up or down in the display order.
  void moveProvider(ProviderID provider, bool up);

 private:
  struct OfProvider {
    bool visible = true;
    bool inMenuBar = true;
    MenuBarWindowKind window = MenuBarWindowKind::automatic;
    ProviderAccent accent = ProviderAccent::automatic;
    TextScopes scopes;
  };

  [[nodiscard]] OfProvider& of(ProviderID provider) noexcept {
    return providers_[static_cast<std::size_t>(provider)];
  }
  [[nodiscard]] const OfProvider& of(ProviderID provider) const noexcept {
    return providers_[static_cast<std::size_t>(provider)];
  }
  template <class T>
  void store(T& held, const T& value, const std::vector<DefaultsChange>& changes);

  Defaults& defaults_;  // first: initialising it migrates what the others load
  ProviderOrder order_;
  std::array<OfProvider, allProviders.size()> providers_;
  bool labels_;
  MenuBarStyle style_;
  RingColorMode ringColors_;
  bool claudeTurnedOff_;
};

}  // namespace marigold
