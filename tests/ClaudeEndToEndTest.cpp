// Claude from its login to the mark: the real provider, store, delegate and transport, the real
// helper program and a TLS server on loopback; time alone is virtual. The login is a real file, or
// for what a file cannot be, a scripted keychain.

#include <csignal>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "AppDelegate.h"
#include "ClaudeProvider.h"
#include "LinuxLogin.h"
#include "LinuxTransport.h"
#include "support/FixedLocalTimeText.h"
#include "support/FixedTextMeasurer.h"
#include "support/ScriptedKeychain.h"
#include "support/StoreFixture.h"
#include "support/TLSServer.h"

namespace marigold {
namespace {

// Keeps what it is told to show.
class KeptStatusBar final : public StatusBar {
 public:
  StatusItemContent content;

  std::unique_ptr<StatusItem> makeItem() override { return std::make_unique<Item>(content); }

 private:
  class Item final : public StatusItem {
   public:
    explicit Item(StatusItemContent& kept) : content_(kept) {}
    void show(const StatusItemContent& next) override { content_ = next; }
    void openMenu(std::vector<MenuItem> /*items*/, std::optional<Point> /*at*/) override {}

   private:
    StatusItemContent& content_;
  };
};

std::string answer(const std::string& status, const std::string& body,
                   const std::string& headers = {}) {
  return "HTTP/1.1 " + status + "\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

class ClaudeEndToEnd : public testing::Test {
 protected:
  ClaudeEndToEnd() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    place.write("authority.pem", authority.text());
    place.write("connect-to", "api.anthropic.com:443:" + server.address());
    std::filesystem::create_symlink(MARIGOLD_TEST_REQUEST, place.path() + "/marigold-request");
  }
  // Starts without a login, and ends when it may be looked for again. No job is out then, as after
  // each `refresh`: only then may what a job looks at be changed.
  void SetUp() override {
    delegate.applicationDidFinishLaunching();
    ASSERT_TRUE(tooltipBecomes("Claude: Claude Code not detected"));
    EXPECT_EQ(bar.content.accessibilityValue, "Claude: Claude Code not detected");
    EXPECT_EQ(bar.content.label, "");
    loop.advance(Seconds{61});
  }
  void TearDown() override {
    delegate.applicationWillTerminate();
    transport.stop();
    worker.stop();
  }

  // Turns the loop until `holds`; real time passes for the worker and the server alone.
  template <class Condition>
  bool until(Condition holds) {
    for (int look = 0; look < 4000; ++look) {
      loop.settle();
      if (holds()) {
        return true;
      }
      ::usleep(5000);
    }
    return false;
  }
  bool tooltipBecomes(const std::string& text) {
    const bool is = until([&] { return bar.content.tooltip == text; });
    EXPECT_TRUE(is) << bar.content.tooltip << "\n  instead of\n" << text;
    return is;
  }
  void signIn(double expiresIn = 3600) const {
    const double expiry = (loop.date().time_since_epoch().count() + expiresIn) * 1000;
    home.write(".claude/.credentials.json",
               R"({"claudeAiOauth":{"accessToken":"token","expiresAt":)" +
                   std::to_string(static_cast<long long>(expiry)) +
                   R"(,"subscriptionType":"max"}})");
  }
  void serve(const std::string& text) {
    const std::lock_guard lock(mutex_);
    says_ = text;
  }
  void refresh() {
    store.refreshNow();
    EXPECT_TRUE(until([this] { return !store.refreshInFlight(); }));
  }

  static constexpr const char* fresh = "Claude: 5h 42% used, updated just now";
  const std::string usage = answer("200 OK", R"({"five_hour":{"utilization":42}})");
  test::TemporaryDirectory home;
  test::TemporaryDirectory place;
  test::Authority authority;

 private:
  std::mutex mutex_;
  std::string says_ = usage;  // guarded by it; both outlive the server

 protected:
  test::TLSServer server{authority.issue("api.anthropic.com"), [this](test::Visit& visit) {
                           const std::lock_guard lock(mutex_);
                           visit.say(says_);
                         }};
  const Surroundings surroundings{
      .home = home.path(), .applicationSupport = home.path() + "/data", .bundleIdentifier = "app"};
  test::ManualEventLoop loop;
  test::RecordingLog log;
  Worker worker;
  LinuxTransport transport{place.path() + "/marigold-request", {}, log};
  test::ScriptedKeychain keychain;
  test::ScriptedRunner tool;
  bool usesKeychain = false;
  ClaudeProvider claude{loop, worker, transport,
                        [this] {
                          return usesKeychain ? KeychainReader::readClaude(keychain, tool)
                                              : LinuxLogin(claudeCredentialsFile(surroundings),
                                                           ::geteuid())();
                        },
                        DiskCache(surroundings)};
  test::MemoryDefaults defaults;
  test::ScriptedEventStreams streams;
  test::ScriptedAttention attention;
  test::FixedRandom random;
  UsageStore store{{.loop = loop,
                    .defaults = defaults,
                    .eventStreams = streams,
                    .attention = attention,
                    .random = random,
                    .log = log,
                    .surroundings = surroundings,
                    .claude = &claude,
                    .codex = nullptr,
                    .grok = nullptr}};
  KeptStatusBar bar;
  Popover popover;
  Appearance appearance;
  struct Control final : ApplicationControl {
    void quit() override {}
  } application;
  LoginItem loginItem;
  Updater updater;
  test::FixedLocalTimeText times;
  test::FixedTextMeasurer measurer;
  AppDelegate delegate{{.store = store,
                        .loop = loop,
                        .log = log,
                        .attention = attention,
                        .statusBar = bar,
                        .popover = popover,
                        .appearance = appearance,
                        .application = application,
                        .loginItem = loginItem,
                        .updater = updater,
                        .localTime = times,
                        .textMeasurer = measurer,
                        .surroundings = surroundings}};
};

TEST_F(ClaudeEndToEnd, EveryFailureIsToldAndRecoveredFrom) {
  struct Row {
    const char* name;
    std::function<void()> fails;
    std::string says;      // behind "5h 42% used, "
    double heldOff = 900;  // seconds until it may be asked again
  };
  const auto http = [this](const std::string& text) { return [this, text] { serve(text); }; };
  const auto login = [this](const KeychainRule& rule) {
    return [this, rule] { keychain.rules = {{rule}}; };
  };
  const std::vector<Row> rows{
      {"throttled", http(answer("429 Too Many", "{}", "Retry-After: 1000\r\n")),
       "throttled, data just now", 1000},
      {"server error", http(answer("500 Oops", "{}")), "server error, data just now"},
      {"redirect", http(answer("302 Found", "", "Location: https://example.org/\r\n")),
       "server error, data just now"},
      {"refused token", http(answer("401 No", "{}")),
       "Token expired, open Claude Code, data just now", 300},
      {"unreadable value", http(answer("200 OK", R"({"five_hour":{"utilization":500}})")),
       "data just now"},
      {"no usage answer", http(answer("200 OK", R"({"error":{}})")), "data just now", 180},
      {"no answer", http(""), "data just now", 180},
      {"no answer to an expired login",
       [this] {
         serve("");
         signIn(-60);
       },
       "Token expired, open Claude Code, data just now", 180},
      {"ambiguous", [this] { keychain.matches = {{{}, {}}}; },
       "More than one Claude login found, data just now", 60},
      {"locked", [this] { keychain.status = 6; }, "data just now", 60},
      {"unauthorized", login(test::decryptRule({{"/usr/bin/other"}})),
       "Keychain won't release the Claude login, data just now", 60},
      {"indeterminate", [this] { keychain.path = std::unexpected(-25294); },
       "Can't check the Claude login, data just now", 60},
  };
  const test::ScriptedKeychain trusting;
  const auto mend = [&] {
    signIn();
    serve(usage);
    keychain.matches = trusting.matches;
    keychain.path = trusting.path;
    keychain.status = trusting.status;
    keychain.rules = trusting.rules;
  };
  mend();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    refresh();
    ASSERT_TRUE(tooltipBecomes(fresh));
    EXPECT_EQ(bar.content.label, "42%");

    usesKeychain = &row >= &rows.at(8);
    row.fails();
    refresh();
    ASSERT_TRUE(tooltipBecomes("Claude: 5h 42% used, " + row.says));
    EXPECT_EQ(bar.content.accessibilityValue, "Claude 5h 42%, " + row.says);
    EXPECT_EQ(bar.content.label, "42%");
    mend();
    loop.advance(Seconds{row.heldOff + 1});
  }
  refresh();
  EXPECT_TRUE(tooltipBecomes(fresh));
}

TEST_F(ClaudeEndToEnd, ATimedOutLoginWaitsForTheUser) {
  usesKeychain = true;
  refresh();
  ASSERT_TRUE(tooltipBecomes(fresh));
  tool.timesOut = true;
  refresh();
  ASSERT_TRUE(
      tooltipBecomes("Claude: 5h 42% used, Reading the Claude login timed out, data just now"));
  EXPECT_TRUE(store.claudeReadLatched());
  tool.timesOut = false;
  loop.advance(Seconds{2000});
  refresh();
  EXPECT_TRUE(
      tooltipBecomes("Claude: 5h was 42% used, Reading the Claude login timed out, data 33m ago"));
  store.retryClaudeRead();
  EXPECT_TRUE(tooltipBecomes(fresh));
  EXPECT_FALSE(store.claudeReadLatched());
}

TEST_F(ClaudeEndToEnd, TurnedOffItAsksNothingAndTurnedOnAtOnce) {
  signIn();
  refresh();
  ASSERT_TRUE(tooltipBecomes(fresh));
  store.turnOffClaude();
  ASSERT_TRUE(tooltipBecomes("Claude: usage reading is off"));
  EXPECT_EQ(bar.content.accessibilityValue,
            "Claude: usage reading is off, turn it back on in Marigold's menu");
  serve(answer("200 OK", R"({"five_hour":{"utilization":43}})"));
  loop.advance(Seconds{2000});
  refresh();
  EXPECT_TRUE(tooltipBecomes("Claude: usage reading is off"));
  store.turnOnClaude();
  EXPECT_TRUE(tooltipBecomes("Claude: 5h 43% used, updated just now"));
}

}  // namespace
}  // namespace marigold
