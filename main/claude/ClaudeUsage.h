#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Secret.h"
#include "base/Time.h"
#include "model/ProviderSnapshot.h"
#include "ports/HTTPTransport.h"

// What is asked of Anthropic's usage endpoint, and what its answer means.

namespace marigold {

class JsonValue;

/// What Claude Code calls itself, which the endpoint expects.
inline constexpr std::string_view defaultUserAgent = "claude-code/2.1.296";

/// The one request this application makes.
[[nodiscard]] HTTPRequest claudeUsageRequest(Secret accessToken, std::string userAgent);

/// The answer's payload. One bad field costs that field only.
struct ClaudeUsage {
  /// The keys of a usage answer. The last two carry nothing that is shown.
  struct K {
    static constexpr std::string_view fiveHour = "five_hour";
    static constexpr std::string_view sevenDay = "seven_day";
    static constexpr std::string_view sevenDayOpus = "seven_day_opus";
    static constexpr std::string_view sevenDaySonnet = "seven_day_sonnet";
    static constexpr std::string_view extraUsage = "extra_usage";
    static constexpr std::string_view limits = "limits";
    static constexpr std::array<std::string_view, 8> all{
        fiveHour,   sevenDay, sevenDayOpus,           sevenDaySonnet,
        extraUsage, limits,   "seven_day_oauth_apps", "cinder_cove"};
  };

  /// One limit window.
  struct Block {
    std::optional<double> utilization;  ///< percent used, 0 to 100
    std::optional<Date> resetsAt;
    bool rejectedValue = false;  ///< a utilization was sent that is none

    [[nodiscard]] static std::optional<Block> decode(JsonValue value);
  };

  /// Usage beyond the plan, paid for.
  struct ExtraUsage {
    bool isEnabled = false;
    std::int64_t monthlyLimit = 0;
    double usedCredits = 0;
    std::optional<double> utilization;  ///< percent used, 0 to 100
    std::string currency = "USD";
    std::optional<std::string> disabledReason;

    [[nodiscard]] static std::optional<ExtraUsage> decode(JsonValue value);
  };

  /// A limit on a part of the plan, such as one model.
  struct ScopedLimit {
    std::optional<std::string> kind;
    std::optional<double> percent;  ///< used, 0 to 100
    std::optional<Date> resetsAt;
    std::optional<std::string> displayName;  ///< of the model it is about
    bool rejectedValue = false;              ///< a percentage was sent that is none

    [[nodiscard]] static std::optional<ScopedLimit> decode(JsonValue value);
  };

  std::optional<Block> fiveHour;
  std::optional<Block> sevenDay;
  std::optional<Block> sevenDayOpus;
  std::optional<Block> sevenDaySonnet;
  std::optional<ExtraUsage> extra;
  std::optional<std::vector<ScopedLimit>> limits;
  bool recognizedEnvelope = false;  ///< it holds at least one key of a usage answer

  /// Nothing unless `body` is one JSON object.
  [[nodiscard]] static std::optional<ClaudeUsage> decode(std::string_view body);

  /// A value was sent that is no percentage.
  [[nodiscard]] bool rejectedValue() const;

  /// The reading. `plan` is the login's subscription type. Its note never tells an amount of money.
  [[nodiscard]] ProviderSnapshot snapshot(Date capturedAt,
                                          const std::optional<std::string>& plan) const;
};

/// What an answer's payload is good for.
enum class ClaudePayloadVerdict : std::uint8_t {
  usable,           ///< there are windows to show
  noActiveWindows,  ///< a usage answer without any
  rejectedValues,   ///< none, and a value was sent that is no percentage
  unrecognized,     ///< not a usage answer
};

[[nodiscard]] ClaudePayloadVerdict claudePayloadVerdict(bool hasWindows, bool recognizedEnvelope,
                                                        bool rejectedValue) noexcept;

}  // namespace marigold
