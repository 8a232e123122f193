#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Pinned.h"
#include "base/Secret.h"
#include "base/Time.h"

namespace marigold {

/// One HTTPS request. It cannot be copied, since it holds a secret that goes with it.
struct HTTPRequest {
  std::string method;
  std::string url;
  /// Sent as the first header, "Authorization: Bearer " and this text: visible ASCII only.
  Secret bearerToken;
  std::vector<std::pair<std::string, std::string>> headers;  ///< the others, in this order
  Seconds timeout{15};                                       ///< for the whole exchange
  std::size_t longestBody = 1UL << 20U;                      ///< bytes of the answer's body read
};

/// What came back, whatever its status.
struct HTTPAnswer {
  int status = 0;
  std::optional<std::string> retryAfter;            ///< "Retry-After"
  std::optional<std::string> unifiedReset;          ///< "anthropic-ratelimit-unified-reset"
  std::optional<std::string> unifiedFiveHourReset;  ///< "anthropic-ratelimit-unified-5h-reset"
  std::string body;                                 ///< at most the request's `longestBody`
  bool bodyIsCut = false;                           ///< there was more of it
};

/// The desktop's HTTPS session. It speaks TLS 1.2 or newer, verified end to end, follows no
/// redirect, and keeps nothing: no cache, no cookies, no credentials. Nothing of a request reaches
/// a log, a file, a command line or the environment.
class HTTPTransport : public Pinned {
 public:
  /// Sends `request` and waits for the whole answer; nothing when none came in time. Keeps the
  /// token no longer than it takes to send it. Blocks its thread for little more than the request's
  /// timeout. One request at a time.
  [[nodiscard]] virtual std::optional<HTTPAnswer> send(HTTPRequest request) = 0;
  /// Ends the request that is out and refuses every later one: `send` returns nothing at once. From
  /// any thread, does not wait.
  virtual void stop() = 0;
};

}  // namespace marigold
