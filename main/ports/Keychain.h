#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Pinned.h"

namespace marigold {

/// What the system's keychain calls its results. 0 is success.
using KeychainStatus = std::int32_t;

/// An item, held for as long as somebody refers to it.
using KeychainItem = std::shared_ptr<const void>;

/// An item that a search found.
struct KeychainMatch {
  std::optional<std::string> account;  ///< absent when missing or not text
  KeychainItem item;                   ///< null when missing or not a keychain item
};

/// One of the access-control rules of an item.
struct KeychainRule {
  struct Contents {
    /// The data of each trusted application, empty when it cannot be read; absent when the rule
    /// trusts every application.
    std::optional<std::vector<std::string>> applications;
    std::optional<std::string> description;
    std::uint16_t promptSelector = 0;
  };

  // What it governs; nothing when that cannot be read.
  bool decrypt = false;
  bool partitionID = false;
  std::optional<Contents> contents;  ///< nothing when they cannot be read
};

/// The system's keychain, as far as inspecting an item takes. Calls block, and none reads a secret.
class Keychain : public Pinned {
 public:
  /// Whether the system may ask the user. Holds for the whole process.
  virtual void setUserInteractionAllowed(bool allowed) = 0;

  /// All generic-password items of `service`. The error is 0 when the search succeeded with
  /// something other than a list of attributes.
  [[nodiscard]] virtual std::expected<std::vector<KeychainMatch>, KeychainStatus> search(
      std::string_view service) = 0;
  /// The path of the keychain file that holds `item`, of 1023 bytes at most.
  [[nodiscard]] virtual std::expected<std::string, KeychainStatus> pathOfKeychain(
      const KeychainItem& item) = 0;
  /// The status bits of the keychain that holds `item`.
  [[nodiscard]] virtual std::expected<std::uint32_t, KeychainStatus> statusOfKeychain(
      const KeychainItem& item) = 0;
  /// The access-control rules of `item`, in their order; nothing when they cannot be read.
  [[nodiscard]] virtual std::optional<std::vector<KeychainRule>> accessRules(
      const KeychainItem& item) = 0;
};

}  // namespace marigold
