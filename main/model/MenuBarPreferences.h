#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "model/Cases.h"
#include "model/ProviderSnapshot.h"

// The choices a user makes about the menu bar, and what a provider's reading leaves of them.

namespace marigold {

/// Which window the gauge of a provider follows.
enum class MenuBarWindowKind : std::uint8_t { automatic, fiveHour, weekly };
/// Which windows get a printed value.
enum class MenuBarTextScope : std::uint8_t { off, fiveHour, weekly, both };
/// Whether gauges are coloured by how much is used or by which window they show.
enum class RingColorMode : std::uint8_t { byUsage, byWindow };
enum class MenuBarStyle : std::uint8_t { rings, pills };
/// What the bar's ground is taken for; `automatic` asks the desktop.
enum class BarColors : std::uint8_t { automatic, dark, light };
/// The colour a user gives a provider; `automatic` colours by usage.
enum class ProviderAccent : std::uint8_t {
  automatic,
  teal,
  blue,
  indigo,
  purple,
  pink,
  orange,
  slate
};

template <class T>
struct ChoiceCase {
  T value;
  std::string_view raw;
  std::string_view label;
};

struct WindowKindCase {
  MenuBarWindowKind value;
  std::string_view raw;
  std::string_view label;
  std::string_view limitLabel;  ///< the window label it asks for
};
template <>
inline constexpr std::array caseTable<MenuBarWindowKind>{
    WindowKindCase{
        .value = MenuBarWindowKind::automatic, .raw = "auto", .label = "Auto", .limitLabel = ""},
    WindowKindCase{
        .value = MenuBarWindowKind::fiveHour, .raw = "fiveHour", .label = "5h", .limitLabel = "5h"},
    WindowKindCase{.value = MenuBarWindowKind::weekly,
                   .raw = "weekly",
                   .label = "Weekly",
                   .limitLabel = "Weekly"}};

struct TextScopeCase {
  MenuBarTextScope value;
  std::string_view raw;
  std::string_view title;
  std::string_view legacy;  ///< in the vocabulary of older releases
};
template <>
inline constexpr std::array caseTable<MenuBarTextScope>{
    TextScopeCase{.value = MenuBarTextScope::off, .raw = "off", .title = "Off", .legacy = "off"},
    TextScopeCase{
        .value = MenuBarTextScope::fiveHour, .raw = "fiveHour", .title = "5h", .legacy = "gauge"},
    TextScopeCase{
        .value = MenuBarTextScope::weekly, .raw = "weekly", .title = "Weekly", .legacy = "gauge"},
    TextScopeCase{
        .value = MenuBarTextScope::both, .raw = "both", .title = "Both", .legacy = "both"}};

template <>
inline constexpr std::array caseTable<RingColorMode>{
    ChoiceCase{.value = RingColorMode::byUsage, .raw = "byUsage", .label = "By usage"},
    ChoiceCase{.value = RingColorMode::byWindow, .raw = "byWindow", .label = "By window"}};

template <>
inline constexpr std::array caseTable<MenuBarStyle>{
    ChoiceCase{.value = MenuBarStyle::rings, .raw = "rings", .label = "Rings"},
    ChoiceCase{.value = MenuBarStyle::pills, .raw = "pills", .label = "Pills"}};

template <>
inline constexpr std::array caseTable<BarColors>{
    ChoiceCase{.value = BarColors::automatic, .raw = "auto", .label = "Automatic"},
    ChoiceCase{.value = BarColors::dark, .raw = "dark", .label = "Dark"},
    ChoiceCase{.value = BarColors::light, .raw = "light", .label = "Light"}};

struct AccentCase {
  ProviderAccent value;
  std::string_view raw;
};
template <>
inline constexpr std::array caseTable<ProviderAccent>{
    AccentCase{.value = ProviderAccent::automatic, .raw = "auto"},
    AccentCase{.value = ProviderAccent::teal, .raw = "teal"},
    AccentCase{.value = ProviderAccent::blue, .raw = "blue"},
    AccentCase{.value = ProviderAccent::indigo, .raw = "indigo"},
    AccentCase{.value = ProviderAccent::purple, .raw = "purple"},
    AccentCase{.value = ProviderAccent::pink, .raw = "pink"},
    AccentCase{.value = ProviderAccent::orange, .raw = "orange"},
    AccentCase{.value = ProviderAccent::slate, .raw = "slate"}};

/// The window label that a kind asks for: empty for `automatic`, "5h", "Weekly".
[[nodiscard]] constexpr std::string_view limitLabel(MenuBarWindowKind kind) noexcept {
  return caseRow(kind).limitLabel;
}
/// "Off", "5h", "Weekly", "Both".
[[nodiscard]] constexpr std::string_view title(MenuBarTextScope scope) noexcept {
  return caseRow(scope).title;
}
/// The scope in the vocabulary of older releases: "off", "gauge" (the slot's own window), "both".
[[nodiscard]] constexpr std::string_view legacyTextScopeValue(MenuBarTextScope scope) noexcept {
  return caseRow(scope).legacy;
}

/// Whether `scope` prints a value for a window with this label. An absent label counts as the
/// scope's own window.
[[nodiscard]] bool covers(MenuBarTextScope scope, std::optional<std::string_view> label) noexcept;

/// What is printed beside a provider's gauge.
struct MenuBarTextPrefs {
  MenuBarTextScope percent = MenuBarTextScope::fiveHour;  ///< windows that print their percentage
  MenuBarTextScope reset = MenuBarTextScope::off;  ///< windows that print their reset countdown
  bool labels = false;                             ///< a short window label goes before the value

  bool operator==(const MenuBarTextPrefs&) const = default;

  /// `percent` or `reset` covers the label.
  [[nodiscard]] bool covers(std::optional<std::string_view> label) const noexcept;
  /// The choices as they work for a provider with this reading: with one known window at most, any
  /// scope but `off` prints whatever is shown. Without a reading (null), as they are.
  [[nodiscard]] MenuBarTextPrefs effective(const ProviderSnapshot* snapshot) const;
};

/// How the settings title the choice of `BarColors`.
inline constexpr std::string_view barColorsTitle = "Bar colors";
/// How the settings title and explain `MenuBarTextPrefs::labels`, and explain `RingColorMode`.
inline constexpr std::string_view menuBarLabelsTitle = "Window labels in menu bar";
inline constexpr std::string_view menuBarLabelsExplanation =
    "Name each window, 5h or wk, ahead of its percent and timer in the menu bar.";
inline constexpr std::string_view ringColorsExplanation =
    "By usage: green, amber or red by how much is used. By window: 5h in teal, Weekly in purple. "
    "Red at 90% and over in both.";

/// Whether the reading has the window that a kind asks for by name.
[[nodiscard]] bool offers(const ProviderSnapshot& snapshot, MenuBarWindowKind kind) noexcept;
/// The scopes that a provider's controls offer, `off` first.
[[nodiscard]] std::vector<MenuBarTextScope> availableTextScopes(const ProviderSnapshot* snapshot);

/// The scope that older stored choices amount to. `stored` is a text in the older vocabulary or a
/// raw value; without one that is known, `legacyShowPercent` decides between the slot's own window
/// and `off`; without that too, `fallback`.
[[nodiscard]] MenuBarTextScope migratedTextScope(std::optional<std::string_view> stored,
                                                 std::optional<bool> legacyShowPercent,
                                                 MenuBarWindowKind window,
                                                 MenuBarTextScope fallback) noexcept;

}  // namespace marigold
