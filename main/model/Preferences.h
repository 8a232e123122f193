#pragma once

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "model/MenuBarPreferences.h"
#include "model/ProviderSnapshot.h"
#include "ports/Defaults.h"

namespace marigold {

// Display order.

inline constexpr auto defaultProviderOrder = allCases<ProviderID>;
using ProviderOrder = std::vector<ProviderID>;

/// Raw values joined by commas.
[[nodiscard]] std::string encodeProviderOrder(const ProviderOrder& order);
/// Each provider exactly once, whatever the text holds; absent text gives the default order.
[[nodiscard]] ProviderOrder decodeProviderOrder(std::optional<std::string_view> text);
/// The first occurrence of each provider, then those that are missing, in default order.
[[nodiscard]] ProviderOrder sanitizeProviderOrder(const ProviderOrder& order);
/// `order` with the provider and its neighbour above (`up`) or below swapped; at the end unchanged.
[[nodiscard]] ProviderOrder moveInOrder(ProviderOrder order, ProviderID provider, bool up);

// What is chosen; a member's initial value is what it is when nothing usable is stored.

struct TextScopes {
  MenuBarTextScope percent = MenuBarTextScope::fiveHour;  ///< whose percentage is printed
  MenuBarTextScope reset = MenuBarTextScope::off;         ///< whose reset countdown is printed

  bool operator==(const TextScopes&) const = default;
};

/// What is chosen for one provider.
struct ProviderChoices {
  bool visible = true;    ///< shown at all
  bool inMenuBar = true;  ///< has a menu-bar slot; not stored: all but Grok
  MenuBarWindowKind window = MenuBarWindowKind::automatic;  ///< of its slot
  ProviderAccent accent = ProviderAccent::automatic;
  TextScopes scopes;

  bool operator==(const ProviderChoices&) const = default;
};

/// What is chosen for the whole application.
struct Choices {
  ProviderOrder order{defaultProviderOrder.begin(), defaultProviderOrder.end()};
  bool labels = false;  ///< window labels in the menu-bar text
  MenuBarStyle style = MenuBarStyle::rings;
  RingColorMode ringColors = RingColorMode::byUsage;
  BarColors barColors = BarColors::automatic;
  bool claudeTurnedOff = false;

  bool operator==(const Choices&) const = default;
};

// Where it is stored: a flag as a boolean, the order and the cases of enumerations as texts.

/// The prefix of the keys of one choice about each provider.
struct KeyPrefix {
  std::string_view prefix;

  [[nodiscard]] std::string operator()(ProviderID provider) const;
};

inline constexpr KeyPrefix visibleKey{"visible."};
inline constexpr KeyPrefix menuBarKey{"menubar."};
inline constexpr KeyPrefix windowKey{"window."};
inline constexpr KeyPrefix accentKey{"accent."};
inline constexpr KeyPrefix percentWindowsKey{"percentWindows."};
inline constexpr KeyPrefix resetWindowsKey{"resetWindows."};
// Releases before the text scopes read and write these.
inline constexpr KeyPrefix showPercentKey{"showPercent."};    ///< whether it is printed at all
inline constexpr KeyPrefix percentScopeKey{"percentScope."};  ///< `legacyTextScopeValue`
inline constexpr KeyPrefix resetScopeKey{"resetScope."};      ///< `legacyTextScopeValue`

inline constexpr std::string_view providerOrderKey = "providerOrder";
inline constexpr std::string_view menuBarLabelsKey = "menuBarLabels";
inline constexpr std::string_view menuBarStyleKey = "menuBarStyle";
inline constexpr std::string_view ringColorsKey = "ringColors";
inline constexpr std::string_view barColorsKey = "barColors";
inline constexpr std::string_view claudeTurnedOffKey = "claudeTurnedOff";

/// A choice and its key, or the prefix of its keys.
template <class Key, class Held, class T>
struct Preference {
  Key key{};
  T Held::* held = nullptr;
};
/// A text scope, stored in two vocabularies.
struct ScopePreference {
  KeyPrefix key;
  MenuBarTextScope TextScopes::* held = nullptr;
  KeyPrefix older;    ///< in the vocabulary of older releases
  KeyPrefix settled;  ///< what this program last stored under `key`
};

/// Reading and writing walk these tables.
inline constexpr std::tuple applicationPreferences{
    Preference{.key = providerOrderKey, .held = &Choices::order},
    Preference{.key = menuBarLabelsKey, .held = &Choices::labels},
    Preference{.key = menuBarStyleKey, .held = &Choices::style},
    Preference{.key = ringColorsKey, .held = &Choices::ringColors},
    Preference{.key = barColorsKey, .held = &Choices::barColors},
    Preference{.key = claudeTurnedOffKey, .held = &Choices::claudeTurnedOff}};
inline constexpr std::tuple providerPreferences{
    Preference{.key = visibleKey, .held = &ProviderChoices::visible},
    Preference{.key = menuBarKey, .held = &ProviderChoices::inMenuBar},
    Preference{.key = windowKey, .held = &ProviderChoices::window},
    Preference{.key = accentKey, .held = &ProviderChoices::accent}};
inline constexpr ScopePreference percentScopePreference{.key = percentWindowsKey,
                                                        .held = &TextScopes::percent,
                                                        .older = percentScopeKey,
                                                        .settled = {"percentWindowsSettled."}};
inline constexpr ScopePreference resetScopePreference{.key = resetWindowsKey,
                                                      .held = &TextScopes::reset,
                                                      .older = resetScopeKey,
                                                      .settled = {"resetWindowsSettled."}};

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

/// The stored scopes of a provider whose slot shows `window`. The newest choice wins: one edited by
/// hand, then one made in an older release after this program stored its own. What had to be
/// decided is stored at once.
[[nodiscard]] TextScopes loadTextScopes(Defaults& defaults, ProviderID provider,
                                        MenuBarWindowKind window);

/// The user's choices: migrated and loaded at the start, then each change stored at once, and what
/// others store taken over.
class Preferences {
 public:
  /// `defaults` must outlive this object.
  explicit Preferences(Defaults& defaults);
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;
  ~Preferences() { defaults_.onChange = nullptr; }

  /// Called after each change of a value; storing the same value again is none.
  std::function<void()> onChange;
  /// Called, before `onChange`, when others turned Claude on or off.
  std::function<void()> onClaudeSwitched;

  [[nodiscard]] const ProviderOrder& providerOrder() const noexcept { return choices_.order; }
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
    return {.percent = percentScope(provider),
            .reset = resetScope(provider),
            .labels = menuBarLabels()};
  }
  [[nodiscard]] bool menuBarLabels() const noexcept { return choices_.labels; }
  [[nodiscard]] MenuBarStyle menuBarStyle() const noexcept { return choices_.style; }
  [[nodiscard]] RingColorMode ringColors() const noexcept { return choices_.ringColors; }
  [[nodiscard]] BarColors barColors() const noexcept { return choices_.barColors; }
  [[nodiscard]] bool claudeTurnedOff() const noexcept { return choices_.claudeTurnedOff; }

  void setVisible(ProviderID provider, bool visible);
  void setShowsInMenuBar(ProviderID provider, bool shows);
  void setMenuWindow(ProviderID provider, MenuBarWindowKind window);
  void setAccent(ProviderID provider, ProviderAccent accent);
  void setPercentScope(ProviderID provider, MenuBarTextScope scope);
  void setResetScope(ProviderID provider, MenuBarTextScope scope);
  void setMenuBarLabels(bool labels);
  void setMenuBarStyle(MenuBarStyle style);
  void setRingColors(RingColorMode mode);
  void setBarColors(BarColors colors);
  void setClaudeTurnedOff(bool off);
  /// One place up or down in the display order.
  void moveProvider(ProviderID provider, bool up);

 private:
  [[nodiscard]] ProviderChoices& of(ProviderID provider) noexcept {
    return providers_[static_cast<std::size_t>(provider)];
  }
  [[nodiscard]] const ProviderChoices& of(ProviderID provider) const noexcept {
    return providers_[static_cast<std::size_t>(provider)];
  }
  template <auto held, class T>
  void set(const T& value);
  template <auto held, class T>
  void set(ProviderID provider, T value);
  void load();
  void reload();
  void changed(const std::vector<DefaultsChange>& changes);

  Defaults& defaults_;
  Choices choices_;
  std::array<ProviderChoices, allCases<ProviderID>.size()> providers_;
};

}  // namespace marigold
