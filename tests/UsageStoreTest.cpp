#include <array>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "UsageStore.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

using test::reading;
using test::StoreFixture;
using Calls = std::vector<std::string>;

std::vector<FileEvent> modified() {
  return {{.path = "/x/a", .flags = eventFlag::itemModified}};
}

class UsageStoreTest : public testing::Test, protected StoreFixture {
 protected:
  UsageStoreTest() { makeStore(); }

  [[nodiscard]] const std::optional<ProviderSnapshot>& shown(ProviderID provider) const {
    return store->snapshot(provider);
  }
  [[nodiscard]] double usage(ProviderID provider) const {
    return shown(provider) ? shown(provider)->percent("5h").value_or(-1) : -2;
  }
  // Claude's `usage`, as the answer to what was asked first.
  void claudeSays(double usage) {
    claude.reply(0, reading(ProviderID::claude, usage, loop.date()));
  }
};

TEST_F(UsageStoreTest, RestoresReadingsAsStaleAndShowsThemBeforeTheFirstRead) {
  const DiskCache cache(surroundings);
  cache.save(reading(ProviderID::codex, 42, loop.date() - Seconds{7200}).cached());
  cache.save(reading(ProviderID::claude, 43, loop.date()).cached());
  for (const bool off : {true, false}) {
    defaults.set("claudeTurnedOff", off);
    makeStore();
    EXPECT_EQ(shown(ProviderID::claude)->health,
              off ? Health::turnedOff() : Health::stale("just now"));
  }
  EXPECT_EQ(shown(ProviderID::codex)->health, Health::stale("2h ago"));
  EXPECT_FALSE(store->isPresent(ProviderID::grok));
  store->start();
  loop.settle();
  EXPECT_EQ(usage(ProviderID::codex), 42);
}

TEST_F(UsageStoreTest, RefreshesEvery180SecondsAfterTheLastOneEndedAndTellsOnlyNews) {
  store->refreshNow();
  settle();
  EXPECT_TRUE(claude.polls.empty() && codex->calls.empty()) << "not started";
  store->start();
  settle();
  EXPECT_FALSE(store->isPresent(ProviderID::codex)) << "all results are applied together";
  advance(20);
  claudeSays(5);
  EXPECT_EQ(usage(ProviderID::codex), 10);
  advance(179.5);
  EXPECT_EQ(claude.polls.size(), 1U);
  codex->answer = [&, same = *shown(ProviderID::codex)](Date) { return same; };
  grok->answer = [&, same = *shown(ProviderID::grok)](Date) { return same; };
  const int before = notified;
  advance(1);
  EXPECT_EQ(claude.polls.size(), 2U);
  claude.reply(0, *shown(ProviderID::claude));
  settle();
  EXPECT_EQ(notified, before);
  store->preferences().setMenuBarLabels(true);
  store->preferences().setBarColors(BarColors::dark);
  settle();
  EXPECT_EQ(notified, before + 1) << "once a turn";
}

TEST_F(UsageStoreTest, ChoosesClaudesIntervalByCadence) {
  random.value = 0.0;
  store->start();
  settle();
  EXPECT_DOUBLE_EQ(claude.polls.back().count(), 765);
  struct Row {
    double usage, fraction, interval;
  };
  for (const Row& row : {Row{10, 0.5, 900}, Row{10, 1.0, 1035}, Row{12, 0.5, 450}}) {
    claudeSays(row.usage);
    random.value = row.fraction;
    advance(180);
    EXPECT_DOUBLE_EQ(claude.polls.back().count(), row.interval) << row.usage;
  }
  store->turnOnClaude();
  claude.replyAll(reading(ProviderID::claude, 14, loop.date()));
  advance(180);
  EXPECT_EQ(claude.polls.back(), Seconds{900}) << "the pace begins anew";
  EXPECT_FALSE(store->refreshInFlight());
  store->refreshNow();
  EXPECT_EQ(claude.polls.back(), Seconds{0});
  EXPECT_TRUE(store->refreshInFlight());
}

TEST_F(UsageStoreTest, AReadThatHangsHoldsUpNobody) {
  store->start();
  grokWorker.settle();
  loop.settle();
  claudeSays(5);
  for (const double waited : {29.0, 1.0}) {
    EXPECT_FALSE(store->isPresent(ProviderID::grok));
    loop.advance(Seconds{waited});
  }
  EXPECT_EQ(usage(ProviderID::grok), 20);
  EXPECT_EQ(usage(ProviderID::claude), 5);
  store->refreshNow();
  claudeSays(6);
  grokWorker.settle();
  loop.settle();
  EXPECT_FALSE(store->refreshInFlight()) << "nobody waits for it again";
  settle();
  EXPECT_EQ(usage(ProviderID::codex), 10) << "applied when it comes";
  EXPECT_EQ(codex->calls, Calls{"fetch"});
  loop.advance(Seconds{180});
  settle();
  EXPECT_EQ(codex->calls.size(), 2U);
}

TEST_F(UsageStoreTest, FileChangesReadOnlyTheirProviderAndRescanWhenPathsAreNotTrusted) {
  const std::vector<FileEvent> untrusted{{.path = "/x", .flags = eventFlag::mustScanSubDirs}};
  store->start();
  streams.deliver(sessions, {});
  settle();
  EXPECT_EQ(codex->calls, (Calls{"fetch", "fetch"})) << "the watch stands, no more";
  codex->calls.clear();
  grok->calls.clear();
  advance(2);
  streams.deliver(sessions, modified());
  settle();
  streams.deliver(sessions, untrusted);
  advance(2);
  streams.deliver(logs, modified());
  settle();
  EXPECT_EQ(codex->calls, (Calls{"changed 1", "rescan"}));
  EXPECT_EQ(grok->calls, (Calls{"changed 1"}));
  EXPECT_EQ(claude.polls.size(), 1U);
  grok->answer = [resets = loop.date() + Seconds{20}](Date now) {
    auto made = reading(ProviderID::grok, now < resets ? 100 : 15, now);
    made.windows[0].resetsAt = resets;
    return made;
  };
  advance(2);
  streams.deliver(logs, modified());
  advance(18);
  EXPECT_EQ(usage(ProviderID::grok), 15) << "told anew when a window resets";
  streams.deliver(sessions, modified());
  store->shutdown();
  settle();
  store->start();
  settle();
  EXPECT_EQ(codex->calls, (Calls{"changed 1", "rescan", "fetch"})) << "nothing of before the end";
}

TEST_F(UsageStoreTest, AttentionRefreshesOnDemandAndEndsWithTheEngine) {
  streams.refuses = true;
  store->start();
  store->start();
  settle();
  EXPECT_EQ(streams.deliver(sessions, {}), 0);
  streams.refuses = false;
  for (const AttentionEvent event :
       {AttentionEvent::wake, AttentionEvent::screenWake, AttentionEvent::spaceChange}) {
    EXPECT_EQ(attention.tell(event), 1);
    EXPECT_EQ(claude.polls.back(), onDemandMinInterval);
  }
  EXPECT_EQ(streams.deliver(sessions, {}), 1) << "asked for again";
  EXPECT_EQ(log.lines, Calls{"woke from sleep, refreshing"});
  store->shutdown();
  EXPECT_EQ(attention.tell(AttentionEvent::wake), 0);
  EXPECT_EQ(streams.deliver(sessions, {}) + streams.deliver(logs, {}), 0);
  EXPECT_FALSE(loop.nextTimer().has_value());
}

TEST_F(UsageStoreTest, TurningClaudeOffDropsWhatIsOutAndStaysOff) {
  const auto late = [&](double usage) {
    claude.onLateResult(reading(ProviderID::claude, usage, loop.date()));
  };
  late(1);
  EXPECT_FALSE(store->isPresent(ProviderID::claude)) << "not started";
  store->start();
  late(2);
  EXPECT_EQ(usage(ProviderID::claude), 2);
  store->refreshNow();
  settle();
  store->retryClaudeRead();
  store->retryClaudeRead();
  EXPECT_EQ(claude.retries, 1) << "one retry at a time";
  EXPECT_TRUE(store->claudeRetrying());
  store->turnOffClaude();
  EXPECT_FALSE(store->claudeRetrying());
  EXPECT_EQ(claude.stops, 1);
  EXPECT_EQ(defaults.flag("claudeTurnedOff"), true);
  claude.replyAll(reading(ProviderID::claude, 50, loop.date()));
  late(3);
  settle();
  EXPECT_EQ(shown(ProviderID::claude)->health, Health::turnedOff());
  const std::size_t polls = claude.polls.size();
  store->refreshNow();
  settle();
  store->retryClaudeRead();
  EXPECT_EQ(claude.polls.size(), polls);
  EXPECT_EQ(claude.retries, 1);

  defaults.changeByOthers({{"claudeTurnedOff", false}});
  EXPECT_FALSE(store->isPresent(ProviderID::claude) || store->claudeYetFetched());
  EXPECT_EQ(claude.retries, 2) << "as if chosen here";
  claude.latched = true;
  claudeSays(60);
  EXPECT_EQ(usage(ProviderID::claude), 60);
  EXPECT_TRUE(store->claudeYetFetched() && store->claudeReadLatched());
  defaults.changeByOthers({{"claudeTurnedOff", true}});
  EXPECT_FALSE(store->claudeReadLatched());
  store->turnOnClaude();
  EXPECT_EQ(defaults.flag("claudeTurnedOff"), false);
}

TEST_F(UsageStoreTest, LaunchesAtLoginAsTheSystemSays) {
  using enum LoginItem::Status;
  // The status before and once registered, what is wanted, why it is refused; the status after,
  // what was asked of the system, the error told.
  using Row = std::tuple<LoginItem::Status, LoginItem::Status, bool, std::string, LoginItem::Status,
                         std::string, std::string>;
  for (const auto& [before, registered, on, refusal, after, asked, error] :
       {Row(notRegistered, enabled, true, "", enabled, "register ", ""),
        Row(notRegistered, requiresApproval, true, "", requiresApproval, "register settings ", ""),
        Row(notRegistered, enabled, true, "no room", notRegistered, "register ",
            "Could not turn on launch at login: no room"),
        Row(enabled, enabled, false, "no way", enabled, "unregister ",
            "Could not turn off launch at login: no way"),
        Row(enabled, enabled, false, "", notRegistered, "unregister ", "")}) {
    loginItem.now = before;
    loginItem.refusal = refusal;
    loginItem.registered = registered;
    settle();
    loginItem.asked.clear();
    log.lines.clear();
    notified = 0;
    store->setLaunchAtLogin(on);
    settle();
    store->refreshLoginItemStatus();
    settle();
    EXPECT_EQ(store->launchAtLogin(), after == enabled);
    EXPECT_EQ(store->launchAtLoginRequiresApproval(), after == requiresApproval);
    EXPECT_EQ(store->launchAtLoginError().value_or(""), error);
    std::string calls;
    for (const std::string& call : loginItem.asked) {
      calls += call + " ";
    }
    EXPECT_EQ(calls, asked);
    EXPECT_EQ(log.lines, error.empty() ? Calls()
                                       : Calls{std::string("Marigold: SMAppService ")
                                                   .append(asked)
                                                   .append("failed: ")
                                                   .append(refusal)});
    EXPECT_EQ(notified, 1);
  }
  loginItem.refusal = "no room";
  store->setLaunchAtLogin(true);
  loginItem.now = enabled;
  store->refreshLoginItemStatus();
  EXPECT_FALSE(store->launchAtLoginError()) << "it was turned on elsewhere";
  // At the start: nothing is turned on, and what cannot be renewed stays as it is.
  loginItem.now = notRegistered;
  loginItem.asked.clear();
  store->reregisterLoginItemIfEnabled();
  EXPECT_EQ(loginItem.asked, Calls());
  loginItem.now = enabled;
  loginItem.refusal = "no room";
  store->reregisterLoginItemIfEnabled();
  EXPECT_EQ(loginItem.asked, Calls{"register"});
  EXPECT_TRUE(store->launchAtLogin());
  EXPECT_FALSE(store->launchAtLoginError());
  loginItem.refusal.clear();
  loginItem.registered = requiresApproval;
  store->reregisterLoginItemIfEnabled();
  EXPECT_TRUE(store->launchAtLoginRequiresApproval());
}

TEST_F(UsageStoreTest, ClearingForgetsEverythingAtOnce) {
  const DiskCache cache(surroundings);
  directory.write("caches/test.marigold/Cache.db", "x");
  store->start();
  settle();
  claudeSays(5);
  cache.save(shown(ProviderID::codex)->cached());
  store->refreshOnUserAttention();
  grokWorker.settle();
  codexWorker.settle();  // a Codex answer is on its way while the user clears
  claudeSays(6);         // and Claude's waits for it
  store->clearStoredData();
  for (const ProviderID provider : allCases<ProviderID>) {
    EXPECT_FALSE(store->isPresent(provider));
    EXPECT_FALSE(cache.load(provider).has_value());
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path() + "/caches/test.marigold"));
  codex->answer = [](Date now) { return reading(ProviderID::codex, 11, now); };
  loop.settle();
  EXPECT_FALSE(store->isPresent(ProviderID::codex)) << "it may be what was just forgotten";
  settle();
  EXPECT_EQ(codex->calls, (Calls{"fetch", "fetch", "forget", "fetch"}));
  EXPECT_EQ(usage(ProviderID::codex), 11) << "asked again at once";
  EXPECT_FALSE(store->isPresent(ProviderID::claude));
  EXPECT_EQ(claude.forgets, 1);
  claudeSays(7);
  EXPECT_EQ(usage(ProviderID::claude), 7);
  store->clearStoredData();
  settle();
  EXPECT_EQ(codex->calls.back(), "forget") << "nobody was asking";
  EXPECT_TRUE(claude.waiting.empty());
  streams.deliver(logs, modified());
  advance(1);
  cache.save(reading(ProviderID::codex, 1, loop.date()).cached());
  cache.save(shown(ProviderID::grok)->cached());
  store.reset();
  EXPECT_FALSE(cache.load(ProviderID::codex).has_value());
  EXPECT_TRUE(cache.load(ProviderID::grok).has_value()) << "it is of later";
}

// Random interleavings of everything that can happen, one piece of work at a time. A reading of
// Claude carries the era it was asked in, which changes with each start and each switch of Claude.
class PublicationRules : public testing::TestWithParam<unsigned>, protected StoreFixture {};

TEST_P(PublicationRules, HoldWhereverBetweenTwoSuspensionsSomethingFalls) {
  std::mt19937 luck(GetParam());
  const auto below = [&](int limit) { return static_cast<int>(luck() % 1000) % limit; };
  makeStore();
  codex->answer = grok->answer = [&](Date now) {
    return reading(ProviderID::codex, below(3), now - Seconds{1.0 * below(4)});
  };
  const auto published = [&] {
    return std::array{store->snapshot(ProviderID::claude), store->snapshot(ProviderID::codex),
                      store->snapshot(ProviderID::grok)};
  };
  int era = 0;
  std::vector<std::string> askedIn;  // the era of each waiting question of Claude
  const std::vector<std::function<void()>> acts{
      [&] { store->clearStoredData(); },
      [&] {
        ++era;
        store->preferences().claudeTurnedOff() ? store->turnOnClaude() : store->turnOffClaude();
      },
      [&] { store->shutdown(); },
      [&] { ++era, store->start(); },
      [&] { store->refreshNow(); },
      [&] { store->refreshOnUserAttention(); },
      [&] { store->retryClaudeRead(); },
      [&] { streams.deliver(sessions, modified()); },
      [&] { streams.deliver(logs, {}); },
      [&] { loop.advance(Seconds{1.0 * below(200)}); },
      [&] {
        if (!askedIn.empty()) {
          const auto pick = luck() % askedIn.size();
          const std::string note = std::exchange(askedIn[pick], askedIn.back());
          std::swap(claude.waiting[pick], claude.waiting.back());
          askedIn.pop_back();
          claude.reply(askedIn.size(), reading(ProviderID::claude, below(3), loop.date(), note));
        }
      },
      [&] { codexWorker.step(); },
      [&] { grokWorker.step(); },
      [&] { loop.step(); }};
  for (int i = 0; i < 5000 && !HasFailure(); ++i) {
    const auto before = published();
    const bool ran = store->engineRuns();
    // The first ones, which wipe or end, are rare.
    int act = below(12) == 0 ? below(4) : 4 + below(7);
    act = below(2) == 0 ? 11 + below(3) : act;
    acts.at(static_cast<std::size_t>(act))();
    askedIn.resize(claude.waiting.size(), std::to_string(era));
    const auto after = published();
    if (act < 2 || before == after) {
      continue;
    }
    EXPECT_TRUE(ran || store->engineRuns()) << "published after shutdown";
    for (const std::size_t each : {0U, 1U, 2U}) {
      EXPECT_TRUE(!before[each] || after[each]->capturedAt >= before[each]->capturedAt);
    }
    if (before[0] != after[0] && after[0]->isUsable()) {
      EXPECT_EQ(after[0]->extraNote, std::to_string(era));
      EXPECT_FALSE(store->preferences().claudeTurnedOff());
    }
  }
  store.reset();  // what is still out reaches nobody
  claude.replyAll(reading(ProviderID::claude, 1, loop.date()));
  advance(400);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PublicationRules, testing::Range(0U, 20U));

}  // namespace
}  // namespace marigold
