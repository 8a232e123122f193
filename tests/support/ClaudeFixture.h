#pragma once

#include <expected>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "claude/ClaudeProvider.h"
#include "support/ManualEventLoop.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// How one read of the login and the request after it go.
struct ClaudeReply {
  std::optional<KeychainReadError> readError;
  std::optional<HTTPAnswer> answer;
  bool isExpired = false;  ///< the login
};
inline ClaudeReply failedRead(KeychainReadError::Kind kind) {
  return {.readError = KeychainReadError{.kind = kind}, .answer = {}};
}
inline ClaudeReply silence(bool isExpired = false) {
  return {.readError = {}, .answer = {}, .isExpired = isExpired};
}
inline ClaudeReply status(int status, std::string body = {}) {
  return {.readError = {}, .answer = HTTPAnswer{.status = status, .body = std::move(body)}};
}
inline ClaudeReply usage(double percent) {
  return status(200, R"({"five_hour":{"utilization":)" + std::to_string(percent) + "}}");
}

/// A provider over a scripted login and network, in virtual time. The worker is a loop of its own,
/// so that a test decides how far a job has come.
struct ClaudeFixture : HTTPTransport {
  TemporaryDirectory directory;
  DiskCache cache{{.environment = {{"MARIGOLD_CACHE_DIR", directory.path() + "/cache"}}}};
  ManualEventLoop loop, worker;
  ClaudeReply reply = usage(1);  ///< to the next job
  std::string token = "token";   ///< of the login
  std::string sent;              ///< the token of the last request
  int reads = 0;
  std::function<void()> whileReading = [] {};     ///< the login
  std::function<void()> whileRequesting = [] {};  ///< its usage
  std::unique_ptr<ClaudeProvider> provider = make();

  std::unique_ptr<ClaudeProvider> make() {
    return std::make_unique<ClaudeProvider>(
        loop, worker, *this, [this] { return readLogin(); }, cache);
  }
  std::expected<ClaudeCredentials, KeychainReadError> readLogin() {
    ++reads;
    whileReading();
    if (reply.readError) {
      return std::unexpected(*reply.readError);
    }
    const Date expiry = loop.date() + Seconds{reply.isExpired ? -1e9 : 1e9};
    ClaudeCredentials login;
    login.claudeAiOauth = {.accessToken = Secret(token),
                           .expiresAtMillis = expiry.time_since_epoch().count() * 1000,
                           .subscriptionType = "pro"};
    return login;
  }
  void settle() {
    while (worker.step() || loop.step()) {
    }
  }

 private:
  std::optional<HTTPAnswer> send(HTTPRequest request) override {
    sent = request.bearerToken.expose();
    whileRequesting();
    return reply.answer;
  }
  void stop() override {}
};

}  // namespace marigold::test
