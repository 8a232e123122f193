#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "RequestWire.h"
#include "Surroundings.h"
#include "ports/HTTPTransport.h"
#include "ports/Log.h"

namespace marigold {

/// The proxy that the environment names for HTTPS.
[[nodiscard]] HTTPSProxy httpsProxy(const Surroundings& surroundings);

/// The path of marigold-request: beside the running program.
[[nodiscard]] std::string requestProgram();

/// Sends each request through a marigold-request of its own, which gets it over a pipe, so that the
/// token leaves this process by no other way and no library in it makes a copy.
class LinuxTransport final : public HTTPTransport {
 public:
  /// `program` is the path of marigold-request; `log` hears when it cannot be started. The process
  /// must ignore SIGPIPE.
  LinuxTransport(std::string program, HTTPSProxy proxy, Log& log);

  [[nodiscard]] std::optional<HTTPAnswer> send(const HTTPRequest& request) override;
  void stop() override { stop_ = true; }

 private:
  std::string program_;
  HTTPSProxy proxy_;
  Log& log_;
  std::atomic<bool> stop_ = false;
};

}  // namespace marigold
