#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ports/Keychain.h"

namespace marigold {

/// The user's keychains. The items that matter lie in files and have access rules, for which the
/// system has only these older interfaces, deprecated and without a successor.
class MacKeychain final : public Keychain {
 public:
  void setUserInteractionAllowed(bool allowed) override;
  [[nodiscard]] std::expected<std::vector<KeychainMatch>, KeychainStatus> search(
      std::string_view service) override;
  [[nodiscard]] std::expected<std::string, KeychainStatus> pathOfKeychain(
      const KeychainItem& item) override;
  [[nodiscard]] std::expected<std::uint32_t, KeychainStatus> statusOfKeychain(
      const KeychainItem& item) override;
  [[nodiscard]] std::optional<std::vector<KeychainRule>> accessRules(
      const KeychainItem& item) override;
};

}  // namespace marigold
