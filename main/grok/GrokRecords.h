#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "base/Time.h"
#include "model/ProviderSnapshot.h"

namespace marigold {

class JsonValue;

/// A line that the Grok tool logs when it has fetched the account's credits.
struct GrokBillingLine {
  struct Ctx {
    struct Config {
      struct Period {
        std::optional<Date> end;

        [[nodiscard]] static std::optional<Period> decode(JsonValue value);
      };
      std::optional<double> creditUsagePercent;  ///< of the period's credits, 0 to 100
      std::optional<Period> currentPeriod;

      [[nodiscard]] static std::optional<Config> decode(JsonValue value);
    };
    std::optional<Config> config;
    std::optional<std::string> subscriptionTier;

    [[nodiscard]] static std::optional<Ctx> decode(JsonValue value);
  };
  static constexpr std::string_view billingMsg = "billing: fetched credits config";

  std::optional<std::string> msg;
  std::optional<Date> ts;
  std::optional<Ctx> ctx;

  /// Nothing unless `line` is one JSON object; below that a bad field is absent.
  [[nodiscard]] static std::optional<GrokBillingLine> decode(std::string_view line);

  [[nodiscard]] bool isBilling() const { return msg == billingMsg; }
  [[nodiscard]] std::optional<double> creditPercent() const;
  [[nodiscard]] bool hasCreditPercent() const { return creditPercent().has_value(); }
  /// When the period ends whose credits are told.
  [[nodiscard]] std::optional<Date> periodEnd() const;
  [[nodiscard]] std::optional<std::string> tier() const;
  /// One weekly window when there is a percentage, else none.
  [[nodiscard]] ProviderSnapshot snapshot(Date capturedAt, Date now) const;
};

/// A line about what the Grok tool was doing.
struct GrokActivityLine {
  struct Ctx {
    std::optional<std::string> kind;
    std::optional<std::string> message;
    std::optional<std::string> error;

    [[nodiscard]] static std::optional<Ctx> decode(JsonValue value);
  };
  static constexpr std::string_view inferenceDoneMsg = "shell.turn.inference_done";
  /// The kind of every line about a refused request.
  static constexpr std::string_view rateLimitedKind = "rate_limited";
  /// What the message of a refused request holds when the included usage is spent.
  static constexpr std::array<std::string_view, 2> quotaMarkers{"subscription:", "usage-exhausted"};

  std::optional<std::string> msg;
  std::optional<Date> ts;
  std::optional<Ctx> ctx;

  /// Nothing unless `line` is one JSON object; below that a bad field is absent.
  [[nodiscard]] static std::optional<GrokActivityLine> decode(std::string_view line);

  /// A model has finished a turn.
  [[nodiscard]] bool isInferenceDone() const { return msg == inferenceDoneMsg; }
  /// The usage that the subscription includes is spent.
  [[nodiscard]] bool isQuotaExhaustion() const;
  /// The length of the rolling window that the message names, 1 to 744 hours.
  [[nodiscard]] std::optional<int> rollingWindowHours() const;
  /// When the rolling window of a line written at `writtenAt` is over, if it names one.
  [[nodiscard]] std::optional<Date> rollsOverAt(Date writtenAt) const;
  /// One window at 100 %. `tier`: the subscription, when known.
  [[nodiscard]] ProviderSnapshot exhaustedSnapshot(const std::optional<std::string>& tier,
                                                   Date capturedAt, Date now) const;

 private:
  [[nodiscard]] std::string_view messageText() const;
};

/// The note of a reading for which Grok has published no percentage.
inline constexpr std::string_view grokNoPercentNote =
    "Grok has not published a percentage for this period.";

/// "Grok X Premium" for the tier "X Premium"; absent when the tier is.
[[nodiscard]] std::optional<std::string> grokPlanLabel(const std::optional<std::string>& tier);

/// `ok` up to three hours, then `stale` with the age. `age` in seconds.
[[nodiscard]] ProviderSnapshot::Health grokHealth(double age);

}  // namespace marigold
