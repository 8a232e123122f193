#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ProviderSnapshot.h"

// What a card and the menu say about a provider without a current reading, Claude's above all. The
// texts are the Mac's; `worded` of DesktopTexts.h gives a desktop's own.

namespace marigold {

/// The short texts of Claude's failures. They are also the keys that explanations are found by, so
/// a health carries these and never a desktop's own wording.
namespace ClaudeUnavailable {
inline constexpr std::string_view ambiguous = "More than one Claude login found";
inline constexpr std::string_view unauthorized = "Keychain won't release the Claude login";
inline constexpr std::string_view indeterminate = "Can't check the Claude login";
inline constexpr std::string_view timedOut = "Reading the Claude login timed out";
inline constexpr std::string_view unreadable = "Can't read the Claude login";
inline constexpr std::string_view tokenExpired = "Token expired, open Claude Code";
inline constexpr std::string_view keychainLocked = "Mac Keychain is locked";
inline constexpr std::string_view unreachable = "Can't reach Anthropic";
inline constexpr std::string_view unexpectedAnswer = "Anthropic sent an answer Marigold can't read";
inline constexpr std::string_view throttled = "Anthropic is limiting usage requests";
inline constexpr std::string_view serverError = "Anthropic's usage service returned an error";
}  // namespace ClaudeUnavailable

/// Reasons of a stale Claude reading that the user sees in other words, by `claudeFailureLine`.
namespace claudeStaleReason {
inline constexpr std::string_view fetchFailed = "fetch failed";
inline constexpr std::string_view unexpectedPayload = "unexpected payload";
inline constexpr std::string_view unreadableValue = "unreadable usage value";
}  // namespace claudeStaleReason

/// The one line that tells of a Claude failure. Nothing for a health that is none or that tells its
/// own reason.
[[nodiscard]] std::optional<std::string_view> claudeFailureLine(
    const std::optional<Health>& health);
/// The explanation of a short text of `ClaudeUnavailable`; a general one for any other text.
[[nodiscard]] std::string_view claudeFailureText(std::string_view shortText);

/// Why a card shows no bars.
struct EmptyStateKind {
  enum class Kind : std::uint8_t {
    retrying,   ///< Claude asks for a new login and is read again by itself; `text` is the reason
    latched,    ///< the same, but it is read again only when the user asks
    reason,     ///< another provider's reason
    note,       ///< the provider's own note
    failure,    ///< a Claude failure line
    turnedOff,  ///< the user turned the provider off
    checking,   ///< Claude has not been read yet
    noLimits,   ///< the provider answered but has no active limits
    noData,     ///< nothing is known yet
  };
  Kind kind = Kind::noData;
  std::string text;  ///< of the first five kinds

  bool operator==(const EmptyStateKind&) const = default;
};

[[nodiscard]] EmptyStateKind emptyStateKind(ProviderID provider,
                                            const std::optional<Health>& health,
                                            bool claudeReadLatched, bool claudeYetFetched,
                                            const std::optional<std::string>& note);

/// The small badge on a card, if any.
[[nodiscard]] std::optional<std::string_view> healthBadgeLabel(const std::optional<Health>& health,
                                                               const EmptyStateKind& kind);
/// The card shows the health instead of windows.
[[nodiscard]] bool healthOwnsCard(const std::optional<Health>& health) noexcept;

/// The two directions of the command that turns the reading of Claude on or off.
enum class ClaudeUsageToggle : std::uint8_t { turnOn, turnOff };

[[nodiscard]] std::string_view claudeToggleTitle(ClaudeUsageToggle toggle) noexcept;
[[nodiscard]] std::string_view claudeToggleTooltip(ClaudeUsageToggle toggle) noexcept;

}  // namespace marigold
