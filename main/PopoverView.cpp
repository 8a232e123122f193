#include "PopoverView.h"

#include <string_view>
#include <utility>

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
  ProviderCard card{.key = std::string(rawValue(provider)),
                    .title = std::string(displayName(provider))};
  if (snapshot != nullptr) {
    card.plan = snapshot->planLabel.value_or("");
    if (!healthWithholdsReading(snapshot->health)) {
      for (const UsageWindow& window : snapshot->windows) {
        card.blocks.emplace_back(
            CardRow{.label = window.label,
                    .value = std::to_string(shownPercent(window.percent)) + "%",
                    .subLabel = windowResetSubLabel(window.resetsAt, now, localTime).value_or("")});
      }
    }
  }
  if (std::string text = message(snapshot, now); !text.empty()) {
    card.blocks.emplace_back(CardText{.text = std::move(text)});
  }
  return card;
}

}  // namespace marigold
