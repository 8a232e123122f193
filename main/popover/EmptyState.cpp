#include "popover/EmptyState.h"

#include "claude/ClaudeTexts.h"

namespace marigold {

EmptyStateKind emptyStateKind(ProviderID provider, const std::optional<Health>& health,
                              bool claudeReadLatched, bool claudeYetFetched,
                              const std::optional<std::string>& note) {
  using Kind = EmptyStateKind::Kind;
  const bool isClaude = provider == ProviderID::claude;
  const auto because = [&](Kind kind) {
    return EmptyStateKind{.kind = kind, .text = health->reason()};
  };
  if (health) {
    switch (health->kind()) {
      case Health::Kind::reconnect:
        if (!isClaude) {
          return because(Kind::reason);
        }
        return because(claudeReadLatched ? Kind::latched : Kind::retrying);
      case Health::Kind::notInstalled:
        return because(Kind::reason);
      case Health::Kind::ok:
        return {.kind = Kind::noLimits, .text = {}};
      case Health::Kind::turnedOff:
        return {.kind = Kind::turnedOff, .text = {}};
      case Health::Kind::stale:
      case Health::Kind::rateLimited:
      case Health::Kind::serverError:
        break;
    }
  }
  if (isClaude && !claudeYetFetched) {
    return {.kind = Kind::checking, .text = {}};
  }
  if (const auto line = isClaude ? claudeFailureLine(health) : std::nullopt) {
    return {.kind = Kind::failure, .text = std::string(*line)};
  }
  if (note && !note->empty()) {
    return {.kind = Kind::note, .text = *note};
  }
  return {.kind = Kind::noData, .text = {}};
}

bool emptyStateShowsMessage(const EmptyStateKind& kind) noexcept {
  return kind.kind != EmptyStateKind::Kind::turnedOff;
}

bool emptyStateEmitsBody(const EmptyStateKind& kind, bool hasRetained) noexcept {
  return emptyStateShowsMessage(kind) || hasRetained;
}

bool cardLeadsWithReading(const EmptyStateKind& kind, bool hasRetained) noexcept {
  return kind.kind == EmptyStateKind::Kind::retrying && hasRetained;
}

std::string_view emptyStateMessage(const EmptyStateKind& kind) {
  switch (kind.kind) {
    case EmptyStateKind::Kind::retrying:
    case EmptyStateKind::Kind::latched:
      return claudeFailureText(kind.text);
    case EmptyStateKind::Kind::reason:
    case EmptyStateKind::Kind::note:
    case EmptyStateKind::Kind::failure:
      return kind.text;
    case EmptyStateKind::Kind::turnedOff:
      break;
    case EmptyStateKind::Kind::checking:
      return "Checking Claude...";
    case EmptyStateKind::Kind::noLimits:
      return "No active limits right now.";
    case EmptyStateKind::Kind::noData:
      return "No usage data yet.";
  }
  return {};
}

std::optional<std::string_view> healthBadgeLabel(const std::optional<Health>& health,
                                                 const EmptyStateKind& kind) {
  if (!health) {
    return std::nullopt;
  }
  switch (health->kind()) {
    case Health::Kind::serverError:
      return "server error";
    case Health::Kind::rateLimited:
      return "throttled";
    case Health::Kind::turnedOff:
      return "off";
    case Health::Kind::reconnect:
      if (kind.kind == EmptyStateKind::Kind::retrying) {
        return "retrying";
      }
      if (kind.kind == EmptyStateKind::Kind::latched) {
        return "needs a tap";
      }
      break;
    case Health::Kind::stale:
    case Health::Kind::notInstalled:
    case Health::Kind::ok:
      break;
  }
  return std::nullopt;
}

bool healthOwnsCard(const std::optional<Health>& health) noexcept {
  return health && (health->kind() == Health::Kind::reconnect ||
                    health->kind() == Health::Kind::notInstalled ||
                    health->kind() == Health::Kind::turnedOff);
}

}  // namespace marigold
