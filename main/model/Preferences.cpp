#include "model/Preferences.h"

#include <algorithm>
#include <iterator>
#include <type_traits>
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

using Changes = std::vector<DefaultsChange>;

DefaultsValue storedForm(bool flag) {
  return flag;
}
DefaultsValue storedForm(const ProviderOrder& order) {
  return encodeProviderOrder(order);
}
DefaultsValue storedForm(std::string_view text) {
  return std::string(text);
}
template <Tabled T>
DefaultsValue storedForm(T value) {
  return storedForm(rawValue(value));
}

// What is absent or of no use leaves the held value as it is.
void read(const Defaults& defaults, std::string_view key, bool& held) {
  held = defaults.flag(key).value_or(held);
}
void read(const Defaults& defaults, std::string_view key, ProviderOrder& held) {
  held = decodeProviderOrder(defaults.text(key));
}
template <Tabled T>
std::optional<T> storedCase(const Defaults& defaults, std::string_view key) {
  const auto text = defaults.text(key);
  return text ? fromRawValue<T>(*text) : std::nullopt;
}
template <Tabled T>
void read(const Defaults& defaults, std::string_view key, T& held) {
  held = storedCase<T>(defaults, key).value_or(held);
}

template <class Table, class Visit>
constexpr void walk(const Table& table, const Visit& visit) {
  std::apply([&](const auto&... rows) { (visit(rows), ...); }, table);
}

// The key under which `table` keeps the member `held`; one without a key does not compile.
template <auto held, class Table>
consteval auto keyOf(const Table& table) {
  decltype(std::get<0>(table).key) key{};
  bool found = false;
  walk(table, [&](const auto& row) {
    if constexpr (std::is_same_v<decltype(row.held), decltype(held)>) {
      if (row.held == held) {
        key = row.key;
        found = true;
      }
    }
  });
  return found ? key : throw "no key";
}

bool hasRun(const Defaults& defaults, std::string_view marker) {
  return defaults.flag(marker).value_or(false);
}

void addScope(Changes& changes, const ScopePreference& row, ProviderID provider,
              MenuBarTextScope scope) {
  changes.emplace_back(row.key(provider), storedForm(scope));
  changes.emplace_back(row.older(provider), storedForm(legacyTextScopeValue(scope)));
  changes.emplace_back(row.settled(provider), storedForm(scope));
}

// Appends to `changes` what has to be stored when something had to be decided.
MenuBarTextScope loadScope(const Defaults& defaults, const ScopePreference& row,
                           ProviderID provider, std::optional<bool> legacySwitch,
                           MenuBarWindowKind window, Changes& changes) {
  const auto current = storedCase<MenuBarTextScope>(defaults, row.key(provider));
  const auto older = defaults.text(row.older(provider));
  const auto settled = storedCase<MenuBarTextScope>(defaults, row.settled(provider));
  const bool inStep = current && older == legacyTextScopeValue(*current);
  if (inStep && settled == current) {
    return *current;
  }
  // Older releases change the older value alone, so a current one that this program has not stored
  // is an edit by hand.
  const bool edited = settled && settled != current;
  const MenuBarTextScope scope =
      current && (inStep || !older || edited)
          ? *current
          : migratedTextScope(older, legacySwitch, window, TextScopes().*row.held);
  addScope(changes, row, provider, scope);
  return scope;
}

}  // namespace

std::string KeyPrefix::operator()(ProviderID provider) const {
  return std::string(prefix).append(rawValue(provider));
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
    if (const auto provider = fromRawValue<ProviderID>(rest.substr(0, comma))) {
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
  Changes changes{{perProviderMigratedKey, true}};
  for (const ProviderID provider : allCases<ProviderID>) {
    changes.emplace_back(menuBarKey(provider), members.contains(provider));
    changes.emplace_back(windowKey(provider), storedForm(window));
  }
  defaults.apply(changes);
}

void migratePercentSettingIfNeeded(Defaults& defaults) {
  if (hasRun(defaults, perProviderPercentMigratedKey)) {
    return;
  }
  const bool shows = migratedShowPercent(defaults.flag(legacyShowPercentKey));
  Changes changes{{perProviderPercentMigratedKey, true}};
  for (const ProviderID provider : allCases<ProviderID>) {
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
  Changes changes;
  const TextScopes scopes{
      .percent = loadScope(defaults, percentScopePreference, provider,
                           defaults.flag(showPercentKey(provider)), window, changes),
      .reset = loadScope(defaults, resetScopePreference, provider, {}, window, changes)};
  if (!changes.empty()) {
    defaults.apply(changes);
  }
  return scopes;
}

Preferences::Preferences(Defaults& defaults) : defaults_(defaults) {
  migrateGlobalSettingsIfNeeded(defaults);
  migratePercentSettingIfNeeded(defaults);
  migrateClaudeConsentIfNeeded(defaults);
  load();
  defaults.onChange = [this] { reload(); };
}

void Preferences::load() {
  choices_ = {};
  providers_ = {};
  walk(applicationPreferences,
       [this](const auto& row) { read(defaults_, row.key, choices_.*row.held); });
  const auto members = migratedMenuBarMembership({});
  for (const ProviderID provider : allCases<ProviderID>) {
    ProviderChoices& held = of(provider);
    held.inMenuBar = members.contains(provider);
    walk(providerPreferences,
         [&](const auto& row) { read(defaults_, row.key(provider), held.*row.held); });
    held.scopes = loadTextScopes(defaults_, provider, held.window);
  }
}

void Preferences::reload() {
  const Choices before = choices_;
  const auto providersBefore = providers_;
  load();
  if (choices_.claudeTurnedOff != before.claudeTurnedOff && onClaudeSwitched) {
    onClaudeSwitched();
  }
  if ((choices_ != before || providers_ != providersBefore) && onChange) {
    onChange();
  }
}

void Preferences::changed(const Changes& changes) {
  defaults_.apply(changes);
  if (onChange) {
    onChange();
  }
}

template <auto held, class T>
void Preferences::set(const T& value) {
  if (choices_.*held != value) {
    choices_.*held = value;
    changed({{std::string(keyOf<held>(applicationPreferences)), storedForm(value)}});
  }
}

template <auto held, class T>
void Preferences::set(ProviderID provider, T value) {
  if (of(provider).*held != value) {
    of(provider).*held = value;
    changed({{keyOf<held>(providerPreferences)(provider), storedForm(value)}});
  }
}

void Preferences::setVisible(ProviderID provider, bool visible) {
  set<&ProviderChoices::visible>(provider, visible);
}
void Preferences::setShowsInMenuBar(ProviderID provider, bool shows) {
  set<&ProviderChoices::inMenuBar>(provider, shows);
}
void Preferences::setMenuWindow(ProviderID provider, MenuBarWindowKind window) {
  set<&ProviderChoices::window>(provider, window);
}
void Preferences::setAccent(ProviderID provider, ProviderAccent accent) {
  set<&ProviderChoices::accent>(provider, accent);
}
void Preferences::setMenuBarLabels(bool labels) {
  set<&Choices::labels>(labels);
}
void Preferences::setMenuBarStyle(MenuBarStyle style) {
  set<&Choices::style>(style);
}
void Preferences::setRingColors(RingColorMode mode) {
  set<&Choices::ringColors>(mode);
}
void Preferences::setBarColors(BarColors colors) {
  set<&Choices::barColors>(colors);
}
void Preferences::setClaudeTurnedOff(bool off) {
  set<&Choices::claudeTurnedOff>(off);
}
void Preferences::moveProvider(ProviderID provider, bool up) {
  set<&Choices::order>(moveInOrder(choices_.order, provider, up));
}

void Preferences::setPercentScope(ProviderID provider, MenuBarTextScope scope) {
  if (of(provider).scopes.percent != scope) {
    of(provider).scopes.percent = scope;
    Changes changes{{showPercentKey(provider), scope != MenuBarTextScope::off}};
    addScope(changes, percentScopePreference, provider, scope);
    changed(changes);
  }
}

void Preferences::setResetScope(ProviderID provider, MenuBarTextScope scope) {
  if (of(provider).scopes.reset != scope) {
    of(provider).scopes.reset = scope;
    Changes changes;
    addScope(changes, resetScopePreference, provider, scope);
    changed(changes);
  }
}

}  // namespace marigold
