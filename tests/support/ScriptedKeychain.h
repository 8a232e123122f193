#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "BoundedProcessRun.h"
#include "ports/Keychain.h"

namespace marigold::test {

inline constexpr const char* login =
    R"({"claudeAiOauth":{"accessToken":"x","refreshToken":"y","expiresAt":1781455589763,)"
    R"("subscriptionType":"max"}})";

using Applications = std::optional<std::vector<std::string>>;

inline KeychainRule decryptRule(const Applications& applications,
                                std::uint16_t promptSelector = 0) {
  return {.decrypt = true, .contents = {{applications, {}, promptSelector}}};
}
inline KeychainRule partitionRule(const std::optional<std::string>& description) {
  return {.partitionID = true, .contents = {{{}, description}}};
}

inline constexpr const char* tool = "/usr/bin/security";

/// A keychain that holds one login which the security tool may read.
class ScriptedKeychain final : public Keychain {
 public:
  template <class Value>
  using Result = std::expected<Value, KeychainStatus>;

  Result<std::vector<KeychainMatch>> matches{{{.account = "me", .item = std::make_shared<int>()}}};
  Result<std::string> path = "/dev/null";
  Result<std::uint32_t> status = 7;
  std::optional<std::vector<KeychainRule>> rules{{decryptRule({{tool}})}};
  bool interactionAllowed = true;

  void setUserInteractionAllowed(bool allowed) override { interactionAllowed = allowed; }
  Result<std::vector<KeychainMatch>> search(std::string_view service) override {
    EXPECT_EQ(service, "Claude Code-credentials");
    return quietly(matches);
  }
  Result<std::string> pathOfKeychain(const KeychainItem&) override { return quietly(path); }
  Result<std::uint32_t> statusOfKeychain(const KeychainItem&) override { return quietly(status); }
  std::optional<std::vector<KeychainRule>> accessRules(const KeychainItem&) override {
    return quietly(rules);
  }

 private:
  template <class Value>
  Value quietly(const Value& value) const {
    EXPECT_FALSE(interactionAllowed);
    return value;
  }
};

/// A security tool that prints that login, or does not finish.
class ScriptedRunner final : public SecretCommandRunning {
 public:
  std::vector<std::string> seen;
  bool timesOut = false;

  SecretCommandResult run(const std::vector<std::string>& arguments) override {
    seen = arguments;
    return timesOut ? SecretCommandResult{.timedOut = true}
                    : SecretCommandResult{.stdoutBytes = Secret(login)};
  }
};

}  // namespace marigold::test
