#include "codex/CodexRecords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "base/AsciiText.h"
#include "base/LenientDecoding.h"

namespace marigold {

namespace {

constexpr std::int64_t minutesPerWeek = 7 * minutesPerDay;

// A reading older than this, in seconds, no longer passes for current: the tool writes one with
// every answer, so three hours of silence mean that nothing is known about the time since.
constexpr double staleAfter = 3 * secondsPerHour;

struct PlanName {
  std::string_view type;
  std::string_view label;
};
constexpr std::array planNames{
    PlanName{.type = "prolite", .label = "Pro Lite"},
    PlanName{.type = "plus", .label = "Plus"},
    PlanName{.type = "pro", .label = "Pro"},
    PlanName{.type = "team", .label = "Team"},
    PlanName{.type = "business", .label = "Business"},
    PlanName{.type = "free", .label = "Free"},
    PlanName{.type = "enterprise", .label = "Enterprise"},
};

// A balance as text: whole, or with one decimal. Nothing for one that is no amount.
std::optional<std::string> amount(std::optional<double> balance) {
  if (!balance || !std::isfinite(*balance) || *balance < 0 || std::round(*balance) >= 0x1p63) {
    return std::nullopt;
  }
  if (std::round(*balance) == *balance) {
    return std::to_string(static_cast<std::int64_t>(*balance));
  }
  // Numbers with a fraction lie below 2^52: 16 digits at most.
  std::array<char, 32> text{};
  const auto result =
      std::to_chars(text.data(), text.data() + text.size(), *balance, std::chars_format::fixed, 1);
  return std::string(text.data(), result.ptr);
}

}  // namespace

std::optional<Date> CodexRateLimits::Window::resetsAt() const {
  return resetsAtEpoch ? std::optional(dateFromEpoch(*resetsAtEpoch)) : std::nullopt;
}

std::optional<CodexRateLimits::Window> CodexRateLimits::Window::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Window{.usedPercent = decodePercent("used_percent", value),
                .windowMinutes = value["window_minutes"].wholeNumber(),
                .resetsAtEpoch = value["resets_at"].wholeNumber()};
}

std::optional<CodexRateLimits::Credits> CodexRateLimits::Credits::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Credits{.hasCredits = value["has_credits"].flag(),
                 .unlimited = value["unlimited"].flag(),
                 .balance = numberOrText(value["balance"])};
}

std::optional<CodexRateLimits> CodexRateLimits::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return CodexRateLimits{.primary = Window::decode(value["primary"]),
                         .secondary = Window::decode(value["secondary"]),
                         .credits = Credits::decode(value["credits"]),
                         .planType = value["plan_type"].text(),
                         .limitId = value["limit_id"].text()};
}

std::vector<UsageWindow> CodexRateLimits::renderableWindows() const {
  std::vector<UsageWindow> windows;
  for (const auto& window : {primary, secondary}) {
    if (!window || !window->usedPercent) {
      continue;
    }
    if (const auto minutes = plausibleWindowMinutes(window->windowMinutes)) {
      windows.push_back({.label = codexWindowLabel(*minutes),
                         .percent = *window->usedPercent,
                         .resetsAt = window->resetsAt()});
    }
  }
  return windows;
}

bool CodexRateLimits::carriesWindow() const {
  return !renderableWindows().empty();
}

ProviderSnapshot CodexRateLimits::snapshot(Date capturedAt, Date now) const {
  const Credits known = credits.value_or(Credits{});
  return {
      .provider = ProviderID::codex,
      .windows = renderableWindows(),
      .capturedAt = capturedAt,
      .health = codexHealth(secondsBetween(capturedAt, now)),
      .planLabel = planType ? std::optional("Codex " + codexPlanLabel(*planType)) : std::nullopt,
      .extraNote = codexCreditsNote(known.hasCredits, known.unlimited, known.balance)};
}

std::optional<CodexRolloutLine::Payload> CodexRolloutLine::Payload::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Payload{.rateLimits = CodexRateLimits::decode(value["rate_limits"])};
}

std::optional<CodexRolloutLine> CodexRolloutLine::decode(std::string_view line) {
  const auto document = JsonDocument::parseObject(line);
  if (!document) {
    return std::nullopt;
  }
  const JsonValue root = document->root();
  return CodexRolloutLine{.payload = Payload::decode(root["payload"]),
                          .timestamp = root["timestamp"].date()};
}

std::string codexWindowLabel(std::int64_t minutes) {
  if (minutes == minutesPerWeek) {
    return "Weekly";
  }
  if (minutes >= minutesPerDay && minutes % minutesPerDay == 0) {
    return std::to_string(minutes / minutesPerDay) + "d";
  }
  if (minutes < minutesPerHour) {
    return std::to_string(std::max<std::int64_t>(minutes, 1)) + "m";
  }
  const std::string hours = std::to_string(minutes / minutesPerHour) + "h";
  const std::int64_t rest = minutes % minutesPerHour;
  return rest == 0 ? hours : hours + std::to_string(rest) + "m";
}

std::string codexPlanLabel(std::string_view planType) {
  std::string type = lowercased(planType);
  for (const PlanName& name : planNames) {
    if (name.type == type) {
      return std::string(name.label);
    }
  }
  return capitalizedWords(std::move(type));
}

std::optional<std::string> codexCreditsNote(std::optional<bool> hasCredits,
                                            std::optional<bool> unlimited,
                                            std::optional<double> balance) {
  if (unlimited == true) {
    return "Rate resets available: unlimited credits";
  }
  if (hasCredits != true) {
    return std::nullopt;
  }
  if (const auto text = amount(balance)) {
    return "Rate resets available: " + *text + " credits";
  }
  return "Rate resets available";
}

ProviderSnapshot::Health codexHealth(double age) {
  return age > staleAfter ? Health::stale(relativeAge(age)) : Health::ok();
}

}  // namespace marigold
