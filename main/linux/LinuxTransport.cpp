#include "LinuxTransport.h"

#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <system_error>
#include <utility>

#include "BoundedProcessRun.h"

namespace marigold {

namespace {

// How much longer than its request marigold-request may take. It watches the time itself.
constexpr Seconds margin{1};
// From being asked to end to being killed. It holds nothing that it could lose.
constexpr Seconds grace{0.1};

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
  std::error_code ignored;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ignored);
  return self.parent_path() / "marigold-request";
}

LinuxTransport::LinuxTransport(std::string program, HTTPSProxy proxy, Log& log)
    : program_(std::move(program)), proxy_(std::move(proxy)), log_(log) {}

std::optional<HTTPAnswer> LinuxTransport::send(const HTTPRequest& request) {
  auto input = encodeRequest(request, proxy_);
  if (!input) {
    return std::nullopt;
  }
  // Above the body, the answer's header and what frames both.
  const SecretCommandResult result =
      BoundedProcessRun::execute({.executable = program_,
                                  .stdoutCap = request.longestBody + 2 * longestHeader,
                                  .timeout = request.timeout + margin,
                                  .input = std::move(input),
                                  .grace = grace,
                                  .stop = &stop_});
  if (result.launchFailed) {
    log_.error("cannot start " + program_);
  }
  if (result.launchFailed || result.timedOut || result.overflowed || result.status != 0) {
    return std::nullopt;
  }
  return decodeAnswer(result.stdoutBytes.expose(), request.longestBody);
}

}  // namespace marigold
