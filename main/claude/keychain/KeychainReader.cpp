#include "claude/keychain/KeychainReader.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "claude/keychain/PropertyList.h"

namespace marigold {

namespace {

using Kind = KeychainReadError::Kind;

// The keychain's status codes.
constexpr KeychainStatus itemNotFound = -25300;
constexpr KeychainStatus invalidItem = -25304;
constexpr KeychainStatus noSuchKeychain = -25294;
constexpr KeychainStatus accessRulesNotSimple = -25240;

constexpr std::uint32_t unlockedBit = 1;
constexpr std::uint16_t requirePassphraseBit = 1;

// The security tool's exit status when there is no such item.
constexpr std::int32_t noSuchItem = 44;

std::unexpected<KeychainReadError> blocked(Kind kind, std::int32_t payload = 0) {
  return std::unexpected(KeychainReadError{.kind = kind, .payload = payload});
}

bool isAbsolute(std::string_view path) {
  return path.starts_with('/');
}

// Keeps the system from asking the user.
class WithoutInteraction {
 public:
  explicit WithoutInteraction(Keychain& keychain) : keychain_(keychain) {
    keychain_.setUserInteractionAllowed(false);
  }
  WithoutInteraction(const WithoutInteraction&) = delete;
  WithoutInteraction& operator=(const WithoutInteraction&) = delete;
  ~WithoutInteraction() { keychain_.setUserInteractionAllowed(true); }

 private:
  Keychain& keychain_;
};

// An application's data is its path, padded with zero bytes.
bool isSecurityTool(std::string_view application) {
  return application.substr(0, application.find_last_not_of('\0') + 1) ==
         SecuritySecretRunner::executablePath;
}

ACLEntryContribution contribution(const KeychainRule::Contents& contents) {
  const auto& applications = contents.applications;
  return KeychainReader::decryptEntryContribution(
      (contents.promptSelector & requirePassphraseBit) != 0,
      applications && std::ranges::any_of(*applications, isSecurityTool), !applications);
}

std::optional<unsigned> hexDigit(char c) {
  constexpr std::string_view digits = "0123456789ABCDEFabcdef";
  const std::size_t at = digits.find(c);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  return static_cast<unsigned>(at < 16 ? at : at - 6);
}

}  // namespace

ClaudeLogin KeychainReader::readClaude(Keychain& keychain, SecretCommandRunning& runner) {
  const ClaudePreflight location = preflight(keychain);
  if (!location) {
    return std::unexpected(location.error());
  }
  return interpret(runner.run(credentialArguments(location->account, location->keychainPath)));
}

ClaudePreflight KeychainReader::preflight(Keychain& keychain) {
  const WithoutInteraction guard(keychain);
  const auto matches = keychain.search(service);
  if (!matches) {
    return matches.error() == itemNotFound ? blocked(Kind::notInstalled)
                                           : blocked(Kind::indeterminate, matches.error());
  }
  if (matches->size() != 1) {
    return blocked(Kind::ambiguous, static_cast<std::int32_t>(matches->size()));
  }
  const auto& [account, item] = matches->front();
  if (!item) {
    return blocked(Kind::indeterminate, invalidItem);
  }
  const auto path = keychain.pathOfKeychain(item);
  if (!path) {
    return blocked(Kind::indeterminate, path.error());
  }
  std::error_code ignored;
  if (!isAbsolute(*path) || !std::filesystem::exists(*path, ignored)) {
    return blocked(Kind::indeterminate, noSuchKeychain);
  }
  const auto status = keychain.statusOfKeychain(item);
  if (!status) {
    return blocked(Kind::indeterminate, status.error());
  }
  const bool unlocked = (*status & unlockedBit) != 0;
  const ACLDecision acl = unlocked ? aclDecision(keychain, item) : ACLDecision::unknown;
  return preflightVerdict(1, unlocked, acl, account, *path);
}

ClaudePreflight KeychainReader::preflightVerdict(std::size_t matchCount, bool unlocked,
                                                 ACLDecision acl,
                                                 const std::optional<std::string>& account,
                                                 const std::optional<std::string>& keychainPath) {
  if (matchCount == 0) {
    return blocked(Kind::notInstalled);
  }
  if (matchCount >= 2) {
    return blocked(Kind::ambiguous, static_cast<std::int32_t>(matchCount));
  }
  if (!unlocked) {
    return blocked(Kind::locked);
  }
  if (acl == ACLDecision::untrusted) {
    return blocked(Kind::unauthorized);
  }
  if (acl == ACLDecision::unknown) {
    return blocked(Kind::indeterminate, accessRulesNotSimple);
  }
  if (account.value_or("").empty() || !isAbsolute(keychainPath.value_or(""))) {
    return blocked(Kind::indeterminate, invalidItem);
  }
  return ClaudeItemLocation{.account = *account, .keychainPath = *keychainPath};
}

std::vector<std::string> KeychainReader::credentialArguments(const std::string& account,
                                                             const std::string& keychainPath) {
  // By service and account, in that keychain only; "-w" prints the password alone.
  return {"find-generic-password", "-s", std::string(service), "-a", account, "-w", keychainPath};
}

ClaudeLogin KeychainReader::interpret(const SecretCommandResult& result) {
  if (result.launchFailed) {
    return blocked(Kind::launchFailed);
  }
  if (result.timedOut) {
    return blocked(Kind::timedOut);
  }
  if (result.overflowed) {
    return blocked(Kind::overflow);
  }
  if (result.status == noSuchItem) {
    return blocked(Kind::notInstalled);
  }
  if (result.status != 0) {
    return blocked(Kind::exitStatus, result.status);
  }
  auto credentials = decodeCredentialPayload(result.stdoutBytes.expose());
  if (!credentials) {
    return blocked(Kind::decode);
  }
  return *std::move(credentials);
}

ACLDecision KeychainReader::combinedACLDecision(ACLDecision decrypt,
                                                const PartitionFinding& partitions) {
  if (decrypt != ACLDecision::trusted || partitions.kind == PartitionFinding::Kind::absent) {
    return decrypt;
  }
  if (partitions.kind == PartitionFinding::Kind::unreadable) {
    return ACLDecision::unknown;
  }
  const bool listed =
      std::ranges::find(partitions.list, appleToolPartition) != partitions.list.end();
  return listed ? ACLDecision::trusted : ACLDecision::untrusted;
}

ACLEntryContribution KeychainReader::decryptEntryContribution(bool demandsPassphrase,
                                                              bool trustsSecurityTool,
                                                              bool trustsEveryApplication) {
  if (demandsPassphrase) {
    return trustsSecurityTool || trustsEveryApplication ? ACLEntryContribution::provesPrompt
                                                        : ACLEntryContribution::inconclusive;
  }
  // A rule open to all proves nothing about the tool.
  return trustsSecurityTool ? ACLEntryContribution::grantsSilentRead
                            : ACLEntryContribution::inconclusive;
}

PartitionFinding KeychainReader::partitionFinding(const std::optional<std::string>& description) {
  const std::string text = description.value_or("");
  auto list = partitionIDs(text);
  if (!list) {
    list = partitionIDs(hexDecoded(text).value_or(""));
  }
  if (!list) {
    return {.kind = PartitionFinding::Kind::unreadable};
  }
  return {.kind = PartitionFinding::Kind::list, .list = *std::move(list)};
}

std::optional<std::vector<std::string>> KeychainReader::partitionIDs(std::string_view plist) {
  const auto list = PropertyList::parse(plist);
  return list ? list->texts("Partitions") : std::nullopt;
}

std::optional<std::string> KeychainReader::hexDecoded(std::string_view text) {
  if (text.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    const auto high = hexDigit(text[at]);
    const auto low = hexDigit(text[at + 1]);
    if (!high || !low) {
      return std::nullopt;
    }
    bytes += static_cast<char>(*high << 4U | *low);
  }
  return bytes;
}

ACLDecision KeychainReader::aclDecision(Keychain& keychain, const KeychainItem& item) {
  const auto rules = keychain.accessRules(item);
  if (!rules) {
    return ACLDecision::unknown;
  }
  PartitionFinding partitions;
  const auto found = std::ranges::find_if(*rules, &KeychainRule::partitionID);
  if (found != rules->end()) {
    const auto& contents = found->contents;
    partitions = partitionFinding(contents ? contents->description : std::nullopt);
  }
  return combinedACLDecision(decryptDecision(*rules), partitions);
}

ACLDecision KeychainReader::decryptDecision(const std::vector<KeychainRule>& rules) {
  ACLDecision verdict = ACLDecision::unknown;
  for (const KeychainRule& rule : rules) {
    if (!rule.decrypt) {
      continue;
    }
    switch (rule.contents ? contribution(*rule.contents) : ACLEntryContribution::inconclusive) {
      case ACLEntryContribution::grantsSilentRead:
        return ACLDecision::trusted;
      case ACLEntryContribution::provesPrompt:
        return ACLDecision::untrusted;
      case ACLEntryContribution::inconclusive:
        verdict = ACLDecision::untrusted;
    }
  }
  return verdict;
}

}  // namespace marigold
