#include "claude/keychain/SecuritySecretRunner.h"

namespace marigold {

SecuritySecretRunner::SecuritySecretRunner(const Surroundings& surroundings,
                                           const std::atomic<bool>& stop, Seconds timeout)
    : childEnvironment_{{"PATH", "/usr/bin:/bin"}, {"HOME", surroundings.home}},
      stop_(stop),
      timeout_(timeout) {}

SecretCommandResult SecuritySecretRunner::run(const std::vector<std::string>& arguments) {
  return BoundedProcessRun::execute({.executable = executablePath,
                                     .arguments = arguments,
                                     .environment = childEnvironment_,
                                     .stdoutCap = stdoutCap,
                                     .stderrCap = stderrCap,
                                     .timeout = timeout_,
                                     .stop = &stop_});
}

}  // namespace marigold
