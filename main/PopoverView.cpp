#include "PopoverView.h"

#include <string_view>

#include "bar/MenuBarTexts.h"

namespace marigold {

namespace {

std::string message(const ProviderSnapshot* snapshot, Date now) {
  if (snapshot == nullptr) {
    return "No usage data yet.";
  }
  if (std::string reason = snapshot->shownReason(now); !reason.empty()) {
    return reason;
  }
  if (snapshot->extraNote) {
    return *snapshot->extraNote;
  }
  if (snapshot->isUsable() || snapshot->health.kind() == Health::Kind::turnedOff) {
    return {};
  }
  return snapshot->health.kind() == Health::Kind::ok ? "No active limits right now."
                                                     : "No usage data yet.";
}

}  // namespace

std::optional<std::string> windowResetSubLabel(std::optional<Date> resetsAt, Date now,
                                               const LocalTimeText& localTime) {
  if (!resetsAt || *resetsAt <= now) {
    return std::nullopt;
  }
  std::string text = windowResetText(resetsAt, now, localTime).value_or("");
  constexpr std::string_view verb = "resets ";
  if (text.starts_with(verb)) {
    text.erase(0, verb.size());
  }
  return text;
}

ProviderCard providerCard(ProviderID provider, const ProviderSnapshot* snapshot, Date now,
                          const LocalTimeText& localTime) {
  ProviderCard card{.title = std::string(displayName(provider)), .message = message(snapshot, now)};
  if (snapshot == nullptr) {
    return card;
  }
  card.plan = snapshot->planLabel.value_or("");
  if (healthWithholdsReading(snapshot->health)) {
    return card;
  }
  for (const UsageWindow& window : snapshot->windows) {
    card.rows.push_back(
        {.label = window.label,
         .value = std::to_string(shownPercent(window.percent)) + "%",
         .subLabel = windowResetSubLabel(window.resetsAt, now, localTime).value_or("")});
  }
  return card;
}

}  // namespace marigold
