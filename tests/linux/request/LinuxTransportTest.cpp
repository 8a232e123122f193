#include <csignal>

#include <gmock/gmock.h>

#include "base/BoundedProcessRun.h"
#include "claude/ClaudeUsage.h"
#include "linux/request/LinuxTransport.h"
#include "support/SimplePorts.h"
#include "support/TLSServer.h"
#include "support/TemporaryDirectory.h"
#include "support/TransportContract.h"

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
  // Two releases may meet, so the form is kept.
  const std::string text =
      "marigold-request "
      "1\n1500\n1048576\nhttps://api.anthropic.com/api/oauth/usage\nhttp://p:1\na,b\n"
      "the-token\nanthropic-beta: oauth-2025-04-20\nanthropic-version: 2023-06-01\n"
      "User-Agent: agent/1\n\n";
  const auto written =
      encodeRequest(request(Seconds{1.5}), {.url = "http://p:1", .exceptions = "a,b"});
  EXPECT_EQ(written.value().expose(), text);
  const auto order = decodeRequest(text);
  EXPECT_EQ(encodeRequest(order.value().request, order->proxy).value().expose(), text);
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(decodeRequest(text.substr(0, length))) << length;
  }
  EXPECT_FALSE(decodeRequest(text + "\n"));
  EXPECT_FALSE(decodeRequest("marigold-request 2" + text.substr(18)));
  using Change = void (*)(HTTPRequest&, HTTPSProxy&);
  for (const Change change : {Change([](auto&, auto& by) { by.url = "http://p\n"; }),
                              Change([](auto& r, auto&) { r.bearerToken = Secret("a\nb"); }),
                              Change([](auto& r, auto&) { r.bearerToken = Secret(); }),
                              Change([](auto& r, auto&) { r.url.assign(65536, 'a'); }),
                              Change([](auto& r, auto&) { r.headers.emplace_back("a", "b\r"); }),
                              Change([](auto& r, auto&) { r.method = "POST"; })}) {
    HTTPRequest odd = request();
    HTTPSProxy by;
    EXPECT_TRUE(encodeRequest(odd, by));
    change(odd, by);
    EXPECT_FALSE(encodeRequest(odd, by)) << odd.method << odd.headers.back().second;
  }
}

TEST(RequestWire, CarriesWholeAnswersOnly) {
  const std::string text = "429 3 whole\n+30\n-\n+\na\nb";
  EXPECT_EQ(
      encodeAnswer({.status = 429, .retryAfter = "30", .unifiedFiveHourReset = "", .body = "a\nb"}),
      text);
  EXPECT_EQ(encodeAnswer(decodeAnswer(text, 3).value()), text);
  EXPECT_FALSE(decodeAnswer(text, 2));
  EXPECT_TRUE(decodeAnswer("200 0 cut\n-\n-\n-\n", 3).value().bodyIsCut);
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(decodeAnswer(text.substr(0, length), 3)) << length;
  }
  for (const char* odd :
       {"200 0 whole\n-\n-\n-\nx", "200 0 half\n-\n-\n-\n", "20 0 whole\n-\n-\n-\n",
        "200 -1 whole\n-\n-\n-\n", "200x 0 whole\n-\n-\n-\n", "200 0 whole\n-\n=\n-\n",
        "99999999999 0 whole\n-\n-\n-\n"}) {
    EXPECT_FALSE(decodeAnswer(odd, 3)) << odd;
  }
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
    // A system that would speak to anybody.
    place.write("openssl.cnf",
                "openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n[c]\n"
                "MinProtocol=TLSv1\nCipherString=DEFAULT:@SECLEVEL=0\n");
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
  // Of the answer that one request gets by way of this helper; 0 without one.
  int statusBy(const std::string& helper, const HTTPSProxy& proxy = {}) {
    return LinuxTransport(helper, proxy, log).send(request()).value_or(HTTPAnswer{}).status;
  }

  const test::TemporaryDirectory place;
  const test::Authority authority;
  const test::Identity identity = authority.issue("api.anthropic.com");
  // Not a link, which would not be run.
  const std::string program = [this] {
    fs::copy_file(MARIGOLD_TEST_REQUEST, place.path() + "/marigold-request");
    return place.path() + "/marigold-request";
  }();
  test::RecordingLog log;
  LinuxTransport transport{program, {}, log};
};

TEST_F(LinuxTransportTest, SendsThisAndNothingElse) {
  const TLSServer server(
      identity,
      saying("HTTP/1.1 429 Slow\r\nretry-after:  17 \r\nSet-Cookie: a=b; Secure; Path=/\r\n"
             "Anthropic-Ratelimit-Unified-Reset: 1781\r\nContent-Length: 2\r\n\r\n{}"));
  lead(server);
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(encodeAnswer(transport.send(request()).value()), "429 2 whole\n+17\n+1781\n-\n{}");
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
  EXPECT_EQ(
      ask(saying("HTTP/1.1 307 Go\r\nLocation: https://" + there + "/\r\n\r\n")).value().status,
      307);
  LinuxTransport other(program, {}, log);
  test::speaksOnlyHTTPSAndNothingAfterItsStop(other, there);
  for (const char* scheme : {"HTTP://", "https://user@"}) {
    HTTPRequest made = request();
    made.url = scheme + there;
    EXPECT_FALSE(transport.send(std::move(made))) << scheme;
  }
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(LinuxTransportTest, TakesABodyAsItIsUpToItsBound) {
  constexpr std::size_t bound = 1U << 20U;
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string packed("\x1F\x8B\x08\0\n\xFF", 6);
  EXPECT_EQ(ask(saying(ok + "Content-Encoding: gzip\r\n\r\n" + packed)).value().body, packed);
  const auto parts =
      ask(saying("HTTP/1.1 103 Soon\r\nRetry-After: 1\r\n\r\n" + ok +
                 "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1\r\nc\r\n0\r\n\r\n"));
  EXPECT_EQ(encodeAnswer(parts.value()), "200 3 whole\n-\n-\n-\nabc");
  const auto full = ask(saying(ok + "\r\n" + std::string(bound, 'x')));
  EXPECT_TRUE(full.value().body.size() == bound && !full->bodyIsCut);
  std::size_t taken = 0;
  const auto flood = ask([&](Visit& visit) {
    const std::string part(65536, 'x');
    visit.say(ok + "Content-Length: 67108864\r\n\r\n");
    while (taken < 64 * bound && visit.say(part)) {
      taken += part.size();
    }
  });
  EXPECT_TRUE(flood.value().body.size() == bound && flood->bodyIsCut);
  EXPECT_LT(taken, 32 * bound) << "what the system's buffers hold may have been sent besides";
}

TEST_F(LinuxTransportTest, HalfAnAnswerIsNone) {
  const std::string start = "HTTP/1.1 200 OK\r\n";
  const std::string half = start + "Content-Length: 9\r\n\r\nhalf";
  std::string manyHeaders;
  while (manyHeaders.size() <= longestHeader) {
    manyHeaders += "X: " + std::string(1000, 'x') + "\r\n";
  }
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(ask(stalling(start), Seconds{0.15}));
  EXPECT_FALSE(ask(stalling(half), Seconds{0.15}));
  for (const std::string& text :
       {std::string(), half, std::string("220 smtp ready\r\n"), start + manyHeaders + "\r\n"}) {
    EXPECT_FALSE(ask(saying(text))) << text.substr(0, 99);
  }
  EXPECT_FALSE(ask([&](Visit& visit) {
    transport.stop();
    visit.hold();
  }));
  const TLSServer server(identity, saying(noContent));
  lead(server);
  EXPECT_FALSE(transport.send(request())) << "stopped for good";
  EXPECT_EQ(server.connections(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - before, Seconds{5});
}

TEST_F(LinuxTransportTest, GoesThroughTheProxyBlindly) {
  const TLSServer server(identity, saying(noContent), {.asProxy = true});
  EXPECT_EQ(statusBy(program, {.url = "HTTP://u:p@" + server.address(), .exceptions = "localhost"}),
            204);
  EXPECT_THAT(server.requests(),
              testing::ElementsAre(testing::AllOf(HasSubstr("CONNECT api.anthropic.com:443 "),
                                                  testing::Not(HasSubstr("the-token")),
                                                  testing::Not(HasSubstr("agent/1"))),
                                   HasSubstr("Bearer the-token")));
  const TLSServer direct(identity, saying("HTTP/1.1 205 None\r\n\r\n"));
  lead(direct);
  for (const std::string scheme : {"", "socks5://"}) {
    EXPECT_EQ(
        statusBy(program, {.url = scheme + server.address(), .exceptions = "x, .anthropic.com"}),
        205);
  }
  EXPECT_EQ(server.connections(), 1);
  EXPECT_THAT(log.lines, testing::IsEmpty());

  const TLSServer wary(identity, saying(noContent), {.asProxy = true, .asProxySays = "407 Who"});
  const TLSServer closed(identity, saying(noContent), {.asProxy = true, .asProxySays = "403 No"});
  for (const auto& [url, told] :
       {std::pair("socks5://" + server.address(), "the proxy for HTTPS is none that can be used"),
        {wary.address(), "the proxy for HTTPS wants a login (407)"},
        {closed.address(), "the proxy for HTTPS refuses to connect to Anthropic"}}) {
    log.lines.clear();
    LinuxTransport refused(program, {.url = url, .exceptions = ""}, log);
    EXPECT_FALSE(refused.send(request()));
    EXPECT_FALSE(refused.send(request()));
    EXPECT_THAT(log.lines, testing::ElementsAre(told)) << "told once";
  }

  const auto environment = [](const decltype(Surroundings::environment)& variables) {
    const HTTPSProxy proxy = httpsProxy({.environment = variables});
    return proxy.url + " " + proxy.exceptions;
  };
  EXPECT_EQ(environment({{"https_proxy", "a"}, {"HTTPS_PROXY", "b"}, {"NO_PROXY", "c"}}), "a c");
  EXPECT_EQ(environment({{"http_proxy", "a"}, {"ALL_PROXY", "b"}, {"HTTPS_PROXY", "c"}}), "c ");
}

TEST_F(LinuxTransportTest, ExpectsLittleOfItsHelper) {
  const auto helper = [this](const std::string& ending) {
    fs::remove(place.path() + "/helper");
    const std::string path =
        place.write("helper", "#!/bin/sh\nprintf '200 0 whole\\n-\\n-\\n-\\n'\n" + ending);
    ::chmod(path.c_str(), 0700);
    return path;
  };
  for (const auto& [ending, status] : {std::pair("cat >/dev/null", 200),
                                       {"exit 1", 0},
                                       {"kill -9 $$", 0},
                                       {"printf x", 0},
                                       {"exec cat /dev/zero", 0}}) {
    EXPECT_EQ(statusBy(helper(ending)), status) << ending;
  }
  LinuxTransport kept(helper("cat >/dev/null"), {}, log);
  const std::string path = helper("exit 1");
  EXPECT_TRUE(kept.send(request())) << "not what is there now";
  EXPECT_THAT(log.lines, testing::IsEmpty());

  LinuxTransport idle(place.write("idle", ""), {}, log);
  EXPECT_FALSE(idle.send(request()) || idle.send(request()));
  EXPECT_THAT(log.lines, testing::ElementsAre("cannot start " + place.path() + "/idle"));
  fs::create_symlink(path, place.path() + "/link");
  ::chmod(place.write("group", "").c_str(), 0720);
  ::chmod(place.write("others", "").c_str(), 0702);
  ASSERT_EQ(::mkfifo((place.path() + "/fifo").c_str(), 0700), 0);
  // Only root can give a file away.
  const bool isAnothers = ::chown(place.write("another", "").c_str(), 12345, 0) == 0;
  fs::current_path(place.path());
  for (std::string name : {"/link", "/group", "/others", "/fifo", "", "/absent", "/another"}) {
    name.insert(0, name == "/another" && !isAnothers ? "/absent" : place.path());
    log.lines.clear();
    EXPECT_EQ(statusBy(name), 0) << name;
    EXPECT_THAT(log.lines, testing::ElementsAre(HasSubstr("Anthropic is not asked"))) << name;
  }
  const LinuxTransport relative("helper", {}, log);
  EXPECT_EQ(log.lines.size(), 2U);
  fs::current_path("/");
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
  const std::string keys = place.path() + "/keys";
  const auto result =
      BoundedProcessRun::execute({.executable = MARIGOLD_REQUEST,
                                  .arguments = {"--cacert", authorities, "--insecure"},
                                  .environment = {{"SSL_CERT_FILE", authorities},
                                                  {"CURL_CA_BUNDLE", authorities},
                                                  {"SSL_CERT_DIR", place.path()},
                                                  {"SSLKEYLOGFILE", keys}},
                                  .stdoutCap = 1000,
                                  .timeout = Seconds{10},
                                  .input = encodeRequest(other, {})});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.stdoutBytes.size() + result.stderrByteCount, 0U);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_TRUE(server.requests().empty());
  EXPECT_FALSE(fs::exists(keys)) << "it tells others how to read along";
}

}  // namespace
}  // namespace marigold
