#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Time.h"
#include "model/Cases.h"

namespace marigold {

/// The assistants whose usage is shown, in the default display order.
enum class ProviderID : std::uint8_t { claude, codex, grok };

struct ProviderCase {
  ProviderID value;
  std::string_view raw;
  std::string_view displayName;
};
template <>
inline constexpr std::array caseTable<ProviderID>{
    ProviderCase{.value = ProviderID::claude, .raw = "claude", .displayName = "Claude"},
    ProviderCase{.value = ProviderID::codex, .raw = "codex", .displayName = "Codex"},
    ProviderCase{.value = ProviderID::grok, .raw = "grok", .displayName = "Grok"}};

/// "Claude", "Codex", "Grok".
[[nodiscard]] constexpr std::string_view displayName(ProviderID provider) noexcept {
  return caseRow(provider).displayName;
}

/// One rate-limit window as shown to the user.
struct UsageWindow {
  std::string label;             ///< as the provider words it; also the key it is looked up by
  double percent = 0;            ///< used, 0 to 100
  std::optional<Date> resetsAt;  ///< absent when the provider does not say

  bool operator==(const UsageWindow&) const = default;
};

struct CachedSnapshot;

/// One provider's current reading.
struct ProviderSnapshot {
  /// What the reading is worth and what to tell the user.
  class Health {
   public:
    enum class Kind : std::uint8_t {
      stale,         ///< the windows are an older reading; `reason` says why or how old
      reconnect,     ///< no reading until the user acts; `reason` is the advice
      rateLimited,   ///< the server throttled the request; next attempt not before `until`
      serverError,   ///< the server failed; next attempt not before `until`
      notInstalled,  ///< the tool or its data is not on this computer; `reason`
      ok,            ///< a current, good reading
      turnedOff,     ///< the user turned this provider off
    };
    [[nodiscard]] static Health stale(std::string reason);
    [[nodiscard]] static Health reconnect(std::string reason);
    [[nodiscard]] static Health rateLimited(std::optional<Date> until);
    [[nodiscard]] static Health serverError(std::optional<Date> until);
    [[nodiscard]] static Health notInstalled(std::string reason);
    [[nodiscard]] static Health ok();
    [[nodiscard]] static Health turnedOff();

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// Of `stale`, `reconnect` and `notInstalled`; empty otherwise.
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }
    /// Of `rateLimited` and `serverError`; absent otherwise or when not known.
    [[nodiscard]] std::optional<Date> until() const noexcept { return until_; }

    bool operator==(const Health&) const = default;

   private:
    Health(Kind kind, std::string reason, std::optional<Date> until)
        : kind_(kind), reason_(std::move(reason)), until_(until) {}
    Kind kind_;
    std::string reason_;
    std::optional<Date> until_;
  };

  ProviderID provider = ProviderID::claude;
  std::vector<UsageWindow> windows;  ///< in the provider's presentation order; may be empty
  Date capturedAt;                   ///< when the reading was taken from its source
  Health health = Health::ok();
  std::optional<std::string> planLabel;  ///< shown beside the provider's name
  std::optional<std::string> extraNote;  ///< one further line under the windows

  bool operator==(const ProviderSnapshot&) const = default;

  /// There are windows.
  [[nodiscard]] bool isUsable() const noexcept { return !windows.empty(); }
  /// Usable, and the health does not withhold the reading.
  [[nodiscard]] bool rendersGauge() const noexcept;
  /// The window with the largest percentage, the first of equals; null without windows. Points into
  /// this snapshot.
  [[nodiscard]] const UsageWindow* headlineWindow() const noexcept;
  [[nodiscard]] std::optional<double> headlinePercent() const noexcept;
  /// The first window labelled exactly `label`, or null. Points into this snapshot.
  [[nodiscard]] const UsageWindow* window(std::string_view label) const noexcept;
  /// The percentage of the first window labelled exactly `label`.
  [[nodiscard]] std::optional<double> percent(std::string_view forWindowLabel) const noexcept;
  [[nodiscard]] std::optional<Date> soonestReset() const noexcept;
  /// Nothing of it is in force any more. A window that does not say when it resets stays in force.
  [[nodiscard]] bool allReset(Date now) const noexcept;
  /// At most 24 hours old: its usage may still be coloured.
  [[nodiscard]] bool isColorTrustworthy(Date now) const noexcept;
  /// The spoken description: the window `selected`, else the headline, else that there is no data.
  [[nodiscard]] std::string accessibilityDescription(std::string_view selected) const;
  /// The reason of the health as it reads at `now`: one that tells the reading's age grows with it.
  [[nodiscard]] std::string shownReason(Date now) const;
  /// The persistent form.
  [[nodiscard]] CachedSnapshot cached() const;
  /// This snapshot with another health.
  [[nodiscard]] ProviderSnapshot withHealth(Health replacement) const;
};

using Health = ProviderSnapshot::Health;

/// The persistent form of a snapshot. It has no health: a restored reading is never a current one.
struct CachedSnapshot {
  ProviderID provider = ProviderID::claude;
  std::vector<UsageWindow> windows;
  Date capturedAt;
  std::optional<std::string> planLabel;
  std::optional<std::string> extraNote;

  bool operator==(const CachedSnapshot&) const = default;

  /// The snapshot, `stale` by its age at `now`.
  [[nodiscard]] ProviderSnapshot restored(Date now) const;
};

/// A reading younger than this is current.
inline constexpr Seconds readingFreshWithin{300};

/// How old a reading is, for display.
struct ReadingAge {
  double seconds = 0;  ///< never negative
  std::string phrase;
  bool isCurrent = true;

  bool operator==(const ReadingAge&) const = default;
};

[[nodiscard]] ReadingAge readingAge(double seconds);
/// "just now" below 90 seconds, then whole minutes, hours or days: "1m ago", "23h ago", "2d ago".
[[nodiscard]] std::string relativeAge(double seconds);
/// True for `notInstalled` and `turnedOff`.
[[nodiscard]] bool healthWithholdsReading(const std::optional<Health>& health) noexcept;
/// A percentage as shown: the nearest whole number, halves away from zero.
[[nodiscard]] int shownPercent(double percent) noexcept;

/// Whose snapshots and cache files an action wipes.
[[nodiscard]] std::set<ProviderID> providersClearedByClearAll();
[[nodiscard]] std::set<ProviderID> providersClearedByClaudeOff();

}  // namespace marigold
