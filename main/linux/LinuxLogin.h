#pragma once

#include <string>

#include <sys/types.h>

#include "KeychainReader.h"
#include "Surroundings.h"

namespace marigold {

/// Where Claude Code keeps its login on Linux: ".credentials.json" in the directory that
/// `CLAUDE_CONFIG_DIR` names, else in ".claude" in the user's home directory.
[[nodiscard]] std::string claudeCredentialsFile(const Surroundings& surroundings);

/// Reads that login. Stands in for the keychain: instead of an item's access rules the file is
/// inspected, once it is open, and a bounded read of it takes the place of the security tool.
class LinuxLogin {
 public:
  /// The login at `path`, which is believed only when the file is that of `user`.
  LinuxLogin(std::string path, uid_t user);

  /// Reads a file, so it belongs on a worker. An absent file is `notInstalled`; one that is not
  /// regular or of another user `indeterminate`; one that cannot be read `exitStatus`, with the
  /// system's error number.
  [[nodiscard]] ClaudeLogin operator()() const;

 private:
  std::string path_;
  uid_t user_;
};

}  // namespace marigold
