#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "model/ProviderSnapshot.h"

// What is said about Claude. The texts are the Mac's; DesktopTexts.h gives a desktop's own.

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
/// The wording on Linux of a short text or an explanation; nothing where the Mac's is true there.
[[nodiscard]] std::optional<std::string_view> claudeTextOnLinux(std::string_view text);

/// The two directions of the command that turns the reading of Claude on or off.
enum class ClaudeUsageToggle : std::uint8_t { turnOn, turnOff };

[[nodiscard]] std::string_view claudeToggleTitle(ClaudeUsageToggle toggle) noexcept;
[[nodiscard]] std::string_view claudeToggleTooltip(ClaudeUsageToggle toggle) noexcept;

}  // namespace marigold
