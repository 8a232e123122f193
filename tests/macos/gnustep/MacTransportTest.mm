// The transport against a session without a network, which drives its delegate.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#import <Foundation/Foundation.h>
#include <gmock/gmock.h>

#include "claude/ClaudeUsage.h"
#include "macos/MacTransport.h"
#include "macos/gnustep/FakeURLSession.h"
#include "support/TransportContract.h"

namespace marigold {
namespace {

struct MacTransportTest : testing::Test {
  HTTPRequest request() const {
    HTTPRequest made = claudeUsageRequest(Secret("the-token"), "agent/1");
    made.longestBody = 100;
    return made;
  }
  // What `given` leads to at this server, once nothing of the exchange is left.
  std::optional<HTTPAnswer> answer(HTTPRequest given, fake::Server server) {
    fake::server = std::move(server);
    fake::heard = {};
    auto found = transport.send(std::move(given));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (fake::sessions > 0 && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(fake::sessions, 0);
    return found;
  }
  std::optional<HTTPAnswer> answer(fake::Server server) {
    return answer(request(), std::move(server));
  }

  MacTransport transport;
};

TEST_F(MacTransportTest, SendsThisAndKeepsNothing) {
  const auto found =
      answer({.status = 429,
              .headers = {{"retry-after", "7"}, {"Anthropic-RateLimit-Unified-Reset", "9"}},
              .chunks = {"{\"a\"", ":1}"}});
  ASSERT_TRUE(found);
  EXPECT_EQ(found->status, 429);
  EXPECT_EQ(found->body, "{\"a\":1}");
  EXPECT_FALSE(found->bodyIsCut);
  EXPECT_EQ(found->retryAfter, "7");
  EXPECT_EQ(found->unifiedReset, "9");
  EXPECT_EQ(found->unifiedFiveHourReset, std::nullopt);
  EXPECT_EQ(answer({.headers = {{"anthropic-ratelimit-unified-5h-reset", "3"}}, .chunks = {}})
                .value()
                .unifiedFiveHourReset,
            "3");
  EXPECT_EQ(fake::heard.method + " " + fake::heard.url,
            "GET https://api.anthropic.com/api/oauth/usage");
  EXPECT_THAT(fake::heard.headers,
              testing::UnorderedElementsAre(testing::Pair("Authorization", "Bearer the-token"),
                                            testing::Pair("anthropic-beta", "oauth-2025-04-20"),
                                            testing::Pair("anthropic-version", "2023-06-01"),
                                            testing::Pair("User-Agent", "agent/1")));
  EXPECT_EQ(fake::heard.configuration, "15.000000 15.000000 15.000000");
  EXPECT_EQ(fake::heard.ended, 0);
}

TEST_F(MacTransportTest, FollowsNobodyAndSpeaksOnlyHTTPS) {
  EXPECT_EQ(answer({.redirectTo = "https://elsewhere.example/"}).value().status, 302);
  EXPECT_FALSE(fake::heard.followed);
  fake::heard = {};
  test::speaksOnlyHTTPSAndNothingAfterItsStop(transport, "example.org");
  EXPECT_EQ(fake::heard.url, "");
}

TEST_F(MacTransportTest, LeavesTrustToTheSystemAndGivesNoPasswords) {
  EXPECT_TRUE(answer({.challenge = "NSURLAuthenticationMethodServerTrust"}));
  EXPECT_EQ(fake::heard.disposition, NSURLSessionAuthChallengePerformDefaultHandling);
  for (const char* method :
       {"NSURLAuthenticationMethodHTTPBasic", "NSURLAuthenticationMethodClientCertificate"}) {
    EXPECT_EQ(answer({.status = 401, .challenge = method}).value().status, 401);
    EXPECT_EQ(fake::heard.disposition, NSURLSessionAuthChallengeUseCredential);
    EXPECT_FALSE(fake::heard.credential);
  }
}

TEST_F(MacTransportTest, TakesABodyUpToItsBound) {
  const auto whole = answer({.chunks = {std::string(60, 'x'), std::string(40, 'y')}});
  EXPECT_TRUE(whole.value().body.size() == 100 && !whole->bodyIsCut);
  const auto cut = answer({.chunks = std::vector<std::string>(1000, std::string(40, 'x'))});
  EXPECT_TRUE(cut.value().body.size() == 100 && cut->bodyIsCut);
  EXPECT_EQ(fake::heard.ended, NSURLErrorCancelled) << "the rest is not fetched";
}

TEST_F(MacTransportTest, HalfAnAnswerIsNoneAndAStopEndsTheWaiting) {
  for (const long error : {NSURLErrorTimedOut, NSURLErrorServerCertificateUntrusted}) {
    EXPECT_FALSE(answer({.error = error}));
    EXPECT_EQ(fake::heard.ended, error);
  }
  EXPECT_FALSE(answer({.chunks = {"half"}, .errorAfter = NSURLErrorNetworkConnectionLost}));
  HTTPRequest impatient = request();
  impatient.timeout = Seconds{0.01};
  EXPECT_FALSE(answer(std::move(impatient), {.hangs = true})) << "a session that forgets the time";
  EXPECT_EQ(fake::heard.ended, NSURLErrorCancelled);

  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(answer({.hangs = true, .whenAsked = [this] { transport.stop(); }}));
  EXPECT_LT(std::chrono::steady_clock::now() - before, request().timeout);
  EXPECT_EQ(fake::heard.ended, NSURLErrorCancelled);
  EXPECT_FALSE(answer({}));
  EXPECT_EQ(fake::heard.url, "") << "stopped for good";
}

}  // namespace
}  // namespace marigold
