#include "claude/ClaudeTexts.h"

#include <algorithm>
#include <array>

namespace marigold {

namespace {

// A failure in words. On Linux only where the Mac's would be untrue there.
struct Failure {
  std::string_view shortText;
  std::string_view full;
  std::string_view linuxShort;
  std::string_view linuxFull;
};

constexpr std::array failures{
    Failure{.shortText = ClaudeUnavailable::ambiguous,
            .full = "There is more than one Claude login in your Keychain and Marigold will not "
                    "guess which one to read. Remove the extra one in Keychain Access.",
            .linuxFull = "There is more than one Claude login file and Marigold will not guess "
                         "which one to read. Remove the extra one."},
    Failure{.shortText = ClaudeUnavailable::unauthorized,
            .full = "Your Keychain no longer lets Apple's security tool read the Claude login. "
                    "Signing out of Claude Code and back in usually puts that back.",
            .linuxShort = "The Claude login file can't be opened",
            .linuxFull = "Your Claude login file no longer lets Marigold read it. Signing out of "
                         "Claude Code and back in usually puts that back."},
    Failure{.shortText = ClaudeUnavailable::indeterminate,
            .full = "Marigold could not check your Claude login safely, so it did not read it."},
    Failure{.shortText = ClaudeUnavailable::timedOut,
            .full = "Reading your Claude login did not finish. If macOS left a Keychain dialog on "
                    "screen, close it, then try again.",
            .linuxFull = "Reading your Claude login file did not finish. If it is on a network "
                         "drive, check the connection, then try again."},
    Failure{.shortText = ClaudeUnavailable::unreadable,
            .full = "Marigold could not read your Claude login."},
    Failure{.shortText = ClaudeUnavailable::tokenExpired,
            .full = "Your Claude Code login has expired. Run claude in Terminal once to refresh "
                    "it. Marigold reads that login, not the Claude app's.",
            .linuxFull = "Your Claude Code login has expired. Run claude in a terminal once to "
                         "refresh it. Marigold reads that login, not the Claude app's."},
    Failure{.shortText = ClaudeUnavailable::keychainLocked,
            .full = "Your Mac Keychain is locked. Marigold reads the Claude login again once it is "
                    "unlocked.",
            .linuxShort = "The Claude login file is locked",
            .linuxFull = "Your Claude login file is locked. Marigold reads it again once it is "
                         "unlocked."},
    Failure{.shortText = ClaudeUnavailable::unreachable,
            .full = "Marigold could not reach Anthropic to ask for your usage."},
    Failure{.shortText = ClaudeUnavailable::unexpectedAnswer,
            .full = "Anthropic answered with usage data Marigold could not read."},
    Failure{.shortText = ClaudeUnavailable::throttled,
            .full = "Anthropic is limiting how often Marigold can ask for usage. Your Claude "
                    "limits are not affected."},
    Failure{.shortText = ClaudeUnavailable::serverError,
            .full = "Anthropic's usage service returned an error."},
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
  const auto* const found = std::ranges::find(failures, shortText, &Failure::shortText);
  return found != failures.end() ? found->full : claudeFailureText(ClaudeUnavailable::unreadable);
}

std::optional<std::string_view> claudeTextOnLinux(std::string_view text) {
  for (const Failure& failure : failures) {
    if (text == failure.shortText && !failure.linuxShort.empty()) {
      return failure.linuxShort;
    }
    if (text == failure.full && !failure.linuxFull.empty()) {
      return failure.linuxFull;
    }
  }
  return std::nullopt;
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
