#pragma once

#include <mutex>
#include <optional>

#import <Foundation/Foundation.h>

#include "ports/HTTPTransport.h"

@class ClaudeRedirectRefusing;

namespace marigold {

/// Each request in a session of its own, which keeps nothing and is gone with it. The system's
/// request holds the token in a string of its own that cannot be wiped, but is let go of with the
/// session; nor does it keep the order of headers.
class MacTransport final : public HTTPTransport {
 public:
  [[nodiscard]] std::optional<HTTPAnswer> send(HTTPRequest request) override;
  void stop() override;

 private:
  std::mutex mutex_;  // guards the others
  bool stopped_ = false;
  ClaudeRedirectRefusing* current_ = nil;  ///< the delegate of the request that is out
};

}  // namespace marigold
