#include "model/MenuBarPreferences.h"

namespace marigold {

bool covers(MenuBarTextScope scope, std::optional<std::string_view> label) noexcept {
  switch (scope) {
    case MenuBarTextScope::off:
      return false;
    case MenuBarTextScope::fiveHour:
      return !label || *label == limitLabel(MenuBarWindowKind::fiveHour);
    case MenuBarTextScope::weekly:
      return !label || *label == limitLabel(MenuBarWindowKind::weekly);
    case MenuBarTextScope::both:
      return true;
  }
  return false;
}

bool MenuBarTextPrefs::covers(std::optional<std::string_view> label) const noexcept {
  return marigold::covers(percent, label) || marigold::covers(reset, label);
}

MenuBarTextPrefs MenuBarTextPrefs::effective(const ProviderSnapshot* snapshot) const {
  if (snapshot == nullptr || availableTextScopes(snapshot).size() != 2) {
    return *this;
  }
  const auto all = [](MenuBarTextScope scope) {
    return scope == MenuBarTextScope::off ? scope : MenuBarTextScope::both;
  };
  return {.percent = all(percent), .reset = all(reset), .labels = labels};
}

bool offers(const ProviderSnapshot& snapshot, MenuBarWindowKind kind) noexcept {
  return snapshot.window(limitLabel(kind)) != nullptr;
}

std::vector<MenuBarTextScope> availableTextScopes(const ProviderSnapshot* snapshot) {
  using enum MenuBarTextScope;
  const bool five = snapshot != nullptr && offers(*snapshot, MenuBarWindowKind::fiveHour);
  const bool week = snapshot != nullptr && offers(*snapshot, MenuBarWindowKind::weekly);
  if (five && week) {
    return {off, fiveHour, weekly, both};
  }
  if (five) {
    return {off, fiveHour};
  }
  return {off, week ? weekly : both};
}

MenuBarTextScope migratedTextScope(std::optional<std::string_view> stored,
                                   std::optional<bool> legacyShowPercent, MenuBarWindowKind window,
                                   MenuBarTextScope fallback) noexcept {
  const MenuBarTextScope own =
      window == MenuBarWindowKind::weekly ? MenuBarTextScope::weekly : MenuBarTextScope::fiveHour;
  if (stored == legacyTextScopeValue(own)) {
    return own;
  }
  if (const auto scope = stored ? fromRawValue<MenuBarTextScope>(*stored) : std::nullopt) {
    return *scope;
  }
  if (!legacyShowPercent) {
    return fallback;
  }
  return *legacyShowPercent ? own : MenuBarTextScope::off;
}

}  // namespace marigold
