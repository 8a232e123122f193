#pragma once

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "claude/ClaudeUsage.h"
#include "ports/HTTPTransport.h"

namespace marigold::test {

/// What every transport keeps to, whatever its network is. Stops it.
inline void speaksOnlyHTTPSAndNothingAfterItsStop(HTTPTransport& transport,
                                                  const std::string& host) {
  const auto send = [&](const std::string& url) {
    HTTPRequest made = claudeUsageRequest(Secret("the-token"), "agent/1");
    made.url = url;
    return transport.send(std::move(made));
  };
  for (const char* scheme : {"http://", "", "ftp://", "file:///", "://"}) {
    EXPECT_FALSE(send(scheme + host)) << scheme;
  }
  transport.stop();
  EXPECT_FALSE(send("https://" + host + "/"));
}

}  // namespace marigold::test
