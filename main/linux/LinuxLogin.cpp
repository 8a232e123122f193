#include "LinuxLogin.h"

#include <cerrno>
#include <utility>

#include "BoundedFile.h"

namespace marigold {

namespace {

using Kind = KeychainReadError::Kind;
using OpenedFile = std::expected<BoundedFile, FileFailure>;

std::unexpected<KeychainReadError> blocked(Kind kind, int payload = 0) {
  return std::unexpected(KeychainReadError{.kind = kind, .payload = payload});
}

ClaudePreflight inspect(const OpenedFile& file, int systemError, const std::string& path,
                        uid_t user) {
  if (file) {
    if (file->owner() != user) {
      return blocked(Kind::indeterminate, EPERM);
    }
    return KeychainReader::preflightVerdict(1, true, ACLDecision::trusted, std::to_string(user),
                                            path);
  }
  if (file.error() == FileFailure::missing) {
    return blocked(Kind::notInstalled);
  }
  return file.error() == FileFailure::unreadable ? blocked(Kind::exitStatus, systemError)
                                                 : blocked(Kind::indeterminate, EINVAL);
}

// Does as the security tool does with an item, and fails with the system's error number.
class FileReader final : public SecretCommandRunning {
 public:
  explicit FileReader(const OpenedFile& file) : file_(file) {}

  SecretCommandResult run(const std::vector<std::string>& /*arguments*/) override {
    constexpr std::size_t cap = SecuritySecretRunner::stdoutCap;
    Secret bytes = Secret::withRoom(cap + 1);
    const auto count = file_->readAt(0, bytes.room());
    if (!count) {
      return {.status = errno};
    }
    if (*count > cap) {
      return {.overflowed = true};
    }
    bytes.grow(*count);
    return {.stdoutBytes = std::move(bytes)};
  }

 private:
  const OpenedFile& file_;
};

}  // namespace

std::string claudeCredentialsFile(const Surroundings& surroundings) {
  return surroundings.toolHome("CLAUDE_CONFIG_DIR", "~/.claude") + "/.credentials.json";
}

LinuxLogin::LinuxLogin(std::string path, uid_t user) : path_(std::move(path)), user_(user) {}

ClaudeLogin LinuxLogin::operator()() const {
  const OpenedFile file = BoundedFile::open(path_);
  const int systemError = errno;
  FileReader reader(file);
  return KeychainReader::readClaude(inspect(file, systemError, path_, user_), reader);
}

}  // namespace marigold
