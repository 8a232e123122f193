#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Time.h"
#include "model/ProviderSnapshot.h"

namespace marigold {

class JsonValue;

/// The account's limits as the Codex tool last heard of them.
struct CodexRateLimits {
  /// One limit window. Either slot may hold any length: a weekly-only account has its weekly window
  /// in the primary one.
  struct Window {
    std::optional<double> usedPercent;          ///< 0 to 100
    std::optional<std::int64_t> windowMinutes;  ///< as sent, plausible or not
    std::optional<std::int64_t> resetsAtEpoch;  ///< seconds since 1970

    [[nodiscard]] std::optional<Date> resetsAt() const;
    [[nodiscard]] static std::optional<Window> decode(JsonValue value);
  };

  /// Credits that buy a reset of the limits.
  struct Credits {
    std::optional<bool> hasCredits;
    std::optional<bool> unlimited;
    std::optional<double> balance;  ///< as sent, any number

    [[nodiscard]] static std::optional<Credits> decode(JsonValue value);
  };

  std::optional<Window> primary;
  std::optional<Window> secondary;
  std::optional<Credits> credits;
  std::optional<std::string> planType;
  std::optional<std::string> limitId;

  /// Nothing for anything but an object.
  [[nodiscard]] static std::optional<CodexRateLimits> decode(JsonValue value);

  /// The windows that can be shown, primary first: those with a percentage and a plausible length.
  [[nodiscard]] std::vector<UsageWindow> renderableWindows() const;
  /// There is a window that can be shown.
  [[nodiscard]] bool carriesWindow() const;
  [[nodiscard]] ProviderSnapshot snapshot(Date capturedAt, Date now) const;
};

/// One line of a rollout file.
struct CodexRolloutLine {
  struct Payload {
    std::optional<CodexRateLimits> rateLimits;

    [[nodiscard]] static std::optional<Payload> decode(JsonValue value);
  };

  std::optional<Payload> payload;
  std::optional<Date> timestamp;

  /// Nothing unless `line` is one JSON object; below that a bad field is absent.
  [[nodiscard]] static std::optional<CodexRolloutLine> decode(std::string_view line);
};

/// "5h", "Weekly", else the length in days, hours or minutes: "2d", "25h", "1h30m", "45m".
[[nodiscard]] std::string codexWindowLabel(std::int64_t minutes);

/// The plan's display name: "Pro Lite" for "prolite"; an unknown plan in capitalised form. Only
/// ASCII letters change case, in every locale alike.
[[nodiscard]] std::string codexPlanLabel(std::string_view planType);

/// The line about credits, absent for an account without any. Independent of the locale.
[[nodiscard]] std::optional<std::string> codexCreditsNote(std::optional<bool> hasCredits,
                                                          std::optional<bool> unlimited,
                                                          std::optional<double> balance);

/// `ok` up to three hours, then `stale` with the age. `age` in seconds.
[[nodiscard]] ProviderSnapshot::Health codexHealth(double age);

}  // namespace marigold
