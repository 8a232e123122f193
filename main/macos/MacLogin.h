#pragma once

#include <atomic>

#include "base/Pinned.h"
#include "base/Surroundings.h"
#include "claude/ClaudeCredentials.h"
#include "claude/keychain/KeychainReader.h"
#include "claude/keychain/SecuritySecretRunner.h"
#include "macos/MacKeychain.h"

namespace marigold {

/// Reads the login that Claude Code keeps in the user's keychain.
class MacLogin final : public Pinned {
 public:
  explicit MacLogin(const Surroundings& surroundings) : tool_(surroundings, stopped_) {}

  /// Blocks, so it belongs on a worker.
  [[nodiscard]] ClaudeLogin read() { return KeychainReader::readClaude(keychain_, tool_); }
  /// Ends a read that is out, and every later one at once. From any thread.
  void stop() { stopped_ = true; }

 private:
  std::atomic<bool> stopped_ = false;
  MacKeychain keychain_;
  SecuritySecretRunner tool_;
};

}  // namespace marigold
