#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include "BoundedProcessRun.h"
#include "ClaudeUsage.h"
#include "LinuxTransport.h"
#include "support/RecordingLog.h"
#include "support/TLSServer.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::TLSServer, test::Visit, testing::HasSubstr;

HTTPRequest request(Seconds timeout = Seconds{10}) {
  HTTPRequest made = claudeUsageRequest(Secret("the-token"), "agent/1");
  made.timeout = timeout;
  return made;
}

TEST(RequestWire, CarriesWholeRequestsOnly) {
  const HTTPRequest sent = request(Seconds{1.5});
  const HTTPSProxy proxy{.url = "http://p:1", .exceptions = "a,b"};
  const auto text = encodeRequest(sent, proxy);
  const auto order = decodeRequest(text.value().expose());
  EXPECT_EQ(order.value().request.url, sent.url);
  EXPECT_EQ(order->request.bearerToken.expose(), "the-token");
  EXPECT_EQ(order->request.headers, sent.headers);
  EXPECT_EQ(order->request.timeout, sent.timeout);
  EXPECT_EQ(order->request.longestBody, sent.longestBody);
  EXPECT_EQ(order->proxy, proxy);
  for (std::size_t length = 0; length < text->size(); ++length) {
    EXPECT_FALSE(decodeRequest(text->expose().substr(0, length))) << length;
  }
  EXPECT_FALSE(decodeRequest(std::string(text->expose()) + "\n"));
  EXPECT_FALSE(decodeRequest("marigold-request 2" + std::string(text->expose().substr(18))));

  const auto refuses = [](const auto& change, const HTTPSProxy& by = {}) {
    HTTPRequest changed = request();
    change(changed);
    return !encodeRequest(changed, by);
  };
  const auto nothing = [](HTTPRequest&) {};
  EXPECT_FALSE(refuses(nothing));
  EXPECT_TRUE(refuses(nothing, {.url = "http://p\n", .exceptions = ""}));
  EXPECT_TRUE(refuses([](HTTPRequest& r) { r.bearerToken = Secret("a\nb"); }));
  EXPECT_TRUE(refuses([](HTTPRequest& r) { r.bearerToken = Secret(); }));
  EXPECT_TRUE(refuses([](HTTPRequest& r) { r.bearerToken = Secret(std::string(65536, 'a')); }));
  EXPECT_TRUE(refuses([](HTTPRequest& r) { r.headers.emplace_back("a", "b\r"); }));
  EXPECT_TRUE(refuses([](HTTPRequest& r) { r.method = "POST"; }));
}

TEST(RequestWire, CarriesWholeAnswersOnly) {
  const std::string text =
      encodeAnswer({.status = 429, .retryAfter = "30", .unifiedFiveHourReset = "", .body = "a\nb"});
  const auto answer = decodeAnswer(text, 3);
  EXPECT_EQ(answer.value().status, 429);
  EXPECT_EQ(answer->retryAfter, "30");
  EXPECT_EQ(answer->unifiedReset, std::nullopt);
  EXPECT_EQ(answer->unifiedFiveHourReset, "");
  EXPECT_EQ(answer->body, "a\nb");
  EXPECT_FALSE(answer->bodyIsCut);
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(decodeAnswer(text.substr(0, length), 3)) << length;
  }
  EXPECT_FALSE(decodeAnswer(text, 2));
  for (const char* odd :
       {"200 0 whole\n-\n-\n-\nx", "200 0 half\n-\n-\n-\n", "20 0 whole\n-\n-\n-\n",
        "200 -1 whole\n-\n-\n-\n", "200x 0 whole\n-\n-\n-\n", "200 0 whole\n-\n=\n-\n",
        "99999999999 0 whole\n-\n-\n-\n"}) {
    EXPECT_FALSE(decodeAnswer(odd, 3)) << odd;
  }
  EXPECT_TRUE(decodeAnswer("200 0 cut\n-\n-\n-\n", 3).value().bodyIsCut);
}

constexpr const char* noContent = "HTTP/1.1 204 None\r\n\r\n";

TLSServer::Script saying(const std::string& text) {
  return [text](Visit& visit) { visit.say(text); };
}
TLSServer::Script stalling(const std::string& text) {
  return [text](Visit& visit) {
    visit.say(text);
    visit.hold();
  };
}

// The real program, but for whom it believes, against servers of its own.
class LinuxTransportTest : public testing::Test {
 protected:
  void SetUp() override {
    (void)std::signal(SIGPIPE, SIG_IGN);  // as the program does
    place.write("authority.pem", authority.text());
    fs::create_symlink(MARIGOLD_TEST_REQUEST, program);
    descriptors = openDescriptors();
  }
  void TearDown() override {
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }
  static std::ptrdiff_t openDescriptors() {
    const fs::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  }

  // Has requests find `server`.
  void lead(const TLSServer& server) {
    place.write("connect-to", "api.anthropic.com:443:" + server.address());
  }
  // What one request gives from a server that acts so.
  std::optional<HTTPAnswer> ask(const TLSServer::Script& script, Seconds timeout = Seconds{10}) {
    const TLSServer server(identity, script);
    lead(server);
    return transport.send(request(timeout));
  }
  const test::TemporaryDirectory place;
  const test::Authority authority;
  const test::Identity identity = authority.issue("api.anthropic.com");
  const std::string program = place.path() + "/marigold-request";
  test::RecordingLog log;
  LinuxTransport transport{program, {}, log};
  std::ptrdiff_t descriptors = 0;
};

TEST_F(LinuxTransportTest, SendsThisAndNothingElse) {
  const TLSServer server(
      identity,
      saying("HTTP/1.1 429 Slow\r\nretry-after:  17 \r\nSet-Cookie: a=b; Secure; Path=/\r\n"
             "Anthropic-Ratelimit-Unified-Reset: 1781\r\nContent-Length: 2\r\n\r\n{}"));
  lead(server);
  for (int time = 0; time < 2; ++time) {
    const auto answer = transport.send(request());
    EXPECT_EQ(answer.value().status, 429);
    EXPECT_EQ(answer->retryAfter, "17");
    EXPECT_EQ(answer->unifiedReset, "1781");
    EXPECT_EQ(answer->unifiedFiveHourReset, std::nullopt);
    EXPECT_EQ(answer->body, "{}");
  }
  EXPECT_THAT(server.requests(), testing::Each("GET /api/oauth/usage HTTP/1.1\r\n"
                                               "Host: api.anthropic.com\r\n"
                                               "Authorization: Bearer the-token\r\n"
                                               "anthropic-beta: oauth-2025-04-20\r\n"
                                               "anthropic-version: 2023-06-01\r\n"
                                               "User-Agent: agent/1\r\n\r\n"));
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(LinuxTransportTest, BelievesOnlyWhoProvesToBeTheHost) {
  struct Case {
    std::string_view what;
    test::Identity identity;
    int newestVersion = TLS1_3_VERSION;
    bool believed = false;
  };
  for (const Case& each : {Case{"TLS 1.2", identity, TLS1_2_VERSION, true},
                           {"TLS 1.1", identity, TLS1_1_VERSION},
                           {"another authority", test::Authority().issue("api.anthropic.com")},
                           {"another host", authority.issue("anthropic.com")},
                           {"the past", authority.issue("api.anthropic.com", -60)}}) {
    const TLSServer server(each.identity, saying(noContent), {.newestVersion = each.newestVersion});
    lead(server);
    EXPECT_EQ(transport.send(request()).has_value(), each.believed) << each.what;
    EXPECT_EQ(server.requests().size(), each.believed ? 1U : 0U) << each.what;
    EXPECT_EQ(server.connections(), 1) << each.what;
  }
}

TEST_F(LinuxTransportTest, FollowsNobodyAndSpeaksOnlyHTTPS) {
  const TLSServer elsewhere(authority.issue("localhost"), [](Visit&) {});
  const std::string there = "localhost:" + elsewhere.address().substr(10);
  for (const int status : {301, 302, 303, 307, 308}) {
    const auto answer =
        ask(saying("HTTP/1.1 " + std::to_string(status) + " Go\r\nLocation: https://" + there +
                   "/\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(answer.value().status, status);
  }
  for (const char* scheme : {"http://", "", "ftp://", "HTTP://", "https://user@"}) {
    HTTPRequest other = request();
    other.url = scheme + there;
    EXPECT_FALSE(transport.send(other)) << scheme;
  }
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(LinuxTransportTest, TakesABodyAsItIsUpToItsBound) {
  constexpr std::size_t bound = 1U << 20U;
  const std::string packed("\x1F\x8B\x08\0\n\xFF", 6);
  EXPECT_EQ(
      ask(saying("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 6\r\n\r\n" + packed))
          .value()
          .body,
      packed);
  const auto parts =
      ask(saying("HTTP/1.1 103 Soon\r\nRetry-After: 1\r\n\r\nHTTP/1.1 200 OK\r\n"
                 "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1\r\nc\r\n0\r\n\r\n"));
  EXPECT_EQ(parts.value().body, "abc");
  EXPECT_EQ(parts->retryAfter, std::nullopt);
  const auto full = ask(saying("HTTP/1.1 200 OK\r\n\r\n" + std::string(bound, 'x')));
  EXPECT_TRUE(full.value().body.size() == bound && !full->bodyIsCut);
  std::size_t taken = 0;
  const auto flood = ask([&](Visit& visit) {
    const std::string part(65536, 'x');
    bool listens = visit.say("HTTP/1.1 200 OK\r\nContent-Length: 67108864\r\n\r\n");
    for (; listens && taken < 64 * bound; taken += part.size()) {
      listens = visit.say(part);
    }
  });
  EXPECT_TRUE(flood.value().body.size() == bound && flood->bodyIsCut);
  EXPECT_LT(taken, 32 * bound) << "what the system's buffers hold may have been sent besides";
}

TEST_F(LinuxTransportTest, HalfAnAnswerIsNone) {
  const std::string start = "HTTP/1.1 200 OK\r\n";
  std::string manyHeaders;
  while (manyHeaders.size() <= longestHeader) {
    manyHeaders += "X: " + std::string(1000, 'x') + "\r\n";
  }
  const std::string half = start + "Content-Length: 9\r\n\r\nhalf";
  struct Case {
    std::string_view what;
    TLSServer::Script script;
    Seconds timeout{10};
  };
  for (const Case& each : std::initializer_list<Case>{
           {"silence", stalling(""), Seconds{0.3}},
           {"a stalled header", stalling(start), Seconds{0.3}},
           {"a stalled body", stalling(half), Seconds{0.3}},
           {"no answer at all", saying("")},
           {"a body that ends early", saying(half)},
           {"another protocol", saying("220 smtp ready\r\n")},
           {"a header without measure", saying(start + manyHeaders + "\r\n")},
           {"a reset", [&](Visit& visit) {
              visit.say(half);
              visit.reset();
            }}}) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(ask(each.script, each.timeout)) << each.what;
    EXPECT_LT(std::chrono::steady_clock::now() - before, Seconds{5}) << each.what;
  }
}

TEST_F(LinuxTransportTest, StopsAtOnceAndForGood) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(ask([&](Visit& visit) {
    transport.stop();
    visit.hold();
  }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, Seconds{5});
  const TLSServer server(identity, saying(noContent));
  lead(server);
  EXPECT_FALSE(transport.send(request()));
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(LinuxTransportTest, GoesThroughTheProxyBlindly) {
  const TLSServer server(identity, saying(noContent), {.asProxy = true});
  const auto statusBy = [&](const HTTPSProxy& proxy) {
    return LinuxTransport(program, proxy, log)
        .send(request(Seconds{5}))
        .value_or(HTTPAnswer{})
        .status;
  };
  EXPECT_EQ(statusBy({.url = "http://u:p@" + server.address(), .exceptions = "localhost"}), 204);
  EXPECT_THAT(server.requests(),
              testing::ElementsAre(testing::AllOf(HasSubstr("CONNECT api.anthropic.com:443 "),
                                                  testing::Not(HasSubstr("the-token")),
                                                  testing::Not(HasSubstr("agent/1"))),
                                   HasSubstr("Bearer the-token")));
  EXPECT_EQ(statusBy({.url = "socks5://" + server.address(), .exceptions = ""}), 0);
  EXPECT_EQ(server.connections(), 1);
  const TLSServer direct(identity, saying("HTTP/1.1 205 None\r\n\r\n"));
  lead(direct);
  EXPECT_EQ(statusBy({.url = server.address(), .exceptions = "x, .anthropic.com"}), 205);

  const auto fromEnvironment = [](const decltype(Surroundings::environment)& variables) {
    return httpsProxy({.environment = variables});
  };
  EXPECT_EQ(fromEnvironment({{"https_proxy", "a"}, {"HTTPS_PROXY", "b"}, {"NO_PROXY", "c"}}),
            (HTTPSProxy{.url = "a", .exceptions = "c"}));
  EXPECT_EQ(fromEnvironment({{"http_proxy", "a"}, {"ALL_PROXY", "b"}, {"HTTPS_PROXY", "c"}}),
            (HTTPSProxy{.url = "c", .exceptions = ""}));
}

TEST_F(LinuxTransportTest, ExpectsLittleOfItsHelper) {
  const auto statusFrom = [&](const std::string& helper) {
    return LinuxTransport(helper, {}, log).send(request()).value_or(HTTPAnswer{}).status;
  };
  const auto script = [&](const std::string& ending) {
    std::string path =
        place.write("helper", "#!/bin/sh\nprintf '200 0 whole\\n-\\n-\\n-\\n'\n" + ending);
    fs::permissions(path, fs::perms::owner_all);
    return path;
  };
  EXPECT_EQ(statusFrom(script("cat >/dev/null")), 200);
  EXPECT_EQ(statusFrom(script("exit 1")), 0);
  EXPECT_EQ(statusFrom(script("kill -9 $$")), 0);
  EXPECT_EQ(statusFrom(script("printf x")), 0);
  EXPECT_EQ(statusFrom(script("exec cat /dev/zero")), 0);
  EXPECT_EQ(statusFrom("/bin/cat"), 0);
  EXPECT_THAT(log.lines, testing::IsEmpty());
  EXPECT_EQ(statusFrom(place.path() + "/absent"), 0);
  EXPECT_THAT(log.lines, testing::ElementsAre("cannot start " + place.path() + "/absent"));
  EXPECT_EQ(fs::path(requestProgram()).parent_path(),
            fs::read_symlink("/proc/self/exe").parent_path());
}

// The program that is installed, called as an intruder would: no argument, file or variable makes
// it believe another authority.
TEST_F(LinuxTransportTest, TheInstalledHelperBelievesTheSystemOnly) {
  const TLSServer server(authority.issue("localhost"), saying(noContent));
  HTTPRequest other = request();
  other.url = "https://localhost:" + server.address().substr(10) + "/";
  const std::string authorities = place.path() + "/authority.pem";
  fs::remove(program);
  fs::create_symlink(MARIGOLD_REQUEST, program);
  const auto result =
      BoundedProcessRun::execute({.executable = program,
                                  .arguments = {"--cacert", authorities, "--insecure"},
                                  .environment = {{"SSL_CERT_FILE", authorities},
                                                  {"CURL_CA_BUNDLE", authorities},
                                                  {"SSL_CERT_DIR", place.path()}},
                                  .stdoutCap = 1000,
                                  .stderrCap = 1000,
                                  .timeout = Seconds{10},
                                  .input = encodeRequest(other, {})});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.stdoutBytes.size() + result.stderrByteCount, 0U);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace marigold
