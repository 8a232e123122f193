#include "PopoverView.h"

#include <string_view>
#include <utility>

#include "bar/MenuBarSlots.h"
#include "bar/Palette.h"
#include "claude/ClaudeTexts.h"
#include "popover/ClaudeDisclosure.h"
#include "popover/EmptyState.h"

namespace marigold {

namespace {

constexpr double dimOpacity = 0.45;
constexpr std::string_view keepsChecking =
    "Marigold keeps checking. The numbers come back on their own.";

// Puts a card together from top to bottom.
class CardBuilder {
 public:
  CardBuilder(ProviderID provider, const ProviderSnapshot* snapshot, const CardSetting& setting)
      : provider_(provider),
        snapshot_(snapshot),
        setting_(setting),
        kind_(emptyStateKind(provider, health(), setting.claudeReadLatched,
                             setting.claudeYetFetched,
                             snapshot != nullptr ? snapshot->extraNote : std::nullopt)),
        hasRetained_(snapshot != nullptr && snapshot->isUsable() &&
                     !healthWithholdsReading(snapshot->health)) {}

  ProviderCard card() {
    addHeader();
    if (emptyStateEmitsBody(kind_, hasRetained_)) {
      addBody();
    }
    if (isClaude() && kind_.kind == EmptyStateKind::Kind::turnedOff) {
      card_.blocks.emplace_back(CardButton{.title = "Turn On", .press = setting_.turnOnClaude});
    } else if (isClaude()) {
      const auto texts = claudeDisclosure();
      card_.blocks.emplace_back(CardDisclosure{.title = std::string(claudeDisclosureTitle),
                                               .paragraphs = {texts.begin(), texts.end()}});
    }
    return std::move(card_);
  }

 private:
  [[nodiscard]] bool isClaude() const { return provider_ == ProviderID::claude; }

  [[nodiscard]] std::optional<Health> health() const {
    return snapshot_ != nullptr ? std::optional(snapshot_->health) : std::nullopt;
  }

  void addHeader() {
    card_.key = rawValue(provider_);
    card_.title = displayName(provider_);
    if (snapshot_ != nullptr) {
      card_.plan = snapshot_->planLabel.value_or("");
    }
    if (const auto badge = healthBadgeLabel(health(), kind_)) {
      const bool chosen = kind_.kind == EmptyStateKind::Kind::turnedOff;
      card_.badge = {.text = std::string(*badge),
                     .tone = chosen ? CardBadge::Tone::neutral : CardBadge::Tone::warning};
    }
  }

  void addBody() {
    const bool owned = healthOwnsCard(health());
    const bool leads = hasRetained_ && (!owned || cardLeadsWithReading(kind_, hasRetained_));
    if (leads) {
      addReading(owned);
    }
    if (emptyStateShowsMessage(kind_)) {
      addMessage();
    }
    if (hasRetained_ && !leads) {
      addReading(owned);
    }
    addRemarks();
  }

  void addReading(bool labelled) {
    if (labelled) {
      add(retainedReadingLabel, CardText::Tone::caption);
      std::get<CardText>(card_.blocks.back()).separated = card_.blocks.size() > 1;
    }
    const bool dim = snapshot_->health.kind() != Health::Kind::ok;
    for (const UsageWindow& window : snapshot_->windows) {
      card_.blocks.emplace_back(row(window, dim));
    }
  }

  [[nodiscard]] CardRow row(const UsageWindow& window, bool dim) const {
    auto [fill, value] = windowRowPresentation(&window, *snapshot_, dim, setting_.now);
    CardRow row{.label = window.label,
                .value = std::move(value),
                .bar = {.percent = window.percent},
                .spoken = window.label + ", " + std::to_string(shownPercent(window.percent)) +
                          " percent used"};
    if (auto reset = windowResetSubLabel(window.resetsAt, setting_.now, setting_.localTime)) {
      row.subLabel = *std::move(reset);
      row.spoken +=
          ", " +
          windowResetText(window.resetsAt, setting_.now, setting_.localTime).value_or(row.subLabel);
    }
    if (fill != WindowRowFill::none) {
      const bool dark = setting_.scheme == MarigoldTheme::Scheme::dark;
      Color color = menuBarBarFill(slotAccent(setting_.ringColors, setting_.accent, window.label),
                                   window.percent, dark ? DarkMenuBar::yes : DarkMenuBar::no);
      color.opacity = fill == WindowRowFill::dim ? dimOpacity : color.opacity;
      row.bar.fill = color;
    }
    return row;
  }

  void addMessage() {
    using Kind = EmptyStateKind::Kind;
    const std::string_view message = emptyStateMessage(kind_);
    const bool lacksReading = !hasRetained_;
    switch (kind_.kind) {
      case Kind::retrying:
        add(message, lacksReading ? CardText::Tone::primary : CardText::Tone::secondary);
        add(keepsChecking, CardText::Tone::secondary);
        return;
      case Kind::latched:
        add(message, CardText::Tone::primary);
        card_.blocks.emplace_back(CardButton{
            .title = "Try Again", .busy = setting_.claudeRetrying, .press = setting_.retryClaude});
        return;
      case Kind::failure:
        addFailure(message);
        return;
      case Kind::reason:
        add(message, CardText::Tone::primary);
        if (snapshot_->health.kind() == Health::Kind::notInstalled && !setting_.looksIn.empty()) {
          add("Looks in " + setting_.looksIn, CardText::Tone::secondary);
        }
        return;
      case Kind::checking:
        add(message, CardText::Tone::secondary);
        return;
      case Kind::note:
      case Kind::turnedOff:
      case Kind::noLimits:
      case Kind::noData:
        if (lacksReading) {
          add(message, CardText::Tone::secondary);
        }
    }
  }

  void addFailure(std::string_view line) {
    add(line, CardText::Tone::primary);
    const std::string_view explanation = claudeFailureText(line);
    if (explanation != std::string(line) + ".") {
      add(explanation, CardText::Tone::secondary);
    }
    add(keepsChecking, CardText::Tone::secondary);
  }

  // Below the reading how old it is or why, and there or in its place the provider's own note.
  void addRemarks() {
    if (snapshot_ == nullptr || healthWithholdsReading(snapshot_->health)) {
      return;
    }
    if (hasRetained_ && !isClaude() && snapshot_->health.kind() == Health::Kind::stale) {
      add(snapshot_->shownReason(setting_.now), CardText::Tone::secondary);
    }
    const bool said = kind_.kind == EmptyStateKind::Kind::note && !hasRetained_;
    if (snapshot_->extraNote && !snapshot_->extraNote->empty() && !said) {
      add(*snapshot_->extraNote, CardText::Tone::secondary);
    }
  }

  void add(std::string_view text, CardText::Tone tone) {
    const bool belowRows =
        !card_.blocks.empty() && std::holds_alternative<CardRow>(card_.blocks.back());
    card_.blocks.emplace_back(
        CardText{.text = std::string(text), .tone = tone, .separated = belowRows});
  }

  ProviderID provider_;
  const ProviderSnapshot* snapshot_;
  const CardSetting& setting_;
  EmptyStateKind kind_;
  bool hasRetained_;
  ProviderCard card_;
};

}  // namespace

WindowRowPresentation windowRowPresentation(const UsageWindow* window,
                                            const ProviderSnapshot& snapshot, bool dim, Date now) {
  if (window == nullptr) {
    return {};
  }
  const WindowRowFill trusted = dim ? WindowRowFill::dim : WindowRowFill::solid;
  return {.fill = snapshot.isColorTrustworthy(now) ? trusted : WindowRowFill::none,
          .value = std::to_string(shownPercent(window->percent)) + "%"};
}

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

ProviderCard providerCard(ProviderID provider, const ProviderSnapshot* snapshot,
                          const CardSetting& setting) {
  return CardBuilder(provider, snapshot, setting).card();
}

ProviderCard nothingVisibleCard(Handler openSettings) {
  return {.key = "nothing",
          .blocks = {CardText{.text = "No providers are shown."},
                     CardButton{.title = "Choose in Settings", .press = std::move(openSettings)}}};
}

}  // namespace marigold
