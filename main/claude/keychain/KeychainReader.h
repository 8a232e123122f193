#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "claude/ClaudeCredentials.h"
#include "claude/keychain/SecuritySecretRunner.h"
#include "ports/Keychain.h"

namespace marigold {

/// Where the one Claude Code login lives.
struct ClaudeItemLocation {
  std::string account;       ///< never empty
  std::string keychainPath;  ///< absolute

  bool operator==(const ClaudeItemLocation&) const = default;
};

/// The verdict of the inspection that precedes the read: where the login is, ready to be read
/// without asking the user, or why it must not be read.
using ClaudePreflight = std::expected<ClaudeItemLocation, KeychainReadError>;

/// Whether an item's access rules let the security tool read it without asking the user.
enum class ACLDecision : std::uint8_t { trusted, untrusted, unknown };

/// What one decrypt rule says about a silent read by the security tool.
enum class ACLEntryContribution : std::uint8_t { grantsSilentRead, provesPrompt, inconclusive };

/// The partitions that an item is shared with.
struct PartitionFinding {
  enum class Kind : std::uint8_t {
    list,
    absent,      ///< the item has no partition rule
    unreadable,  ///< it has one that cannot be read
  };
  Kind kind = Kind::absent;
  std::vector<std::string> list;  ///< of a list

  bool operator==(const PartitionFinding&) const = default;
};

/// Reads the login that Claude Code keeps in the user's keychain: only where the system will not
/// ask the user, and through the system's own security tool. Keeps nothing.
struct KeychainReader {
  /// The name under which Claude Code writes.
  static constexpr std::string_view service = "Claude Code-credentials";
  /// The partition of the system's own tools.
  static constexpr std::string_view appleToolPartition = "apple-tool:";

  /// Inspects the item and, unless that forbids it, runs the security tool, which blocks for up to
  /// its timeout and the time to end it.
  [[nodiscard]] static ClaudeLogin readClaude(Keychain& keychain, SecretCommandRunning& runner);

  /// The inspection, during which the system asks the user nothing.
  [[nodiscard]] static ClaudePreflight preflight(Keychain& keychain);
  [[nodiscard]] static ClaudePreflight preflightVerdict(
      std::size_t matchCount, bool unlocked, ACLDecision acl,
      const std::optional<std::string>& account, const std::optional<std::string>& keychainPath);
  [[nodiscard]] static std::vector<std::string> credentialArguments(
      const std::string& account, const std::string& keychainPath);

  /// What a run of the security tool gave.
  [[nodiscard]] static ClaudeLogin interpret(const SecretCommandResult& result);

  [[nodiscard]] static ACLDecision combinedACLDecision(ACLDecision decrypt,
                                                       const PartitionFinding& partitions);
  [[nodiscard]] static ACLEntryContribution decryptEntryContribution(bool demandsPassphrase,
                                                                     bool trustsSecurityTool,
                                                                     bool trustsEveryApplication);
  /// From the description of a partition rule: a property list, or one in hexadecimal digits.
  [[nodiscard]] static PartitionFinding partitionFinding(
      const std::optional<std::string>& description);
  [[nodiscard]] static std::optional<std::vector<std::string>> partitionIDs(std::string_view plist);
  /// The bytes that pairs of hexadecimal digits stand for; nothing when there is anything else.
  [[nodiscard]] static std::optional<std::string> hexDecoded(std::string_view text);

 private:
  [[nodiscard]] static ACLDecision aclDecision(Keychain& keychain, const KeychainItem& item);
  [[nodiscard]] static ACLDecision decryptDecision(const std::vector<KeychainRule>& rules);
};

}  // namespace marigold
