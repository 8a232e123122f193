#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "base/Secret.h"
#include "base/Time.h"
#include "claude/ClaudeTexts.h"
#include "model/Cases.h"

namespace marigold {

class JsonValue;

/// Why the Claude login could not be read.
struct KeychainReadError {
  enum class Kind : std::uint8_t {
    ambiguous,      ///< a number of items other than one; `payload` is their count
    indeterminate,  ///< no safe verdict; `payload` is the status code that stopped the inspection
    exitStatus,     ///< the security tool failed; `payload` is its exit status
    notInstalled,   ///< no Claude Code login exists
    locked,         ///< the keychain that holds it is locked
    unauthorized,   ///< reading it would make the system ask the user
    launchFailed,   ///< the security tool could not be started
    timedOut,       ///< it did not finish in time
    overflow,       ///< it printed more than the cap
    decode,         ///< what it printed is not a Claude Code login
  };
  Kind kind = Kind::notInstalled;
  std::int32_t payload = 0;  ///< of the first three kinds, else 0

  /// For diagnostics: the name of the kind, with the payload in brackets where it has one.
  [[nodiscard]] std::string description() const;

  bool operator==(const KeychainReadError&) const = default;
};

struct KeychainReadErrorCase {
  KeychainReadError::Kind value;
  std::string_view raw;
  bool spawned;           ///< known only once the security tool was started
  std::string_view text;  ///< what is told
};
template <>
inline constexpr auto caseTable<KeychainReadError::Kind> = [] {
  using enum KeychainReadError::Kind;
  using Case = KeychainReadErrorCase;
  const auto row = [](auto value, auto raw, bool spawned, std::string_view text) {
    return Case{.value = value, .raw = raw, .spawned = spawned, .text = text};
  };
  return std::array{row(ambiguous, "ambiguous", false, ClaudeUnavailable::ambiguous),
                    row(indeterminate, "indeterminate", false, ClaudeUnavailable::indeterminate),
                    row(exitStatus, "exitStatus", true, ClaudeUnavailable::unreadable),
                    row(notInstalled, "notInstalled", false, "Claude Code not detected"),
                    row(locked, "locked", false, ClaudeUnavailable::keychainLocked),
                    row(unauthorized, "unauthorized", false, ClaudeUnavailable::unauthorized),
                    row(launchFailed, "launchFailed", true, ClaudeUnavailable::unreadable),
                    row(timedOut, "timedOut", true, ClaudeUnavailable::timedOut),
                    row(overflow, "overflow", true, ClaudeUnavailable::unreadable),
                    row(decode, "decode", true, ClaudeUnavailable::unreadable)};
}();

/// The login that Claude Code keeps. The members that are not named here are never decoded.
struct ClaudeCredentials {
  struct OAuth {
    static constexpr std::size_t maxAccessTokenLength = 8192;     ///< characters
    static constexpr std::size_t maxSubscriptionTypeLength = 64;  ///< characters

    Secret accessToken;
    std::optional<double> expiresAtMillis;  ///< milliseconds since 1970-01-01 UTC
    std::optional<std::string> subscriptionType;
  };
  OAuth claudeAiOauth;

  /// Says what is wrong without an access token of plausible length; any other bad member is
  /// absent.
  [[nodiscard]] static std::expected<ClaudeCredentials, std::string_view> decode(JsonValue root);
  /// Tells nothing of the login.
  [[nodiscard]] static std::string description() { return "ClaudeCredentials(redacted)"; }

  [[nodiscard]] std::optional<Date> expiresAt() const noexcept {
    const auto& millis = claudeAiOauth.expiresAtMillis;
    return millis ? std::optional(dateFromEpoch(*millis / 1000)) : std::nullopt;
  }
  /// Only when an expiry is known and lies strictly before `now`.
  [[nodiscard]] bool isExpired(Date now) const noexcept {
    const auto expiry = expiresAt();
    return expiry && *expiry < now;
  }
};

/// The outcome of reading the Claude login.
using ClaudeLogin = std::expected<ClaudeCredentials, KeychainReadError>;

/// Bytes of a login's JSON text; a longer one is not believed.
inline constexpr std::size_t longestCredentialPayload = 131072;

/// The login in what a keychain item or credentials file holds: one JSON text with at most a line
/// end behind it.
[[nodiscard]] std::optional<ClaudeCredentials> decodeCredentialPayload(std::string_view bytes);

}  // namespace marigold
