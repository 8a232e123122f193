#include "Preferences.h"

#include <algorithm>
#include <utility>

namespace marigold {

namespace {

// Written by older releases, read by the migrations only.
constexpr auto legacyMenuBarModeKey = "menuBarMode";
constexpr auto legacyMenuBarWindowKey = "menuBarWindow";
constexpr auto legacyShowPercentKey = "showMenuBarPercent";
constexpr auto retiredClaudeConsentKey = "claudeAuthorized";

// True once the migration has run.
constexpr auto perProviderMigratedKey = "perProviderMigrated";
constexpr auto perProviderPercentMigratedKey = "perProviderPercentMigrated";
constexpr auto claudeConsentRetiredKey = "claudeConsentRetired";

std::string keyOf(std::string_view prefix, ProviderID provider) {
  return std::string(prefix).append(rawValue(provider));
}

DefaultsValue textValue(std::string_view text) {
  return std::string(text);
}

template <class T>
std::optional<T> storedCase(const Defaults& defaults, std::string_view key) {
  const auto text = defaults.text(key);
  return text ? fromRawValue<T>(*text) : std::nullopt;
}

template <class T>
T storedCaseOrFirst(const Defaults& defaults, std::string_view key) {
  return storedCase<T>(defaults, key).value_or(allCases<T>.front());
}

bool hasRun(const Defaults& defaults, std::string_view marker) {
  return defaults.flag(marker).value_or(false);
}

Defaults& migrated(Defaults& defaults) {
  migrateGlobalSettingsIfNeeded(defaults);
  migratePercentSettingIfNeeded(defaults);
  migrateClaudeConsentIfNeeded(defaults);
  return defaults;
}

// The two keys of one scope: the current one, and the one that older releases read and write.
struct ScopeKeys {
  std::string current;
  std::string older;
};

ScopeKeys percentKeys(ProviderID provider) {
  return {.current = percentWindowsKey(provider), .older = percentScopeKey(provider)};
}
ScopeKeys resetKeys(ProviderID provider) {
  return {.current = resetWindowsKey(provider), .older = resetScopeKey(provider)};
}

std::vector<DefaultsChange> storingScope(const ScopeKeys& keys, MenuBarTextScope scope) {
  return {{keys.current, textValue(rawValue(scope))},
          {keys.older, textValue(legacyTextScopeValue(scope))}};
}

// Appends to `changes` what has to be stored when the scope had to be migrated.
MenuBarTextScope loadScope(const Defaults& defaults, const ScopeKeys& keys,
                           std::optional<bool> legacySwitch, MenuBarWindowKind window,
                           MenuBarTextScope fallback, std::vector<DefaultsChange>& changes) {
  const auto current = storedCase<MenuBarTextScope>(defaults, keys.current);
  const auto older = defaults.text(keys.older);
  if (current && (!older || *older == legacyTextScopeValue(*current))) {
    return *current;
  }
  const MenuBarTextScope migrated = migratedTextScope(older, legacySwitch, window, fallback);
  std::ranges::move(storingScope(keys, migrated), std::back_inserter(changes));
  return migrated;
}

}  // namespace

std::string visibleKey(ProviderID provider) {
  return keyOf("visible.", provider);
}
std::string menuBarKey(ProviderID provider) {
  return keyOf("menubar.", provider);
}
std::string windowKey(ProviderID provider) {
  return keyOf("window.", provider);
}
std::string accentKey(ProviderID provider) {
  return keyOf("accent.", provider);
}
std::string showPercentKey(ProviderID provider) {
  return keyOf("showPercent.", provider);
}
std::string percentWindowsKey(ProviderID provider) {
  return keyOf("percentWindows.", provider);
}
std::string resetWindowsKey(ProviderID provider) {
  return keyOf("resetWindows.", provider);
}
std::string percentScopeKey(ProviderID provider) {
  return keyOf("percentScope.", provider);
}
std::string resetScopeKey(ProviderID provider) {
  return keyOf("resetScope.", provider);
}

std::string encodeProviderOrder(const ProviderOrder& order) {
  std::string text;
  for (const ProviderID provider : order) {
    text.append(text.empty() ? "" : ",").append(rawValue(provider));
  }
  return text;
}

ProviderOrder decodeProviderOrder(std::optional<std::string_view> text) {
  ProviderOrder order;
  std::string_view rest = text.value_or("");
  while (!rest.empty()) {
    const std::size_t comma = rest.find(',');
    if (const auto provider = providerFromRawValue(rest.substr(0, comma))) {
      order.push_back(*provider);
    }
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  }
  return sanitizeProviderOrder(order);
}

ProviderOrder sanitizeProviderOrder(const ProviderOrder& order) {
  ProviderOrder sane;
  const auto addMissing = [&sane](ProviderID provider) {
    if (std::ranges::find(sane, provider) == sane.end()) {
      sane.push_back(provider);
    }
  };
  std::ranges::for_each(order, addMissing);
  std::ranges::for_each(defaultProviderOrder, addMissing);
  return sane;
}

ProviderOrder moveInOrder(ProviderOrder order, ProviderID provider, bool up) {
  const auto found = std::ranges::find(order, provider);
  if (found == order.end() || (up ? found == order.begin() : found + 1 == order.end())) {
    return order;
  }
  std::iter_swap(found, up ? found - 1 : found + 1);
  return order;
}

ProviderOrder menuBarProviders(const ProviderOrder& order,
                               const std::function<bool(ProviderID)>& include) {
  ProviderOrder included;
  std::ranges::copy_if(order, std::back_inserter(included), include);
  return included;
}

std::set<ProviderID> migratedMenuBarMembership(std::optional<std::string_view> legacyMode) {
  if (legacyMode == "claude") {
    return {ProviderID::claude};
  }
  if (legacyMode == "codex") {
    return {ProviderID::codex};
  }
  return {ProviderID::claude, ProviderID::codex};
}

MenuBarWindowKind migratedMenuBarWindow(std::optional<std::string_view> legacy) {
  return legacy == "weekly" ? MenuBarWindowKind::weekly : MenuBarWindowKind::automatic;
}

void migrateGlobalSettingsIfNeeded(Defaults& defaults) {
  if (hasRun(defaults, perProviderMigratedKey)) {
    return;
  }
  const auto members = migratedMenuBarMembership(defaults.text(legacyMenuBarModeKey));
  const auto window = migratedMenuBarWindow(defaults.text(legacyMenuBarWindowKey));
  std::vector<DefaultsChange> changes{{perProviderMigratedKey, true}};
  for (const ProviderID provider : allProviders) {
    changes.emplace_back(menuBarKey(provider), members.contains(provider));
    changes.emplace_back(windowKey(provider), textValue(rawValue(window)));
  }
  defaults.apply(changes);
}

void migratePercentSettingIfNeeded(Defaults& defaults) {
  if (hasRun(defaults, perProviderPercentMigratedKey)) {
    return;
  }
  const bool shows = migratedShowPercent(defaults.flag(legacyShowPercentKey));
  std::vector<DefaultsChange> changes{{perProviderPercentMigratedKey, true}};
  for (const ProviderID provider : allProviders) {
    changes.emplace_back(showPercentKey(provider), shows);
  }
  defaults.apply(changes);
}

void migrateClaudeConsentIfNeeded(Defaults& defaults) {
  if (!hasRun(defaults, claudeConsentRetiredKey)) {
    defaults.apply({{retiredClaudeConsentKey, {}}, {claudeConsentRetiredKey, true}});
  }
}

TextScopes loadTextScopes(Defaults& defaults, ProviderID provider, MenuBarWindowKind window) {
  std::vector<DefaultsChange> changes;
  const TextScopes scopes{
      .percent = loadScope(defaults, percentKeys(provider), defaults.flag(showPercentKey(provider)),
                           window, MenuBarTextScope::fiveHour, changes),
      .reset = loadScope(defaults, resetKeys(provider), std::nullopt, window, MenuBarTextScope::off,
                         changes)};
  if (!changes.empty()) {
    defaults.apply(changes);
  }
  return scopes;
}

Preferences::Preferences(Defaults& defaults)
    : defaults_(migrated(defaults)),
      order_(decodeProviderOrder(defaults.text(providerOrderKey))),
      labels_(defaults.flag(menuBarLabelsKey).value_or(false)),
      style_(storedCaseOrFirst<MenuBarStyle>(defaults, menuBarStyleKey)),
      ringColors_(storedCaseOrFirst<RingColorMode>(defaults, ringColorsKey)),
      claudeTurnedOff_(defaults.flag(claudeTurnedOffKey).value_or(false)) {
  const auto members = migratedMenuBarMembership(std::nullopt);
  for (const ProviderID provider : allProviders) {
    OfProvider& loaded = of(provider);
    loaded.visible = defaults.flag(visibleKey(provider)).value_or(true);
    loaded.inMenuBar = defaults.flag(menuBarKey(provider)).value_or(members.contains(provider));
    loaded.window = storedCaseOrFirst<MenuBarWindowKind>(defaults, windowKey(provider));
    loaded.accent = storedCaseOrFirst<ProviderAccent>(defaults, accentKey(provider));
    loaded.scopes = loadTextScopes(defaults, provider, loaded.window);
  }
}

// Stores an unchanged value too: a default that the user picked stays picked.
template <class T>
void Preferences::store(T& held, const T& value, const std::vector<DefaultsChange>& changes) {
  const bool changed = held != value;
  held = value;
  defaults_.apply(changes);
  if (changed && onChange) {
    onChange();
  }
}

void Preferences::setVisible(ProviderID provider, bool visible) {
  store(of(provider).visible, visible, {{visibleKey(provider), visible}});
}

void Preferences::setShowsInMenuBar(ProviderID provider, bool shows) {
  store(of(provider).inMenuBar, shows, {{menuBarKey(provider), shows}});
}

void Preferences::setMenuWindow(ProviderID provider, MenuBarWindowKind window) {
  store(of(provider).window, window, {{windowKey(provider), textValue(rawValue(window))}});
}

void Preferences::setAccent(ProviderID provider, ProviderAccent accent) {
  store(of(provider).accent, accent, {{accentKey(provider), textValue(rawValue(accent))}});
}

void Preferences::setPercentScope(ProviderID provider, MenuBarTextScope scope) {
  auto changes = storingScope(percentKeys(provider), scope);
  changes.emplace_back(showPercentKey(provider), scope != MenuBarTextScope::off);
  store(of(provider).scopes.percent, scope, changes);
}

void Preferences::setResetScope(ProviderID provider, MenuBarTextScope scope) {
  store(of(provider).scopes.reset, scope, storingScope(resetKeys(provider), scope));
}

void Preferences::setMenuBarLabels(bool labels) {
  store(labels_, labels, {{menuBarLabelsKey, labels}});
}

void Preferences::setMenuBarStyle(MenuBarStyle style) {
  store(style_, style, {{menuBarStyleKey, textValue(rawValue(style))}});
}

void Preferences::setRingColors(RingColorMode mode) {
  store(ringColors_, mode, {{ringColorsKey, textValue(rawValue(mode))}});
}

void Preferences::setClaudeTurnedOff(bool off) {
  store(claudeTurnedOff_, off, {{claudeTurnedOffKey, off}});
}

void Preferences::moveProvider(ProviderID provider, bool up) {
  const auto moved = moveInOrder(order_, provider, up);
  store(order_, moved, {{providerOrderKey, encodeProviderOrder(moved)}});
}

}  // namespace marigold
