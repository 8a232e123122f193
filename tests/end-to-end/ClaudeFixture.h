#pragma once

#include <csignal>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>

#include "end-to-end/ProgramFixture.h"
#include "support/TLSServer.h"

namespace marigold::test {

/// The program beside a helper that believes the tests' own authority and finds the tests' server
/// where Anthropic's would be.
class ClaudeFixture : public ProgramFixture {
 protected:
  ClaudeFixture() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    home.write("bin/authority.pem", authority.text());
    home.write("bin/connect-to", "api.anthropic.com:443:" + server.address());
    // Not links, through which the program would find its own place.
    std::filesystem::copy_file(MARIGOLD_TEST_REQUEST, home.path() + "/bin/marigold-request");
    executable = home.path() + "/bin/marigold";
    std::filesystem::copy_file(MARIGOLD_PROGRAM, executable);
    environment["CLAUDE_CONFIG_DIR"] = home.path() + "/claude";
    std::filesystem::permissions(
        home.write("claude/.credentials.json",
                   R"({"claudeAiOauth":{"accessToken":"the-token","subscriptionType":"max"}})"),
        std::filesystem::perms{0600});
    says([](Visit& visit) { visit.say(answer("200 OK", "42")); });
  }

  void says(TLSServer::Script next) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(next);
  }
  static std::string answer(const std::string& status, const std::string& percent) {
    const std::string body = R"({"five_hour":{"utilization":)" + percent + "}}";
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
  }

  Authority authority;

 private:
  std::mutex mutex_;
  TLSServer::Script script_;  // guarded by it; both outlive the server

 protected:
  TLSServer::Script script = [this](Visit& visit) {
    std::unique_lock lock(mutex_);
    const auto say = script_;
    lock.unlock();
    say(visit);
  };
  TLSServer server{authority.issue("api.anthropic.com"), script};
};

}  // namespace marigold::test
