#include <array>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "ClaudeHealth.h"
#include "UsageStore.h"
#include "support/ClaudeFixture.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using test::reading;
using test::StoreFixture;

using Kind = Health::Kind;

class UsageStoreTest : public testing::Test, protected StoreFixture {
 protected:
  UsageStoreTest() { makeStore(); }

  [[nodiscard]] std::optional<ProviderSnapshot> shown(ProviderID provider) const {
    return store->snapshot(provider);
  }
};

TEST_F(UsageStoreTest, RestoresReadingsAsStaleAndShowsThemBeforeTheFirstRead) {
  const DiskCache cache(surroundings);
  cache.save(reading(ProviderID::codex, 42, loop.date() - Seconds{7200}).cached());
  cache.save(reading(ProviderID::claude, 43, loop.date()).cached());
  defaults.set("claudeTurnedOff", true);
  makeStore();
  EXPECT_EQ(shown(ProviderID::claude), turnedOffClaudeSnapshot(loop.date()));
  defaults.set("claudeTurnedOff", false);
  makeStore();
  EXPECT_EQ(shown(ProviderID::claude)->health, Health::stale("just now"));
  ASSERT_TRUE(store->isPresent(ProviderID::codex));
  EXPECT_EQ(shown(ProviderID::codex)->health, Health::stale("2h ago"));
  EXPECT_FALSE(store->isPresent(ProviderID::grok));
  store->start();
  loop.settle();
  EXPECT_EQ(shown(ProviderID::codex)->percent("5h"), 42);
}

TEST_F(UsageStoreTest, RefreshesEvery180SecondsAfterTheLastOneEnded) {
  store->start();
  settle();
  ASSERT_EQ(claude.polls.size(), 1U);
  EXPECT_FALSE(store->isPresent(ProviderID::codex)) << "all results are applied together";
  advance(1000);
  EXPECT_EQ(claude.polls.size(), 1U) << "the loop waits for the answer that is out";
  claude.reply(0, reading(ProviderID::claude, 5, loop.date()));
  EXPECT_EQ(shown(ProviderID::codex)->percent("5h"), 10);
  advance(179.5);
  EXPECT_EQ(claude.polls.size(), 1U);
  settle();
  const auto same = shown(ProviderID::codex);
  codex->answer = [&](Date) { return *same; };
  grok->answer = [this](Date) { return *shown(ProviderID::grok); };
  const int before = notified;
  advance(1);
  EXPECT_EQ(claude.polls.size(), 2U);
  claude.reply(0, *shown(ProviderID::claude));
  settle();
  EXPECT_EQ(notified, before) << "identical readings are no news";
}

TEST_F(UsageStoreTest, ChoosesClaudesIntervalByCadence) {
  const Date now = loop.date();
  store->start();
  settle();
  for (const auto& [fraction, expected] :
       {std::pair{0.0, 765.0}, std::pair{0.5, 900.0}, std::pair{1.0, 1035.0}}) {
    random.value = fraction;
    EXPECT_DOUBLE_EQ(store->claudeMinInterval(UsageStore::ClaudeCadence::background, now),
                     expected);
  }
  EXPECT_EQ(store->claudeMinInterval(UsageStore::ClaudeCadence::onDemand, now), 60);
  EXPECT_EQ(store->claudeMinInterval(UsageStore::ClaudeCadence::manual, now), 0);

  claude.reply(0, reading(ProviderID::claude, 10, now));
  store->refreshNow();
  settle();
  EXPECT_TRUE(store->refreshInFlight());
  claude.reply(0, reading(ProviderID::claude, 12, now + Seconds{60}));
  EXPECT_FALSE(store->refreshInFlight());
  random.value = 0.5;
  EXPECT_EQ(store->claudeMinInterval(UsageStore::ClaudeCadence::background, now + Seconds{70}), 450)
      << "usage is rising";
}

TEST_F(UsageStoreTest, AReadingWithoutWindowsReplacesAUsableOne) {
  store->turnOffClaude();
  store->start();
  settle();
  const auto unusable = shown(ProviderID::codex)->withHealth(Health::stale("no recent usage"));
  codex->answer = [&](Date) {
    ProviderSnapshot empty = unusable;
    empty.windows.clear();
    return empty;
  };
  store->refreshOnUserAttention();
  settle();
  EXPECT_FALSE(shown(ProviderID::codex)->isUsable());
}

TEST_F(UsageStoreTest, AResultThatWaitedForClaudeDoesNotUndoAFasterFileRead) {
  store->start();
  settle();  // the refresh has its Codex answer and waits for Claude's
  const Date captured = loop.date();
  codex->answer = [&](Date) { return reading(ProviderID::codex, 11, captured, "from the watch"); };
  streams.deliver(sessions, {{.path = "/x/rollout-a.jsonl", .flags = eventFlag::itemModified}});
  settle();
  EXPECT_EQ(shown(ProviderID::codex)->extraNote, "from the watch");
  claude.reply(0, reading(ProviderID::claude, 5, captured));
  EXPECT_EQ(shown(ProviderID::codex)->extraNote, "from the watch");
}

TEST_F(UsageStoreTest, AReadingThatIsDroppedKeepsNoEarlierAnswerOut) {
  store->start();
  settle();
  claude.reply(0, reading(ProviderID::claude, 5, loop.date()));
  const ProviderSnapshot exhausted = *shown(ProviderID::grok);
  grok->answer = [](Date now) { return ProviderSnapshot{.capturedAt = now}; };
  store->refreshNow();
  settle();  // the refresh knows that the exhaustion is over and waits for Claude
  grok->answer = [&](Date) {
    return reading(ProviderID::grok, 1, exhausted.capturedAt - Seconds{9});
  };
  streams.deliver(logs, {});
  advance(2);
  EXPECT_EQ(shown(ProviderID::grok), exhausted);
  EXPECT_EQ(grok->calls.size(), 3U);
  claude.reply(0, reading(ProviderID::claude, 5, loop.date()));
  EXPECT_FALSE(shown(ProviderID::grok)->isUsable());
}

TEST_F(UsageStoreTest, AnAnswerThatWaitedDoesNotUndoANewerRetry) {
  const auto timedOut = Health::reconnect(std::string(ClaudeUnavailable::timedOut));
  store->start();
  claude.reply(0, reading(ProviderID::claude, 5, loop.date()).withHealth(timedOut));
  store->retryClaudeRead();
  claude.reply(0, reading(ProviderID::claude, 6, loop.date()));
  settle();  // the refresh ends with Codex's answer
  EXPECT_TRUE(store->isPresent(ProviderID::codex));
  EXPECT_EQ(shown(ProviderID::claude)->percent("5h"), 6);
}

TEST_F(UsageStoreTest, FileChangesReadOnlyTheirProviderAndRescanWhenPathsAreNotTrusted) {
  store->start();
  settle();
  codex->calls.clear();
  grok->calls.clear();
  const std::vector<FileEvent> modified{{.path = "/x/a", .flags = eventFlag::itemModified}};
  streams.deliver(sessions, modified);
  settle();
  streams.deliver(sessions, {{.path = "/x", .flags = eventFlag::rootChanged}});
  advance(2);
  streams.deliver(logs, modified);
  settle();
  EXPECT_EQ(codex->calls, (std::vector<std::string>{"changed 1", "rescan"}));
  EXPECT_EQ(grok->calls, (std::vector<std::string>{"fetch"}));
  EXPECT_EQ(claude.polls.size(), 1U);
}

TEST_F(UsageStoreTest, AMissingDirectoryIsWatchedOnceItExists) {
  std::filesystem::remove_all(sessions);
  store->start();
  settle();
  EXPECT_FALSE(streams.watches(sessions));
  directory.write("sessions/.keep", "");
  store->refreshOnUserAttention();
  EXPECT_TRUE(streams.watches(sessions));
}

TEST_F(UsageStoreTest, AttentionRefreshesOnDemandAndEndsWithTheEngine) {
  store->start();
  settle();
  for (const AttentionEvent event :
       {AttentionEvent::wake, AttentionEvent::screenWake, AttentionEvent::spaceChange}) {
    EXPECT_EQ(attention.tell(event), 1);
    EXPECT_EQ(claude.polls.back(), onDemandMinInterval);
  }
  EXPECT_EQ(log.lines, std::vector<std::string>{"woke from sleep, refreshing"});
  store->shutdown();
  EXPECT_EQ(attention.tell(AttentionEvent::wake), 0);
  EXPECT_FALSE(streams.watches(sessions) || streams.watches(logs));
  EXPECT_FALSE(loop.nextTimer().has_value());
}

TEST_F(UsageStoreTest, TurningClaudeOffDropsWhatIsOutAndStaysOff) {
  store->start();
  store->refreshNow();
  settle();
  store->retryClaudeRead();
  store->retryClaudeRead();
  EXPECT_EQ(claude.retries, 1) << "one retry at a time";
  EXPECT_TRUE(store->claudeRetrying());
  store->turnOffClaude();
  EXPECT_FALSE(store->claudeRetrying());
  EXPECT_EQ(defaults.flag("claudeTurnedOff"), true);
  while (!claude.waiting.empty()) {
    claude.reply(0, reading(ProviderID::claude, 50, loop.date()));
  }
  settle();
  EXPECT_EQ(shown(ProviderID::claude)->health, Health::turnedOff());
  EXPECT_FALSE(store->claudeYetFetched());

  const std::size_t polls = claude.polls.size();
  store->refreshNow();
  settle();
  store->retryClaudeRead();
  EXPECT_EQ(claude.polls.size(), polls);
  EXPECT_EQ(claude.retries, 1);

  store->turnOnClaude();
  EXPECT_FALSE(store->isPresent(ProviderID::claude));
  EXPECT_EQ(claude.retries, 2);
  claude.latched = true;
  claude.reply(0, reading(ProviderID::claude, 60, loop.date()));
  EXPECT_EQ(shown(ProviderID::claude)->percent("5h"), 60);
  EXPECT_TRUE(store->claudeYetFetched());
  EXPECT_TRUE(store->claudeReadLatched());
}

TEST_F(UsageStoreTest, ClearingForgetsEverythingAtOnceAndTheNextRefreshFillsItAgain) {
  const DiskCache cache(surroundings);
  directory.write("caches/test.marigold/Cache.db", "x");
  store->start();
  settle();
  claude.reply(0, reading(ProviderID::claude, 5, loop.date()));
  cache.save(shown(ProviderID::codex)->cached());
  store->refreshOnUserAttention();
  codexWorker.settle();  // a Codex answer is on its way while the user clears
  claude.reply(0, reading(ProviderID::claude, 6, loop.date()));  // and Claude's waits for it
  store->clearStoredData();
  for (const ProviderID provider : allProviders) {
    EXPECT_FALSE(store->isPresent(provider));
    EXPECT_FALSE(cache.load(provider).has_value());
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path() + "/caches/test.marigold"));
  settle();
  EXPECT_FALSE(store->isPresent(ProviderID::codex)) << "it may be what was just forgotten";
  EXPECT_FALSE(store->isPresent(ProviderID::claude));
  EXPECT_EQ(codex->calls.back(), "forget");
  EXPECT_EQ(claude.forgets, 1);
  store->refreshOnUserAttention();
  settle();
  claude.reply(0, reading(ProviderID::claude, 6, loop.date()));
  EXPECT_TRUE(store->isPresent(ProviderID::codex));
}

TEST_F(UsageStoreTest, ADestroyedStoreIsNotReachedByLateAnswers) {
  store->start();
  store->retryClaudeRead();
  streams.deliver(sessions, {{.path = "/x", .flags = eventFlag::rootChanged}});
  store.reset();
  settle();
  while (!claude.waiting.empty()) {
    claude.reply(0, reading(ProviderID::claude, 1, loop.date()));
  }
  advance(400);
}

// Random interleavings of everything that can happen, one piece of work at a time. Each reading
// of Claude carries the era it was asked in.
class PublicationRules : public testing::TestWithParam<unsigned>, protected StoreFixture {};

TEST_P(PublicationRules, HoldWhereverBetweenTwoSuspensionsSomethingFalls) {
  std::mt19937 generator(GetParam());
  const auto below = [&](int limit) {
    return static_cast<int>(generator() % static_cast<unsigned>(limit));
  };
  const auto chance = [&](int outOf) { return below(outOf) == 0; };
  makeStore();
  int era = 0;  // changes with each start and each switch of Claude
  const auto tagged = [&](ProviderID id) {
    return [&, id](Date now) {
      const Date captured = now - Seconds{1.0 * below(4)};
      ProviderSnapshot made = reading(id, below(3), captured);
      if (chance(8)) {
        made.windows.clear();
      }
      return made;
    };
  };
  codex->answer = tagged(ProviderID::codex);
  grok->answer = tagged(ProviderID::grok);

  const auto state = [&] {
    const std::array published{store->snapshot(ProviderID::claude),
                               store->snapshot(ProviderID::codex),
                               store->snapshot(ProviderID::grok)};
    return std::tuple(published, store->claudeYetFetched(), store->claudeReadLatched(),
                      store->claudeRetrying(), store->refreshInFlight(), store->engineRuns(),
                      store->preferences().claudeTurnedOff());
  };
  auto told = state();
  store->onStateChange = [&] {
    ++notified;
    told = state();
  };
  std::vector<int> askedUnder;  // the era of each waiting question of Claude
  bool userAct = false;
  bool wiped = false;
  const auto rarely = [&](auto act) {
    return [&, act] {
      if (chance(4)) {
        act();
      }
    };
  };
  const std::vector<std::function<void()>> acts{
      [&] { store->refreshNow(); },
      [&] { store->refreshOnUserAttention(); },
      [&] { store->retryClaudeRead(); },
      [&] { streams.deliver(sessions, {{.path = "/a", .flags = eventFlag::itemModified}}); },
      [&] { streams.deliver(logs, {}); },
      rarely([&] { store->shutdown(); }),
      [&] {
        if (!store->engineRuns() || chance(10)) {
          store->start();
          ++era;
        }
      },
      rarely([&] {
        store->clearStoredData();
        wiped = true;
      }),
      rarely([&] {
        const bool off = store->preferences().claudeTurnedOff();
        off ? store->turnOnClaude() : store->turnOffClaude();
        ++era;
        wiped = true;
      }),
      [&] { loop.advance(Seconds{1.0 * below(200)}); },
      [&] {
        if (!claude.waiting.empty()) {
          const std::size_t pick = generator() % claude.waiting.size();
          const std::string note = "asked under " + std::to_string(askedUnder.at(pick));
          askedUnder.erase(askedUnder.begin() + static_cast<std::ptrdiff_t>(pick));
          claude.reply(pick, reading(ProviderID::claude, below(3), loop.date(), note));
        }
      },
      [&] { codexWorker.step(); },
      [&] { grokWorker.step(); },
      [&] { loop.step(); },
      [&] { loop.step(); },
  };
  constexpr std::size_t byTheUser = 9;  // the acts before this one are not the engine's
  for (int i = 0; i < 3000; ++i) {
    const auto before = state();
    wiped = false;
    const std::size_t act = generator() % acts.size();
    userAct = act < byTheUser;
    acts.at(act)();
    askedUnder.resize(claude.waiting.size(), era);

    const auto after = state();
    for (std::size_t p = 0; p < allProviders.size() && !wiped; ++p) {
      const auto& old = std::get<0>(before).at(p);
      const auto& fresh = std::get<0>(after).at(p);
      if (old == fresh) {
        continue;
      }
      ASSERT_TRUE(store->engineRuns() || userAct) << "published after shutdown, step " << i;
      if (fresh && fresh->extraNote.value_or("").starts_with("asked under")) {
        ASSERT_EQ(fresh->extraNote, "asked under " + std::to_string(era)) << "step " << i;
        ASSERT_FALSE(store->preferences().claudeTurnedOff());
      } else if (old && fresh && old->isUsable() && fresh->isUsable()) {
        ASSERT_GE(fresh->capturedAt, old->capturedAt) << "step " << i;
      }
    }
  }
  store->shutdown();
  settle();
  EXPECT_EQ(told, state()) << "a change was not told";
  EXPECT_FALSE(store->claudeRetrying());
  EXPECT_FALSE(store->refreshInFlight());
}

INSTANTIATE_TEST_SUITE_P(Seeds, PublicationRules, testing::Range(0U, 20U));

// Hands on to the real reader, and numbers the answers as they arrive.
class NumberedClaude final : public ClaudeReader {
 public:
  static constexpr double nobody = 1e9;
  explicit NumberedClaude(ClaudeReader& real) : real_(real) {}
  double eagerest = nobody;  ///< the smallest interval asked for; -1 is a retry

  void poll(double minInterval, Date now, Answer answer) override {
    eagerest = std::min(eagerest, minInterval);
    real_.poll(minInterval, now, numbered(std::move(answer)));
  }
  void retryNow(Answer answer) override {
    eagerest = -1;
    real_.retryNow(numbered(std::move(answer)));
  }
  [[nodiscard]] bool isReadLatched() const override { return real_.isReadLatched(); }
  void resetBackoff() override { real_.resetBackoff(); }
  void stopAsking() override { real_.stopAsking(); }
  void forgetCache() override { real_.forgetCache(); }

 private:
  Answer numbered(Answer answer) {
    return [this, answer = std::move(answer)](ProviderSnapshot snapshot) {
      snapshot.extraNote = std::to_string(++arrivals_);
      answer(std::move(snapshot));
    };
  }
  ClaudeReader& real_;
  int arrivals_ = 0;
};

class StoreWithClaude : public testing::TestWithParam<unsigned>, protected StoreFixture {};

TEST_P(StoreWithClaude, AsksOneAtATimeInDueTimeAndNeverGoesBack) {
  std::mt19937 luck(GetParam());
  test::ClaudeFixture real(loop);
  NumberedClaude asked(*real.provider);
  makeStore(&asked);
  struct Outcome {
    test::ClaudeReply reply;
    double hold = 0;      // seconds
    double givesWay = 0;  // to this interval and smaller ones
  };
  const std::array<Outcome, 6> outcomes{
      {{test::usage(1), 0, -2},
       {test::status(429), 900, -2},
       {test::status(401), 300, 0},
       {test::silence(), 180, -1},
       {test::failedRead(KeychainReadError::Kind::locked), 60, -1},
       {test::failedRead(KeychainReadError::Kind::timedOut), 1e6, -1}}};
  const Outcome* last = nullptr;  // of the job that landed last
  Instant landed;
  bool isOut = false;
  bool forgot = false;
  int readsWhileOff = 0;
  int published = 0;
  const auto after = [&](double seconds) { return landed + continuousDuration(Seconds{seconds}); };
  const auto land = [&](const Outcome& outcome) {
    isOut = false;
    last = forgot && outcome.hold == 0 ? nullptr : &outcome;  // what is remembered
    landed = loop.now();
    const bool asksAnew = forgot || (asked.eagerest == -1 && outcome.hold != 0);
    asked.eagerest = asksAnew ? asked.eagerest : NumberedClaude::nobody;
    forgot = false;
  };
  const auto work = [&] {
    const Outcome& outcome = outcomes.at(luck() % 9 % outcomes.size());
    real.reply = outcome.reply;
    const int before = real.reads;
    const auto isJob = std::make_shared<bool>(false);
    loop.post([&, isJob] { *isJob ? land(outcome) : void(); });  // just before the reader lands it
    real.worker.step();
    *isJob = real.reads != before;
    if (!*isJob) {
      return;
    }
    EXPECT_FALSE(std::exchange(isOut, true)) << "two jobs at once";
    EXPECT_LE(readsWhileOff += store->preferences().claudeTurnedOff() ? 1 : 0, 1);
    if (last != nullptr && last->hold != 0) {
      EXPECT_TRUE(loop.now() >= after(last->hold) || asked.eagerest <= last->givesWay)
          << "too soon";
    } else if (last != nullptr && !forgot) {
      EXPECT_GE(loop.now(), after(std::max(0.0, asked.eagerest))) << "too soon";
    }
  };
  const auto rarely = [&](auto act) { return [&, act] { luck() % 6 == 0 ? act() : void(); }; };
  const std::vector<std::function<void()>> acts{
      work,
      work,
      [&] { loop.step(); },
      [&] { loop.step(); },
      [&] { loop.settle(); },
      [&] { codexWorker.step(); },
      [&] { grokWorker.settle(); },
      [&] { loop.advance(std::chrono::seconds(luck() % 400)); },
      rarely([&] { loop.setDate(loop.date() + Seconds{luck() % 2 == 0 ? -5000.0 : 5000.0}); }),
      [&] { store->refreshOnUserAttention(); },
      rarely([&] { store->refreshNow(); }),
      rarely([&] { store->retryClaudeRead(); }),
      rarely([&] {
        store->clearStoredData();
        forgot = true;
      }),
      rarely([&] {
        readsWhileOff = 0;
        forgot = true;
        const bool off = store->preferences().claudeTurnedOff();
        off ? store->turnOnClaude() : store->turnOffClaude();
      })};
  store->start();
  for (int i = 0; i < 4000 && !HasFailure(); ++i) {
    acts.at(luck() % acts.size())();
    const auto& shown = store->snapshot(ProviderID::claude);
    const int arrival = shown && shown->extraNote ? std::stoi(*shown->extraNote) : published;
    EXPECT_GE(arrival, published) << "gone back";
    published = arrival;
  }
  EXPECT_GT(real.reads, 20);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StoreWithClaude, testing::Range(0U, 10U));

}  // namespace
}  // namespace marigold
