#pragma once

#include <expected>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ClaudeProvider.h"
#include "support/ManualEventLoop.h"
#include "support/TemporaryDirectory.h"

namespace marigold::test {

/// A network that does what the test says.
class ScriptedTransport final : public HTTPTransport {
 public:
  using Script = std::function<std::optional<HTTPAnswer>()>;
  explicit ScriptedTransport(Script script) : answer(std::move(script)) {}

  Script answer;
  std::vector<std::string> tokens;  ///< one of each request, in order

  std::optional<HTTPAnswer> send(const HTTPRequest& request) override {
    tokens.emplace_back(request.bearerToken.expose());
    return answer();
  }
  void stop() override {
    answer = [] { return std::nullopt; };
  }
};

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

/// A provider over scripted surroundings, in virtual time. The worker is a loop of its own, so that
/// a test decides how far a job has come.
struct ClaudeFixture {
  TemporaryDirectory directory;
  DiskCache cache{{.environment = {{"MARIGOLD_CACHE_DIR", directory.path() + "/cache"}}}};
  ManualEventLoop ownLoop, worker;
  ManualEventLoop& loop = ownLoop;
  ScriptedTransport transport{[this] { return reply.answer; }};
  ClaudeReply reply = usage(1);  ///< to the next job
  std::string token = "token-";  ///< each read of the login finds one of its own
  int reads = 0;
  std::unique_ptr<ClaudeProvider> provider = make();

  ClaudeFixture() = default;
  /// In the time of another loop.
  explicit ClaudeFixture(ManualEventLoop& other) : loop(other) {}

  std::unique_ptr<ClaudeProvider> make() {
    return std::make_unique<ClaudeProvider>(
        loop, worker, transport, [this] { return readLogin(); }, cache);
  }
  std::expected<ClaudeCredentials, KeychainReadError> readLogin() {
    ++reads;
    if (reply.readError) {
      return std::unexpected(*reply.readError);
    }
    const Date expiry = loop.date() + Seconds{reply.isExpired ? -1e9 : 1e9};
    ClaudeCredentials login;
    login.claudeAiOauth = {.accessToken = Secret(token + std::to_string(reads)),
                           .expiresAtMillis = expiry.time_since_epoch().count() * 1000,
                           .subscriptionType = "pro"};
    return login;
  }
  void settle() {
    while (worker.step() || loop.step()) {
    }
  }
};

}  // namespace marigold::test
