#pragma once

#include <string>

#include <sys/types.h>

#include "base/Surroundings.h"
#include "claude/ClaudeCredentials.h"

namespace marigold {

/// Where Claude Code keeps its login on Linux: ".credentials.json" in the directory that
/// `CLAUDE_CONFIG_DIR` names, else in ".claude" in the user's home directory.
[[nodiscard]] std::string claudeCredentialsFile(const Surroundings& surroundings);

/// Reads that login.
class LinuxLogin {
 public:
  /// The login at `path`, which is believed only when nobody but `user` can have written it.
  LinuxLogin(std::string path, uid_t user);

  /// Reads a file, so it belongs on a worker. An absent file is `notInstalled`; one that is a link,
  /// not regular, of another user or may be written by others `indeterminate`; one that cannot be
  /// read `exitStatus`; the payload of both is the system's error number.
  [[nodiscard]] ClaudeLogin operator()() const;

 private:
  std::string path_;
  uid_t user_;
};

}  // namespace marigold
