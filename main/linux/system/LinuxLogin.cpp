#include "linux/system/LinuxLogin.h"

#include <cerrno>
#include <utility>

#include <sys/stat.h>

#include "base/BoundedFile.h"

namespace marigold {

namespace {

using Kind = KeychainReadError::Kind;

std::unexpected<KeychainReadError> failure(Kind kind, int payload = 0) {
  return std::unexpected(KeychainReadError{.kind = kind, .payload = payload});
}

// Why the file could not be opened. `systemError` is the system's error number.
std::unexpected<KeychainReadError> failure(FileFailure why, int systemError) {
  switch (why) {
    case FileFailure::missing:
      return failure(Kind::notInstalled);
    case FileFailure::unreadable:
      return failure(Kind::exitStatus, systemError);
    case FileFailure::notRegular:
    case FileFailure::tooLarge:
      break;
  }
  return failure(Kind::indeterminate, EINVAL);
}

}  // namespace

std::string claudeCredentialsFile(const Surroundings& surroundings) {
  return surroundings.toolHome("CLAUDE_CONFIG_DIR", "~/.claude") + "/.credentials.json";
}

LinuxLogin::LinuxLogin(std::string path, uid_t user) : path_(std::move(path)), user_(user) {}

ClaudeLogin LinuxLogin::operator()() const {
  const auto file = BoundedFile::open(path_);
  if (!file) {
    return failure(file.error(), errno);
  }
  if (file->owner() != user_ || (file->permissions() & (S_IWGRP | S_IWOTH)) != 0) {
    return failure(Kind::indeterminate, EPERM);
  }
  Secret bytes = Secret::withRoom(longestCredentialPayload + 1);
  const auto count = file->readAt(0, bytes.room());
  if (!count) {
    return failure(Kind::exitStatus, errno);
  }
  if (*count > longestCredentialPayload) {
    return failure(Kind::overflow);
  }
  bytes.grow(*count);
  auto credentials = decodeCredentialPayload(bytes.expose());
  if (!credentials) {
    return failure(Kind::decode);
  }
  return *std::move(credentials);
}

}  // namespace marigold
