#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Time.h"
#include "ports/LocalTimeText.h"

// Lengths of time, windows and the empty menu bar in words.

namespace marigold {

/// Printed where no percentage can be shown: an en dash.
inline constexpr std::string_view noReadingToken = "\u2013";
inline constexpr std::string_view thinSpace = "\u2009";
inline constexpr std::string_view hairSpace = "\u200A";

/// Countdown in the mark: "59m", "2h05m", "3d04h", "12d"; nothing unless the reset is to come.
[[nodiscard]] std::optional<std::string> menuResetToken(std::optional<Date> resetsAt, Date now);
/// Countdown in a sentence: "resets in 2h 5m", from a day on "resets Tue 3:05 PM".
[[nodiscard]] std::optional<std::string> windowResetText(std::optional<Date> resetsAt, Date now,
                                                         const LocalTimeText& localTime);
/// "5h", "wk".
[[nodiscard]] std::optional<std::string> menuWindowShortLabel(
    std::optional<std::string_view> label);
/// "1m" at least, "23h", "99d" at most.
[[nodiscard]] std::string shortAge(double seconds);

struct MenuBarEmptyState {
  std::string_view tooltip;
  std::string_view spoken;
};

/// What stands in for the lines while no provider is shown in the menu bar.
[[nodiscard]] MenuBarEmptyState menuBarEmptyStateText(bool anyProviderPresent) noexcept;

}  // namespace marigold
