#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "base/OwnedDescriptor.h"
#include "base/Surroundings.h"
#include "linux/request/RequestWire.h"
#include "ports/HTTPTransport.h"
#include "ports/Log.h"

namespace marigold {

/// The proxy that the environment names for HTTPS.
[[nodiscard]] HTTPSProxy httpsProxy(const Surroundings& surroundings);

/// The path of marigold-request: beside the running program. Empty when the system does not tell
/// where that is.
[[nodiscard]] std::string requestProgram();
/// Opens what may be trusted with the token: a regular file at an absolute path, of root, the user
/// or the owner of the running program, which only its owner may write. Not open for anything else.
[[nodiscard]] OwnedDescriptor openRequestProgram(const std::string& path);

/// Sends each request through a marigold-request of its own, which gets it over a pipe, so that the
/// token leaves this process by no other way and no library in it makes a copy.
class LinuxTransport final : public HTTPTransport {
 public:
  /// `program` is the absolute path of marigold-request. It is opened now, and what was found then
  /// is what is run, whatever the path leads to later. Unless it may be trusted, nothing is ever
  /// sent. `log` hears of that, and of what
  /// else is between this and an answer that somebody could mend. The process must ignore SIGPIPE.
  LinuxTransport(std::string program, HTTPSProxy proxy, Log& log);

  [[nodiscard]] std::optional<HTTPAnswer> send(HTTPRequest request) override;
  void stop() override { stop_ = true; }

 private:
  // Says so, but not what was said last.
  void tell(const std::string& line);

  std::string program_;
  OwnedDescriptor opened_;  // the program; -1 when it is not to be run
  HTTPSProxy proxy_;
  Log& log_;
  std::string told_;
  std::atomic<bool> stop_ = false;
};

}  // namespace marigold
