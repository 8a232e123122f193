#pragma once

#include <string>

namespace marigold {

/// Where requests go and whom they believe, where that is not what the system says. The program
/// leaves both empty; its tests build one that does not.
struct RequestReach {
  std::string authorities;  ///< file of the trusted certificates, instead of the system's
  std::string connectTo;    ///< "HOST:PORT:ADDRESS:PORT": where to look for the first host instead
};

/// Reads one request from standard input, sends it and writes its answer to standard output, all as
/// in RequestWire.h. The exit status: 0 only when an answer was written whole, else a `NoAnswer`.
/// Says nothing to anybody else: nothing to standard error, nothing of the environment is heeded.
[[nodiscard]] int answerRequest(const RequestReach& reach);

}  // namespace marigold
