#include <gmock/gmock.h>

#include "claude/ClaudeProvider.h"
#include "claude/ClaudeTexts.h"
#include "support/ManualEventLoop.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

using ErrorKind = KeychainReadError::Kind;

// How one read of the login and the request after it go.
struct ClaudeReply {
  std::optional<KeychainReadError> readError;
  std::optional<HTTPAnswer> answer;
  bool isExpired = false;  // the login
};
ClaudeReply failedRead(KeychainReadError::Kind kind) {
  return {.readError = KeychainReadError{.kind = kind}, .answer = {}};
}
ClaudeReply silence(bool isExpired = false) {
  return {.readError = {}, .answer = {}, .isExpired = isExpired};
}
ClaudeReply status(int status, std::string body = {}) {
  return {.readError = {}, .answer = HTTPAnswer{.status = status, .body = std::move(body)}};
}
ClaudeReply usage(double percent) {
  return status(200, R"({"five_hour":{"utilization":)" + std::to_string(percent) + "}}");
}

constexpr double retry = -1;  // an interval that stands for the user's tap on "try again"

// A provider over a scripted login and network, in virtual time. The worker is a loop of its own,
// so that a test decides how far a job has come.
struct ClaudeProviderTest : testing::Test, HTTPTransport {
  test::TemporaryDirectory directory;
  DiskCache cache{{.environment = {{"MARIGOLD_CACHE_DIR", directory.path() + "/cache"}}}};
  test::ManualEventLoop loop, worker;
  ClaudeReply reply = usage(1);  // to the next job
  std::string token = "token";   // of the login
  std::string sent;              // the token of the last request
  int reads = 0;
  std::function<void()> whileReading = [] {};     // the login
  std::function<void()> whileRequesting = [] {};  // its usage
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

  std::vector<ProviderSnapshot> told;
  Health expired = Health::reconnect(std::string(ClaudeUnavailable::tokenExpired));
  Health timedOut = Health::reconnect(std::string(ClaudeUnavailable::timedOut));
  Health unreadable = Health::reconnect(std::string(ClaudeUnavailable::unreadable));
  Health silent = Health::stale("fetch failed");

  void restart(const ClaudeReply& first) {
    provider = make();
    told.clear();
    reads = 0;
    reply = first;
  }
  void ask(double interval) {
    const auto hear = [this](const ProviderSnapshot& snapshot) { told.push_back(snapshot); };
    interval == retry ? provider->retryNow(hear)
                      : provider->poll(Seconds{interval}, loop.now(), hear);
  }
  Health hear(double interval, const ClaudeReply& next) {
    reply = next;
    ask(interval);
    settle();
    return told.back().health;
  }

 private:
  std::optional<HTTPAnswer> send(HTTPRequest request) override {
    sent = request.bearerToken.expose();
    whileRequesting();
    return reply.answer;
  }
  void stop() override {}
};

TEST_F(ClaudeProviderTest, AsksNoSoonerThanItMay) {
  const Health locked = Health::stale("Mac Keychain is locked");
  const Health odd = Health::stale("unexpected payload");
  const Health odder = Health::stale("unreadable usage value");
  const Health absent = Health::notInstalled("Claude Code not detected");
  const auto throttled = [start = loop.date()](double until) {
    return Health::rateLimited(start + Seconds{until});
  };
  const ClaudeReply good = usage(7);
  const ClaudeReply noLimits = status(200, R"({"limits":[]})");
  ClaudeReply wait = status(429);
  wait.answer->retryAfter = "1000";
  ClaudeReply resets = status(429);
  resets.answer->unifiedReset = "5000";
  resets.answer->unifiedFiveHourReset = "4000";
  ClaudeReply cut = good;
  cut.answer->bodyIsCut = true;
  struct Step {
    double after, interval;
    ClaudeReply reply;
    bool reads;  // the login, now
    Health health;
    bool isBare = false;  // tells no windows although there is a reading
  };
  const std::vector<Step> steps = {
      {0, 60, wait, true, throttled(1000)},
      {500, 0, good, false, throttled(1000)},
      {499, retry, good, false, throttled(1000)},
      {1, 900, silence(true), true, expired},
      {10, 60, good, false, expired},
      {10, 0, failedRead(ErrorKind::locked), true, locked},
      {59, 0, good, false, locked},
      {1, 900, good, false, expired},
      {0, 0, failedRead(ErrorKind::timedOut), true, timedOut},
      {90000, 0, good, false, timedOut},
      {0, retry, good, true, Health::ok()},
      {899, 900, good, false, Health::ok()},
      {0, 0, failedRead(ErrorKind::decode), true, unreadable},
      {0, 900, good, false, Health::ok()},
      {1, 900, good, false, unreadable},
      {59, 0, failedRead(ErrorKind::exitStatus), true, unreadable},
      {119, 0, good, false, unreadable},
      {1, 0, failedRead(ErrorKind::locked), true, locked},
      {60, 0, silence(), true, silent},
      {0, retry, silence(), true, silent},
      {179, 0, good, false, silent},
      {1, 60, resets, true, throttled(97399)},
      {5000, 60, status(503), true, Health::serverError(loop.date() + Seconds{99199})},
      {1800, 60, status(401), true, expired},
      {299, 60, good, false, expired},
      {1, 60, silence(), true, silent},
      {180, 60, status(403), true, expired},
      {500, 0, silence(), true, expired},
      {179, 60, good, false, expired},
      {0, retry, silence(), true, silent},
      {0, retry, noLimits, true, Health::ok(), true},
      {79, 1e9, good, false, Health::ok(), true},
      {100, 0, good, false, Health::ok(), true},
      {1, 60, status(200, R"({"five_hour":{"utilization":-9}})"), true, odder},
      {899, 0, good, false, odder},
      {1, 60, status(200, "{}"), true, odd},
      {0, retry, status(200, "<html>"), true, odd},
      {180, 60, cut, true, odd},
      {180, 60, status(401), true, expired},
      {300, 60, failedRead(ErrorKind::notInstalled), true, absent, true},
  };
  bool hasRead = false;
  for (const Step& step : steps) {
    const auto row = testing::Message() << "row " << &step - steps.data();
    const int before = reads;
    loop.advance(Seconds{step.after});
    EXPECT_EQ(hear(step.interval, step.reply), step.health) << row;
    EXPECT_EQ(reads - before, step.reads ? 1 : 0) << row;
    EXPECT_EQ(provider->isReadLatched(), step.health == timedOut) << row;
    EXPECT_TRUE(step.reads || told[told.size() - 2].health != step.health ||
                told[told.size() - 2] == told.back())
        << "what is told again is no news, " << row;
    hasRead |= step.health == Health::ok();
    EXPECT_EQ(told.back().percent("5h").has_value(), hasRead && !step.isBare) << row;
    EXPECT_EQ(told.back().planLabel.has_value(), hasRead && step.health != absent) << row;
  }
  EXPECT_EQ(told.size(), steps.size());
}

TEST_F(ClaudeProviderTest, WhoAsksWhileAJobIsOutHearsItsResult) {
  provider->fetch([this](const ProviderSnapshot& snapshot) { told.push_back(snapshot); });
  ask(0);
  ask(retry);
  settle();
  EXPECT_EQ(reads, 1);
  EXPECT_FALSE(loop.nextTimer()) << "nobody waits";
  EXPECT_THAT(told, testing::ElementsAre(told[0], told[0], told[0]));
  ask(900);
  EXPECT_EQ(told.size(), 3U) << "an answer comes later, from memory too";
  ask(0);
  worker.step();
  provider.reset();
  settle();
  EXPECT_EQ(told.size(), 3U) << "nothing reaches or leaves a provider that is gone";
  provider = make();
  EXPECT_EQ(hear(0, silence()), silent);
  EXPECT_EQ(told.back().percent("5h"), 1) << "restored";
}

TEST_F(ClaudeProviderTest, WhatIsOutWhenTheReadingIsForgottenSparesTheDiskOnly) {
  for (const bool isOff : {false, true}) {
    for (const int done : {0, 1, 2}) {  // pieces: the read and request, the result, the writing
      restart(usage(7));
      ask(0);
      done > 0 ? worker.step() : false;
      done > 1 ? loop.settle() : void();
      isOff ? provider->stopAsking() : void();
      provider->forgetCache();
      settle();
      EXPECT_EQ(told.at(0).percent("5h"), 7);
      EXPECT_FALSE(cache.load(ProviderID::claude)) << done;
      EXPECT_EQ(hear(900, silence()) == Health::ok(), !isOff && done < 2) << "it is remembered";
      EXPECT_EQ(told.back().isUsable(), !isOff && done < 2);
    }
  }
}

TEST_F(ClaudeProviderTest, AMemoryForgottenBeforeItIsToldIsNotTold) {
  (void)hear(0, status(200, R"({"extra_usage":{"is_enabled":true,"used_credits":1}})"));
  EXPECT_TRUE(told.back().extraNote.has_value());
  provider->forgetCache();
  EXPECT_EQ(hear(60, usage(1)), Health::ok());
  EXPECT_EQ(told.back().extraNote, std::nullopt) << "it told of usage";
  loop.advance(Seconds{180});
  for (const bool isOff : {false, true}) {
    EXPECT_EQ(hear(0, usage(1)), Health::ok());
    reads = 0;
    ask(900);
    provider->forgetCache();
    isOff ? provider->stopAsking() : void();
    reply = usage(2);
    settle();
    EXPECT_EQ(told.back().percent("5h"), isOff ? 1 : 2);
    EXPECT_EQ(reads, isOff ? 0 : 1) << "nothing is read when Claude was turned off";
  }
}

TEST_F(ClaudeProviderTest, ARetryWhileAJobIsOutReadsAgainUnlessTheJobSucceeds) {
  for (const auto& first : {failedRead(ErrorKind::timedOut), status(401), silence(), usage(7)}) {
    for (const bool isOff : {false, true}) {
      restart(first);
      ask(0);
      ask(retry);
      ask(retry);
      isOff ? provider->stopAsking() : void();
      worker.step();
      reply = usage(3);
      settle();
      const bool isGood = told.at(0).health == Health::ok();
      EXPECT_EQ(reads, isOff || isGood ? 1 : 2);
      EXPECT_EQ(told.at(1).health == Health::ok(), !isOff || isGood);
      EXPECT_EQ(told.at(1), told.at(2));
      (void)hear(retry, usage(9));
      EXPECT_EQ(hear(900, silence()), Health::ok()) << "wanted again, it is remembered";
    }
  }
}

TEST_F(ClaudeProviderTest, AJobThatHangsIsToldByItsStageAndItsResultWhenItComes) {
  // The job's end, whether it hangs while it reads the login, what is told meanwhile.
  for (const auto& [first, hangsReading, health] :
       {std::tuple(usage(4), true, timedOut),
        {failedRead(ErrorKind::locked), true, timedOut},
        {failedRead(ErrorKind::timedOut), true, timedOut},
        {usage(4), false, silent},
        {silence(true), false, expired}}) {
    restart(first);
    std::vector<ProviderSnapshot> late;
    provider->onLateResult = [&](const ProviderSnapshot& snapshot) { late.push_back(snapshot); };
    (hangsReading ? whileReading : whileRequesting) = [&, hangsReading, health] {
      loop.advance(Seconds{29});
      EXPECT_THAT(told, testing::IsEmpty());
      loop.advance(Seconds{1});
      ask(retry);
      loop.settle();
      EXPECT_THAT(told, testing::ElementsAre(told.at(0), told.at(0))) << "nobody waits longer";
      EXPECT_EQ(told[0].health, health);
      EXPECT_EQ(provider->isReadLatched(), hangsReading);
    };
    ask(0);
    settle();
    whileReading = whileRequesting = [] {};
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(told.size(), 2U);
    EXPECT_EQ(late.at(0).health == Health::ok(), !first.readError && first.answer);
    EXPECT_EQ(provider->isReadLatched(), late[0].health == timedOut);
    (void)hear(0, usage(1));
    EXPECT_EQ(late.size(), 1U) << "only what is late is told so";
  }
}

TEST_F(ClaudeProviderTest, ATokenThatCannotStandInAHeaderIsNotSent) {
  token = "x\r\nHost: y";
  EXPECT_EQ(hear(0, usage(1)), unreadable);
  EXPECT_EQ(sent, "");
  token = "!to~ken";
  loop.advance(Seconds{60});
  EXPECT_EQ(hear(0, usage(1)), Health::ok());
  EXPECT_EQ(sent, token);
}

}  // namespace
}  // namespace marigold
