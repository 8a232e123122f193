#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

// One table per enumeration: for each case, in order, the form that is stored and exchanged and the
// texts it is shown with. Everything that names, reads or lists cases walks that table.

namespace marigold {

/// The table of `T`: an array of rows with a `value`, its `raw` form and, where the case is shown,
/// a `label`. Each enumeration specialises it.
template <class T>
inline constexpr std::array<std::nullptr_t, 0> caseTable{};

template <class T>
concept Tabled = !caseTable<T>.empty();

/// Every case, in order.
template <Tabled T>
inline constexpr auto allCases = [] {
  std::array<T, caseTable<T>.size()> cases{};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    cases[i] = caseTable<T>[i].value;
    if (static_cast<std::size_t>(cases[i]) != i) {
      throw "a case is not in its place";  // fails the compilation
    }
  }
  return cases;
}();

/// The table's row of `value`.
template <Tabled T>
[[nodiscard]] constexpr const auto& caseRow(T value) noexcept {
  return caseTable<T>[static_cast<std::size_t>(value)];
}

/// The stored and exchanged form.
template <Tabled T>
[[nodiscard]] constexpr std::string_view rawValue(T value) noexcept {
  return caseRow(value).raw;
}

/// The case whose stored form is exactly `text`.
template <Tabled T>
[[nodiscard]] constexpr std::optional<T> fromRawValue(std::string_view text) noexcept {
  for (const T value : allCases<T>) {
    if (rawValue(value) == text) {
      return value;
    }
  }
  return std::nullopt;
}

/// The text that a choice of `value` is shown with.
template <Tabled T>
  requires requires(T value) { caseRow(value).label; }
[[nodiscard]] constexpr std::string_view label(T value) noexcept {
  return caseRow(value).label;
}

}  // namespace marigold
