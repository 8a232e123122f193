#include "ClaudeHealth.h"

#include <algorithm>
#include <array>

namespace marigold {

namespace {

struct Explanation {
  std::string_view shortText;
  std::string_view text;
};

constexpr std::array explanations{
    Explanation{.shortText = ClaudeUnavailable::ambiguous,
                .text = "There is more than one Claude login in your Keychain and Marigold will "
                        "not guess which one to read. Remove the extra one in Keychain Access."},
    Explanation{.shortText = ClaudeUnavailable::unauthorized,
                .text = "Your Keychain no longer lets Apple's security tool read the Claude login. "
                        "Signing out of Claude Code and back in usually puts that back."},
    Explanation{.shortText = ClaudeUnavailable::indeterminate,
                .text = "Marigold could not check your Claude login safely, so it did not read "
                        "it."},
    Explanation{.shortText = ClaudeUnavailable::timedOut,
                .text = "Reading your Claude login did not finish. If macOS left a Keychain dialog "
                        "on screen, close it, then try again."},
    Explanation{.shortText = ClaudeUnavailable::tokenExpired,
                .text = "Your Claude Code login has expired. Run claude in Terminal once to "
                        "refresh it. Marigold reads that login, not the Claude app's."},
    Explanation{.shortText = ClaudeUnavailable::keychainLocked,
                .text = "Your Mac Keychain is locked. Marigold reads the Claude login again once "
                        "it is unlocked."},
    Explanation{.shortText = ClaudeUnavailable::unreachable,
                .text = "Marigold could not reach Anthropic to ask for your usage."},
    Explanation{.shortText = ClaudeUnavailable::unexpectedAnswer,
                .text = "Anthropic answered with usage data Marigold could not read."},
    Explanation{.shortText = ClaudeUnavailable::throttled,
                .text = "Anthropic is limiting how often Marigold can ask for usage. Your Claude "
                        "limits are not affected."},
    Explanation{.shortText = ClaudeUnavailable::serverError,
                .text = "Anthropic's usage service returned an error."},
};

std::optional<std::string_view> staleLine(std::string_view reason) {
  if (reason == claudeStaleReason::fetchFailed) {
    return ClaudeUnavailable::unreachable;
  }
  if (reason == claudeStaleReason::unexpectedPayload ||
      reason == claudeStaleReason::unreadableValue) {
    return ClaudeUnavailable::unexpectedAnswer;
  }
  return reason == ClaudeUnavailable::keychainLocked ? std::optional(reason) : std::nullopt;
}

}  // namespace

std::optional<std::string_view> claudeFailureLine(const std::optional<Health>& health) {
  if (!health) {
    return std::nullopt;
  }
  switch (health->kind()) {
    case Health::Kind::serverError:
      return ClaudeUnavailable::serverError;
    case Health::Kind::rateLimited:
      return ClaudeUnavailable::throttled;
    case Health::Kind::stale:
      return staleLine(health->reason());
    case Health::Kind::reconnect:
    case Health::Kind::notInstalled:
    case Health::Kind::ok:
    case Health::Kind::turnedOff:
      break;
  }
  return std::nullopt;
}

std::string_view claudeFailureText(std::string_view shortText) {
  const auto* const found = std::ranges::find(explanations, shortText, &Explanation::shortText);
  return found != explanations.end() ? found->text : "Marigold could not read your Claude login.";
}

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

std::string_view claudeToggleTitle(ClaudeUsageToggle toggle) noexcept {
  return toggle == ClaudeUsageToggle::turnOn ? "Turn On Claude Usage" : "Turn Off Claude Usage";
}

std::string_view claudeToggleTooltip(ClaudeUsageToggle toggle) noexcept {
  return toggle == ClaudeUsageToggle::turnOn
             ? "Read your Claude login again and show usage."
             : "Stop reading your Claude login and forget Claude's cached usage numbers. Codex and "
               "Grok are not affected.";
}

}  // namespace marigold
