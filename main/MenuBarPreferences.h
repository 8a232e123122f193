#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

// The choices a user makes about the menu bar, and the forms they are stored in. Each enumeration
// has `rawValue` (stored) and, where it is shown, a title; `fromRawValue<T>` reads the stored form.

namespace marigold {

/// Which window the gauge of a provider follows.
enum class MenuBarWindowKind : std::uint8_t { automatic, fiveHour, weekly };
/// Which windows get a printed value.
enum class MenuBarTextScope : std::uint8_t { off, fiveHour, weekly, both };
/// Whether gauges are coloured by how much is used or by which window they show.
enum class RingColorMode : std::uint8_t { byUsage, byWindow };
enum class MenuBarStyle : std::uint8_t { rings, pills };
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
inline constexpr std::array<T, 0> allCases{};
template <>
inline constexpr std::array allCases<MenuBarWindowKind>{
    MenuBarWindowKind::automatic, MenuBarWindowKind::fiveHour, MenuBarWindowKind::weekly};
template <>
inline constexpr std::array allCases<MenuBarTextScope>{
    MenuBarTextScope::off, MenuBarTextScope::fiveHour, MenuBarTextScope::weekly,
    MenuBarTextScope::both};
template <>
inline constexpr std::array allCases<RingColorMode>{RingColorMode::byUsage,
                                                    RingColorMode::byWindow};
template <>
inline constexpr std::array allCases<MenuBarStyle>{MenuBarStyle::rings, MenuBarStyle::pills};
template <>
inline constexpr std::array allCases<ProviderAccent>{
    ProviderAccent::automatic, ProviderAccent::teal, ProviderAccent::blue,   ProviderAccent::indigo,
    ProviderAccent::purple,    ProviderAccent::pink, ProviderAccent::orange, ProviderAccent::slate};

/// The stored form. `automatic` is "auto", every other case its own name.
[[nodiscard]] std::string_view rawValue(MenuBarWindowKind kind) noexcept;
[[nodiscard]] std::string_view rawValue(MenuBarTextScope scope) noexcept;
[[nodiscard]] std::string_view rawValue(RingColorMode mode) noexcept;
[[nodiscard]] std::string_view rawValue(MenuBarStyle style) noexcept;
[[nodiscard]] std::string_view rawValue(ProviderAccent accent) noexcept;

/// The case whose stored form is `text`; nothing for any other text.
template <class T>
[[nodiscard]] std::optional<T> fromRawValue(std::string_view text) noexcept {
  for (const T value : allCases<T>) {
    if (rawValue(value) == text) {
      return value;
    }
  }
  return std::nullopt;
}

/// "Auto", "5h", "Weekly".
[[nodiscard]] std::string_view label(MenuBarWindowKind kind) noexcept;
/// The window label that a kind asks for: empty for `automatic`, "5h", "Weekly".
[[nodiscard]] std::string_view limitLabel(MenuBarWindowKind kind) noexcept;
/// "Off", "5h", "Weekly", "Both".
[[nodiscard]] std::string_view title(MenuBarTextScope scope) noexcept;
/// "By usage", "By window".
[[nodiscard]] std::string_view label(RingColorMode mode) noexcept;
/// "Rings", "Pills".
[[nodiscard]] std::string_view label(MenuBarStyle style) noexcept;

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
};

/// How the settings title and explain `MenuBarTextPrefs::labels`, and explain `RingColorMode`.
inline constexpr std::string_view menuBarLabelsTitle = "Window labels in menu bar";
inline constexpr std::string_view menuBarLabelsExplanation =
    "Name each window, 5h or wk, ahead of its percent and timer in the menu bar.";
inline constexpr std::string_view ringColorsExplanation =
    "By usage: green, amber or red by how much is used. By window: 5h in teal, Weekly in purple. "
    "Red at 90% and over in both.";

/// The scope in the vocabulary of older releases: "off", "gauge" (the slot's own window), "both".
[[nodiscard]] std::string_view legacyTextScopeValue(MenuBarTextScope scope) noexcept;

/// The scope that older stored choices amount to. `stored` is a text in the older vocabulary or a
/// raw value; without one that is known, `legacyShowPercent` decides between the slot's own window
/// and `off`; without that too, `fallback`.
[[nodiscard]] MenuBarTextScope migratedTextScope(std::optional<std::string_view> stored,
                                                 std::optional<bool> legacyShowPercent,
                                                 MenuBarWindowKind window,
                                                 MenuBarTextScope fallback) noexcept;

}  // namespace marigold
