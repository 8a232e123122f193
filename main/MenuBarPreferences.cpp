#include "MenuBarPreferences.h"

namespace marigold {

std::string_view rawValue(MenuBarWindowKind kind) noexcept {
  switch (kind) {
    case MenuBarWindowKind::automatic:
      return "auto";
    case MenuBarWindowKind::fiveHour:
      return "fiveHour";
    case MenuBarWindowKind::weekly:
      return "weekly";
  }
  return {};
}

std::string_view rawValue(MenuBarTextScope scope) noexcept {
  switch (scope) {
    case MenuBarTextScope::off:
      return "off";
    case MenuBarTextScope::fiveHour:
      return "fiveHour";
    case MenuBarTextScope::weekly:
      return "weekly";
    case MenuBarTextScope::both:
      return "both";
  }
  return {};
}

std::string_view rawValue(RingColorMode mode) noexcept {
  return mode == RingColorMode::byUsage ? "byUsage" : "byWindow";
}

std::string_view rawValue(MenuBarStyle style) noexcept {
  return style == MenuBarStyle::rings ? "rings" : "pills";
}

std::string_view rawValue(ProviderAccent accent) noexcept {
  switch (accent) {
    case ProviderAccent::automatic:
      return "auto";
    case ProviderAccent::teal:
      return "teal";
    case ProviderAccent::blue:
      return "blue";
    case ProviderAccent::indigo:
      return "indigo";
    case ProviderAccent::purple:
      return "purple";
    case ProviderAccent::pink:
      return "pink";
    case ProviderAccent::orange:
      return "orange";
    case ProviderAccent::slate:
      return "slate";
  }
  return {};
}

std::string_view label(MenuBarWindowKind kind) noexcept {
  return kind == MenuBarWindowKind::automatic ? "Auto" : limitLabel(kind);
}

std::string_view limitLabel(MenuBarWindowKind kind) noexcept {
  switch (kind) {
    case MenuBarWindowKind::automatic:
      return "";
    case MenuBarWindowKind::fiveHour:
      return "5h";
    case MenuBarWindowKind::weekly:
      return "Weekly";
  }
  return {};
}

std::string_view title(MenuBarTextScope scope) noexcept {
  switch (scope) {
    case MenuBarTextScope::off:
      return "Off";
    case MenuBarTextScope::fiveHour:
      return "5h";
    case MenuBarTextScope::weekly:
      return "Weekly";
    case MenuBarTextScope::both:
      return "Both";
  }
  return {};
}

std::string_view label(RingColorMode mode) noexcept {
  return mode == RingColorMode::byUsage ? "By usage" : "By window";
}

std::string_view label(MenuBarStyle style) noexcept {
  return style == MenuBarStyle::rings ? "Rings" : "Pills";
}

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

std::string_view legacyTextScopeValue(MenuBarTextScope scope) noexcept {
  switch (scope) {
    case MenuBarTextScope::off:
      return "off";
    case MenuBarTextScope::fiveHour:
    case MenuBarTextScope::weekly:
      return "gauge";
    case MenuBarTextScope::both:
      return "both";
  }
  return {};
}

MenuBarTextScope migratedTextScope(std::optional<std::string_view> stored,
                                   std::optional<bool> legacyShowPercent, MenuBarWindowKind window,
                                   MenuBarTextScope fallback) noexcept {
  const MenuBarTextScope own =
      window == MenuBarWindowKind::weekly ? MenuBarTextScope::weekly : MenuBarTextScope::fiveHour;
  if (stored == "gauge") {
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
