#include <random>

#include <gmock/gmock.h>

#include "ClaudeHealth.h"
#include "ClaudeProvider.h"
#include "support/ClaudeFixture.h"

namespace marigold {
namespace {

using test::failedRead, test::silence, test::status, test::usage;
using ErrorKind = KeychainReadError::Kind;

constexpr double retry = -1;  // an interval that stands for the user's tap on "try again"

class ClaudeProviderTest : public testing::Test, protected test::ClaudeFixture {
 protected:
  std::vector<ProviderSnapshot> told;

  void ask(double interval) {
    const auto hear = [this](const ProviderSnapshot& snapshot) { told.push_back(snapshot); };
    interval == retry ? provider->retryNow(hear) : provider->poll(interval, loop.date(), hear);
  }
  Health hear(double interval, const test::ClaudeReply& next) {
    reply = next;
    ask(interval);
    settle();
    return told.back().health;
  }
};

TEST_F(ClaudeProviderTest, AsksNoSoonerThanItMay) {
  const auto reconnect = [](std::string_view text) { return Health::reconnect(std::string(text)); };
  const Health expired = reconnect(ClaudeUnavailable::tokenExpired);
  const Health locked = Health::stale("Mac Keychain is locked");
  const Health timedOut = reconnect(ClaudeUnavailable::timedOut);
  const Health unreadable = reconnect(ClaudeUnavailable::unreadable);
  const Health silent = Health::stale("fetch failed");
  const Health odd = Health::stale("unexpected payload");
  const Health odder = Health::stale("unreadable usage value");
  const Health absent = Health::notInstalled("Claude Code not detected");
  const auto throttled = [start = loop.date()](double until) {
    return Health::rateLimited(start + Seconds{until});
  };
  const test::ClaudeReply good = usage(7);
  const test::ClaudeReply noLimits = status(200, R"({"limits":[]})");
  test::ClaudeReply wait = status(429);
  wait.answer->retryAfter = "1000";
  test::ClaudeReply resets = status(429);
  resets.answer->unifiedReset = "5000";
  resets.answer->unifiedFiveHourReset = "4000";
  test::ClaudeReply cut = good;
  cut.answer->bodyIsCut = true;
  struct Step {
    double after, interval;
    test::ClaudeReply reply;
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
      {1, 1000, good, false, unreadable},
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
      {1, 60, status(403), true, expired},
      {0, 0, silence(), true, expired},
      {599, 60, good, false, expired},
      {0, retry, noLimits, true, Health::ok(), true},
      {179, 0, good, false, Health::ok(), true},
      {1, 60, status(200, R"({"five_hour":{"utilization":-9}})"), true, odder},
      {899, 0, good, false, odder},
      {1, 60, status(200, "{}"), true, odd},
      {180, 60, status(200, "<html>"), true, odd},
      {180, 60, cut, true, odd},
      {180, 60, status(401), true, expired},
      {300, 60, failedRead(ErrorKind::notInstalled), true, absent, true},
  };
  for (const Step& step : steps) {
    const auto row = testing::Message() << "row " << &step - steps.data();
    const int before = reads;
    loop.advance(Seconds{step.after});
    EXPECT_EQ(hear(step.interval, step.reply), step.health) << row;
    EXPECT_EQ(reads - before, step.reads ? 1 : 0) << row;
    EXPECT_EQ(provider->isReadLatched(), step.health == timedOut) << row;
    const bool isUsable = provider->lastGood() && !step.isBare;
    EXPECT_EQ(told.back().isUsable(), isUsable) << row;
    EXPECT_EQ(told.back().planLabel.has_value(), isUsable || step.health == Health::ok()) << row;
  }
  EXPECT_EQ(told.size(), steps.size());
  EXPECT_EQ(provider->lastGood().value().percent("5h"), 7);
}

TEST_F(ClaudeProviderTest, WhoAsksWhileAJobIsOutHearsItsResult) {
  provider->fetch([this](const ProviderSnapshot& snapshot) { told.push_back(snapshot); });
  ask(0);
  ask(retry);
  settle();
  EXPECT_EQ(reads, 1);
  EXPECT_THAT(told, testing::ElementsAre(told[0], told[0], told[0]));
  EXPECT_EQ(make()->lastGood(), told[0].withHealth(Health::stale("just now")));
  ask(900);
  EXPECT_EQ(told.size(), 3U) << "an answer comes later, from memory too";
  ask(0);
  worker.step();
  provider.reset();
  settle();
  EXPECT_EQ(told.size(), 4U) << "what is out does not reach a provider that is gone";
}

TEST_F(ClaudeProviderTest, WhatIsOutWhenTheReadingIsForgottenIsWrittenNowhere) {
  EXPECT_EQ(hear(0, usage(1)), Health::ok());
  for (const bool sent : {false, true}) {
    loop.advance(Seconds{900});
    ask(900);
    sent ? worker.step() : false;
    provider->forgetCache();
    settle();
    EXPECT_FALSE(cache.load(ProviderID::claude) || provider->lastGood());
  }
  ask(0);
  worker.step();
  loop.step();  // a reading is about to be written
  provider->forgetCache();
  settle();
  EXPECT_FALSE(cache.load(ProviderID::claude));
  ask(0);
  worker.step();
  provider->forgetCache();
  EXPECT_EQ(hear(retry, usage(2)), Health::ok()) << "as when Claude is turned off and on";
  EXPECT_EQ(told.size(), 6U);
  EXPECT_EQ(told.back().percent("5h"), 2) << "not what was asked before";
  EXPECT_EQ(cache.load(ProviderID::claude), told.back().cached());
}

TEST_F(ClaudeProviderTest, ARetryWhileAJobIsOutReadsAgainUnlessTheJobSucceeds) {
  for (const auto& failure : {failedRead(ErrorKind::timedOut), status(401), silence()}) {
    for (const int turn : {0, 1, 2}) {  // on the third, Claude is turned off meanwhile
      provider = make();
      told.clear();
      reads = 0;
      reply = failure;
      ask(0);
      turn == 1 ? provider->forgetCache() : void();
      ask(retry);
      ask(retry);
      turn == 2 ? provider->stopAsking() : void();
      worker.step();
      reply = usage(3);
      settle();
      EXPECT_EQ(reads, turn == 2 ? 1 : 2);
      ASSERT_EQ(told.size(), 3U);
      EXPECT_NE(told[0].health, Health::ok());
      EXPECT_EQ(told[1].health == Health::ok(), turn != 2);
      EXPECT_EQ(told[1], told[2]);
    }
  }
}

TEST_F(ClaudeProviderTest, AJobThatHangsIsNotWaitedForLong) {
  ask(0);
  loop.advance(Seconds{29});
  EXPECT_THAT(told, testing::IsEmpty());
  loop.advance(Seconds{1});
  ask(retry);
  loop.advance(Seconds{30});
  EXPECT_THAT(told, testing::ElementsAre(told.at(0), told.at(0)));
  EXPECT_EQ(told[0].health, Health::reconnect(std::string(ClaudeUnavailable::timedOut)));
  EXPECT_FALSE(provider->isReadLatched());
  EXPECT_EQ(hear(60, usage(1)), Health::ok()) << "it did come back";
  EXPECT_EQ(reads, 1);
}

TEST_F(ClaudeProviderTest, WhatIsToldAgainIsNoNews) {
  const auto noLimits = status(200, R"({"extra_usage":{"is_enabled":true,"used_credits":1}})");
  for (const auto& answer :
       {status(503), silence(), failedRead(ErrorKind::notInstalled), noLimits}) {
    for (const bool isOut : {false, true}) {  // when the reading is forgotten
      provider = make();
      reply = answer;
      ask(0);
      isOut ? worker.step() : (settle(), false);
      provider->forgetCache();
      settle();
      ProviderSnapshot before = told.back();
      before.extraNote.reset();  // it told of usage
      loop.advance(Seconds{10});
      (void)hear(60, usage(1));
      EXPECT_EQ(told.back(), before);
    }
  }
}

TEST_F(ClaudeProviderTest, AMemoryForgottenBeforeItIsToldIsNotTold) {
  EXPECT_EQ(hear(0, usage(1)), Health::ok());
  ask(900);
  provider->forgetCache();
  reply = usage(2);
  settle();
  EXPECT_EQ(told.back().percent("5h"), 2);
  ask(900);
  provider->stopAsking();
  provider->forgetCache();
  settle();
  EXPECT_EQ(told.size(), 3U);
  EXPECT_EQ(reads, 2) << "and nothing is read when Claude was turned off";
}

TEST_F(ClaudeProviderTest, SettingTheClockMakesNothingHappenSoonerOrLater) {
  for (const double jump : {-86400.0, 86400.0}) {
    for (const auto& [failure, hold] : {std::pair(status(429), 900.0), std::pair(silence(), 180.0),
                                        std::pair(failedRead(ErrorKind::locked), 60.0)}) {
      const Health health = hear(0, failure);
      EXPECT_NE(health, Health::ok());
      loop.setDate(loop.date() + Seconds{jump});
      loop.advance(Seconds{hold - 1});
      EXPECT_EQ(hear(0, usage(1)), health);
      loop.advance(Seconds{1});
      EXPECT_EQ(hear(0, usage(1)), Health::ok());
      loop.setDate(loop.date() + Seconds{jump});
      loop.advance(Seconds{899});
      EXPECT_EQ(hear(900, silence()), Health::ok());
    }
  }
}

TEST_F(ClaudeProviderTest, ATokenThatCannotStandInAHeaderIsNotSent) {
  token = "x\r\nHost: y";
  EXPECT_EQ(hear(0, usage(1)), Health::reconnect(std::string(ClaudeUnavailable::unreadable)));
  EXPECT_THAT(transport.tokens, testing::IsEmpty());
}

// Random sequences against a plain account of when Anthropic and the login may be asked at the
// soonest.
class ClaudeProviderWalk : public testing::TestWithParam<unsigned>, protected test::ClaudeFixture {
 protected:
  static constexpr double never = 1e9;
  struct Hold {
    Date until = distantPast;
    double gaveWay = never;  // the smallest interval asked for since it began
  };
  Hold server, quiet, refusal, login;
  Hold success;         // `until` is when it was
  double anew = never;  // the smallest interval asked for since a reading was forgotten
  bool forgotten = false;
  int forgets = 0;
  bool isOut = false;
  bool retried = false;      // since a job landed
  std::vector<int> answers;  // by question

  [[nodiscard]] Date now() const { return Date{loop.now().time_since_epoch()}; }
  // What follows from a job that lands.
  void learn(const test::ClaudeReply& was) {
    const auto hold = [this](Hold& which, double seconds) {
      which.until = std::max(which.until, now() + Seconds{seconds});
      which.gaveWay = never;
    };
    isOut = false;
    login = success = Hold();
    refusal.gaveWay = never;
    if (was.readError) {
      hold(login, was.readError->kind == ErrorKind::timedOut ? 1e9 : 60);
    } else if (!was.answer) {
      hold(was.isExpired ? refusal : quiet, 180);
    } else if (was.answer->status == 401) {
      hold(refusal, 300);
    } else if (was.answer->status == 429) {
      hold(server, 900);
    } else if (was.answer->body == "{}") {
      hold(server, 180);
    } else if (!forgotten) {
      hold(success, 0);
    }
    refusal.gaveWay = std::min(refusal.gaveWay, anew);
    success.gaveWay = std::min(success.gaveWay, anew);
    if (std::exchange(retried, false)) {  // perhaps too late for this job
      login.gaveWay = refusal.gaveWay = quiet.gaveWay = 0;
    }
    anew = never;
    forgotten = false;
  }
  ClaudeReader::Answer asked(double interval, bool retries) {
    success.gaveWay = std::min(success.gaveWay, interval);
    refusal.gaveWay = std::min(refusal.gaveWay, interval);
    if (retries) {
      login.gaveWay = quiet.gaveWay = 0;
      retried = true;
    }
    anew = forgotten ? std::min(anew, interval) : anew;
    answers.push_back(0);
    return [this, mine = answers.size() - 1](const ProviderSnapshot&) { ++answers.at(mine); };
  }
  // One piece of the worker's, with an unforeseeable reply; false when none waits.
  bool work(std::size_t luck) {
    const std::array replies{usage(forgets % 100), usage(forgets % 100),
                             status(200, "{}"),    status(429),
                             status(401),          silence(),
                             silence(true),        failedRead(ErrorKind::locked),
                             usage(forgets % 100), failedRead(ErrorKind::timedOut)};
    reply = replies.at(luck % replies.size());
    const int before = reads;
    const bool worked = worker.step();
    if (reads != before) {
      EXPECT_FALSE(std::exchange(isOut, true)) << "two at once";
      EXPECT_GE(now(), server.until);
      EXPECT_TRUE(now() >= quiet.until || quiet.gaveWay == 0);
      EXPECT_TRUE(now() >= refusal.until || refusal.gaveWay == 0);
      EXPECT_TRUE(now() >= login.until || login.gaveWay == 0);
      EXPECT_TRUE(success.gaveWay == never || success.until + Seconds{success.gaveWay} <= now());
      loop.post([this, was = reply] { learn(was); });
    }
    return worked;
  }
};

TEST_P(ClaudeProviderWalk, NeverAsksTwiceAtOnceNorTooSoonNorWithAnOldToken) {
  std::mt19937 luck(GetParam());
  const std::vector<std::function<void()>> acts = {
      [&] { work(luck()); },
      [&] { work(luck()); },
      [&] { loop.settle(); },
      [&] { loop.advance(std::chrono::seconds(luck() % 800)); },
      [&] { loop.setDate(loop.date() + Seconds{luck() % 2 == 0 ? -5000.0 : 5000.0}); },
      [&] {
        const double interval = std::array{0, 60, 450, 900}.at(luck() % 4);
        provider->poll(interval, loop.date(), asked(interval, false));
      },
      [&] { luck() % 8 == 0 ? provider->retryNow(asked(0, true)) : void(); },
      [&] {
        if (luck() % 8 == 0) {
          provider->forgetCache();
          ++forgets;
          forgotten = true;
          success = Hold();
        }
      }};
  for (int i = 1; i <= 4000 && !HasFailure(); ++i) {
    const std::size_t sent = transport.tokens.size();
    acts[luck() % acts.size()]();
    if (transport.tokens.size() != sent) {
      EXPECT_EQ(transport.tokens.back(), "token-" + std::to_string(reads));
      EXPECT_EQ(transport.tokens.size(), sent + 1);
    }
    if (i % 100 == 0) {
      while (loop.settle(), work(luck())) {
      }
      const auto cached = cache.load(ProviderID::claude);
      EXPECT_EQ(cached ? cached->windows.at(0).percent : forgets % 100, forgets % 100);
    }
  }
  EXPECT_THAT(answers, testing::Each(1));
  EXPECT_GT(transport.tokens.size(), 50U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ClaudeProviderWalk, testing::Range(0U, 10U));

}  // namespace
}  // namespace marigold
