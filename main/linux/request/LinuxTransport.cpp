#include "linux/request/LinuxTransport.h"

#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/BoundedProcessRun.h"
#include "linux/system/LinuxSurroundings.h"

namespace marigold {

namespace {

// How much longer than its request marigold-request may take. It watches the time itself.
constexpr Seconds margin{1};
// From being asked to end to being killed. It holds nothing that it could lose.
constexpr Seconds grace{0.1};

// What stands between us and an answer that somebody could mend; empty for all else.
std::string obstacle(std::int32_t status) {
  switch (static_cast<NoAnswer>(status)) {
    case NoAnswer::proxyUnknown:
      return "the proxy for HTTPS is none that can be used";
    case NoAnswer::proxyLogin:
      return "the proxy for HTTPS wants a login (407)";
    case NoAnswer::proxyRefusal:
      return "the proxy for HTTPS refuses to connect to Anthropic";
    case NoAnswer::whatever:
      break;
  }
  return {};
}

}  // namespace

HTTPSProxy httpsProxy(const Surroundings& surroundings) {
  // In lower case they are older and go first.
  const auto either = [&](std::string_view lower, std::string_view upper) {
    const std::string value = surroundings.variable(lower);
    return value.empty() ? surroundings.variable(upper) : value;
  };
  return {.url = either("https_proxy", "HTTPS_PROXY"),
          .exceptions = either("no_proxy", "NO_PROXY")};
}

std::string requestProgram() {
  const std::filesystem::path self = programFile();
  return self.empty() ? "" : self.parent_path() / "marigold-request";
}

namespace {

// Whether its owner is nobody whom this process does not trust already: root, the user, or whose
// the running program is, by which root is known where a sandbox knows no other users.
bool isTrustedOwner(uid_t owner) {
  struct stat self = {};
  return owner == 0 || owner == ::geteuid() ||
         (::stat("/proc/self/exe", &self) == 0 && owner == self.st_uid);
}

}  // namespace

OwnedDescriptor openRequestProgram(const std::string& path) {
  const OwnedDescriptor found(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // Above the standard descriptors, of which this process may lack some.
  OwnedDescriptor program(::fcntl(found.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  struct stat status = {};
  const bool isTrusted = path.starts_with('/') && program.isOpen() &&
                         ::fstat(program.get(), &status) == 0 && S_ISREG(status.st_mode) &&
                         isTrustedOwner(status.st_uid) &&
                         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  return isTrusted ? std::move(program) : OwnedDescriptor(-1);
}

LinuxTransport::LinuxTransport(std::string program, HTTPSProxy proxy, Log& log)
    : program_(std::move(program)),
      opened_(openRequestProgram(program_)),
      proxy_(std::move(proxy)),
      log_(log) {
  if (!opened_.isOpen()) {
    log_.error(
        "Anthropic is not asked: no marigold-request beside the program that only its owner, "
        "root or you, may write");
  }
}

std::optional<HTTPAnswer> LinuxTransport::send(HTTPRequest request) {
  auto input = encodeRequest(request, proxy_);
  request.bearerToken = Secret();  // the child's now
  if (!input || !opened_.isOpen()) {
    return std::nullopt;
  }
  // Above the body, the answer's header and what frames both.
  const SecretCommandResult result =
      BoundedProcessRun::execute({.executable = "/proc/self/fd/3",  // where the child has it
                                  .name = program_,
                                  .stdoutCap = request.longestBody + 2 * longestHeader,
                                  .timeout = request.timeout + margin,
                                  .input = std::move(input),
                                  .handedDown = opened_.get(),
                                  .grace = grace,
                                  .stop = &stop_});
  if (result.launchFailed) {
    tell("cannot start " + program_);
    return std::nullopt;
  }
  if (result.timedOut || result.overflowed || result.status != 0) {
    tell(obstacle(result.status));
    return std::nullopt;
  }
  tell({});
  return decodeAnswer(result.stdoutBytes.expose(), request.longestBody);
}

void LinuxTransport::tell(const std::string& line) {
  if (line != std::exchange(told_, line) && !line.empty()) {
    log_.error(line);
  }
}

}  // namespace marigold
