#include <filesystem>
#include <iostream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "CodexDump.h"
#include "CodexProvider.h"
#include "LenientDecoding.h"
#include "support/CodexHome.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr Date epoch = test::codexEpoch;
constexpr std::size_t kib = 1024;

Date at(double seconds) {
  return epoch + Seconds{seconds};
}

std::string filler(std::size_t bytes) {
  return std::string(bytes - 1, 'x') + "\n";
}

std::optional<double> percent(const ProviderSnapshot& snapshot) {
  return snapshot.headlinePercent();
}

TEST(CodexPaths, FollowTheEnvironment) {
  const std::pair<std::optional<std::string>, const char*> homes[] = {
      {{}, "/u/.codex/sessions"}, {"", "/u/.codex/sessions"}, {"~", "/u/sessions"},
      {"~/c/", "/u/c/sessions"},  {"/", "/sessions"},         {"/opt/~c", "/opt/~c/sessions"}};
  for (const auto& [variable, sessions] : homes) {
    Surroundings surroundings{.home = "/u"};
    if (variable) {
      surroundings.environment["CODEX_HOME"] = *variable;
    }
    EXPECT_EQ(CodexPaths(surroundings).sessionsDir(), sessions);
  }
}

TEST(CodexProvider, TellsWhatItHas) {
  const test::CodexHome home;
  CodexProvider provider = home.provider();
  EXPECT_EQ(provider.fetch(at(0)),
            (ProviderSnapshot{.provider = ProviderID::codex,
                              .capturedAt = at(0),
                              .health = Health::notInstalled("Codex not detected")}));
  fs::create_directories(home.sessions());
  EXPECT_EQ(provider.fetch(at(0)).health, Health::reconnect("Run Codex once to see usage"));

  const auto file = home.write("2027/rollout-a.jsonl", test::recordLine(16, 10), 11);
  const ProviderSnapshot good = provider.fetch(at(20));
  EXPECT_EQ(percent(good), 16);
  EXPECT_EQ(good.capturedAt, at(10));
  EXPECT_EQ(good.health, Health::ok());
  EXPECT_EQ(provider.lastSource(), file);
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{file, at(11)}));

  // The content changes and the time does not: only a rescan looks.
  home.write("2027/rollout-a.jsonl", test::recordLine(17, 12), 11);
  EXPECT_EQ(provider.fetch(at(20000)), good.withHealth(Health::stale("5h ago")));
  EXPECT_EQ(percent(provider.rescan(at(20))), 17);

  home.write("2027/rollout-a.jsonl", "{}\n", 13);
  EXPECT_EQ(provider.fetch(at(20)).health, Health::stale("no recent usage"));
  EXPECT_EQ(provider.lastProcessed(), std::nullopt);
  fs::remove_all(home.sessions());
  EXPECT_EQ(provider.fetch(at(20)).health, Health::stale("Codex not running"));
  EXPECT_EQ(percent(home.provider().fetch(at(20))), 17) << "restored from the cache";

  provider.forgetCache();
  EXPECT_EQ(provider.fetch(at(20)).health, Health::notInstalled("Codex not detected"));
  EXPECT_EQ(home.provider().lastGood(), std::nullopt);
}

TEST(CodexProvider, ReadsTheLastUsableLineOfATail) {
  const std::string record = test::recordLine(1, 0);
  const std::string later = test::recordLine(2, -50);
  struct Case {
    const char* what;
    std::string content;
    std::optional<double> percent;
  };
  const std::string open(100'000, '[');
  for (const Case& test : {
           Case{"empty", "", {}},
           Case{"later line with an earlier time", record + later, 2},
           Case{"only line, whole file", record, 1},
           Case{"no newline at the end", record + later.substr(0, later.size() - 1), 2},
           Case{"last line still being written", record + later.substr(0, later.size() - 3), 1},
           Case{"empty lines, CRLF", record + "\n\n" + later.substr(0, later.size() - 1) + "\r\n\n",
                2},
           Case{"mark in other lines", record + "{\"a\":\"rate_limits\"}\nrate_limits\n", 1},
           Case{"no window", record + R"({"payload":{"rate_limits":{"primary":null}}})" + "\n", 1},
           Case{"in the first of two MiB", record + filler(2048 * kib), {}},
           Case{"beyond the first step", filler(2048 * kib) + record + filler(100 * kib), 1},
           Case{"across the first step", filler(2048 * kib) + record + filler(64 * kib - 20), 1},
           Case{"step begins at a line",
                filler(2048 * kib) + record + filler(64 * kib - record.size()), 1},
           Case{"step begins at a newline",
                filler(600 * kib) + record + filler(64 * kib - record.size() - 1), 1},
           Case{"whole file in two steps", record + filler(100 * kib), 1},
           Case{"tail begins inside the line",
                filler(2048 * kib) + record + filler(512 * kib - 20),
                {}},
           Case{"tail begins at the line",
                filler(600 * kib) + record + filler(512 * kib - record.size()),
                {}},
           Case{"300 KiB line", record + later.substr(0, later.size() - 1) + filler(300 * kib), 1},
           Case{"not UTF-8",
                record +
                    R"({"x":")"
                    "\xff"
                    R"(",)" +
                    later.substr(1),
                1},
           Case{"NUL", record + std::string(1, '\0') + later, 1},
           Case{"nesting", record + R"({"rate_limits":)" + open + "\n", 1},
           Case{"nesting in a good line",
                R"({"x":)" + open + std::string(100'000, ']') + "," + later.substr(1), 2},
           Case{"numbers out of range", R"({"x":1e400,"y":9223372036854775808,)" + later.substr(1),
                2},
       }) {
    const test::CodexHome home;
    const auto path = home.write("rollout-a.jsonl", test.content, 0);
    const auto found = lastRateLimits(path, at(0));
    EXPECT_EQ(found ? found->limits.primary->usedPercent : std::nullopt, test.percent) << test.what;
    if (found) {
      const auto offset = static_cast<std::size_t>(found->offset);
      EXPECT_THAT(test.content.substr(offset, test.content.find('\n', offset) - offset),
                  HasSubstr(std::to_string(*test.percent)))
          << test.what;
    }
  }
}

TEST(CodexProvider, ALineWithoutATimeHasTheFiles) {
  const test::CodexHome home;
  home.write(
      "rollout-a.jsonl",
      R"({"timestamp":"yesterday","payload":{"rate_limits":{"primary":{"used_percent":3,"window_minutes":300}}}})",
      77);
  EXPECT_EQ(home.provider().fetch(at(100)).capturedAt, at(77));
}

TEST(CodexProvider, ReadsNothingButRolloutFiles) {
  const test::CodexHome home;
  const std::string record = test::recordLine(99, 50);
  const test::TemporaryDirectory elsewhere;
  const auto target = elsewhere.write("2027/rollout-t.jsonl", record);
  for (const char* name :
       {"rollout-x.json", "session.jsonl", ".rollout-x.jsonl", ".hidden/rollout-x.jsonl",
        "xrollout-.jsonl", "rollout-d.jsonl/inside.txt"}) {
    home.write(name, record, 60);
  }
  const std::string sessions = home.sessions();
  fs::create_symlink(target, sessions + "/rollout-link.jsonl");
  fs::create_symlink(elsewhere.path(), sessions + "/linked");
  fs::create_symlink("/dev/zero", sessions + "/rollout-zero.jsonl");
  ASSERT_EQ(::mkfifo((sessions + "/rollout-fifo.jsonl").c_str(), 0600), 0);
  CodexProvider provider = home.provider();
  EXPECT_THAT(provider.recentRolloutFiles(40), IsEmpty());
  for (const char* name : {"/rollout-link.jsonl", "/rollout-zero.jsonl", "/rollout-fifo.jsonl",
                           "/rollout-d.jsonl", ""}) {
    EXPECT_FALSE(lastRateLimits(sessions + name, at(0))) << name;
  }
  // Neither does a change bring them in.
  home.write("a/rollout-a.jsonl", test::recordLine(5, 1), 1);
  EXPECT_EQ(percent(provider.fetch(at(60))), 5);
  for (const char* name :
       {"/rollout-link.jsonl", "/linked/2027/rollout-t.jsonl", "/.hidden/rollout-x.jsonl",
        "/rollout-fifo.jsonl", "/../sessions/a/rollout-a.jsonl", "//rollout-a.jsonl",
        "/rollout-x.json"}) {
    EXPECT_EQ(percent(provider.fetch({sessions + name, target}, at(60))), 5) << name;
  }
}

TEST(CodexProvider, TheRootMayBeALink) {
  const test::TemporaryDirectory home;
  const auto path = home.write("real/sub/rollout-a.jsonl", test::recordLine(8, 1));
  fs::create_symlink(home.path() + "/real", home.path() + "/sessions");
  const Surroundings surroundings{.home = home.path(), .environment = {{"CODEX_HOME", "~"}}};
  EXPECT_EQ(newestRolloutFiles(CodexPaths(surroundings).sessionsDir(), 40).newest.size(), 1);
  const auto changed = rolloutFileAt(home.path() + "/sessions", path);
  EXPECT_EQ(changed.value().path, home.path() + "/sessions/sub/rollout-a.jsonl");
}

TEST(CodexProvider, ListsTheNewestFirst) {
  const test::CodexHome home;
  for (int i = 0; i < 50; ++i) {
    home.write("d" + std::to_string(i % 7) + "/rollout-" + std::to_string(i) + ".jsonl", "",
               i * 17 % 50);
  }
  const auto all = home.provider().recentRolloutFiles(100);
  const auto some = home.provider().recentRolloutFiles(40);
  ASSERT_EQ(all.size(), 50);
  ASSERT_EQ(some.size(), 40);
  for (std::size_t i = 0; i < some.size(); ++i) {
    EXPECT_EQ(some[i].modified, at(49.0 - static_cast<double>(i)));
    EXPECT_EQ(some[i].path, all[i].path);
  }
  std::string deep;
  for (int i = 0; i < 100; ++i) {
    deep += "d/";
  }
  home.write(deep + "rollout-deep.jsonl", "", 90);
  home.write("rollout-sparse.jsonl", "", 80);
  fs::resize_file(home.sessions() + "/rollout-sparse.jsonl", 4UL << 30);
  test::setModified(home.sessions() + "/rollout-sparse.jsonl", 80);
  const RolloutListing listing = newestRolloutFiles(home.sessions(), 1);
  EXPECT_EQ(listing.newest.at(0).size, 4L << 30);
  EXPECT_EQ(listing.rolloutFiles, 51);
  EXPECT_EQ(listing.skipped, 1);
  EXPECT_FALSE(lastRateLimits(listing.newest[0].path, at(0)));
}

TEST(CodexProvider, TheLatestRecordWinsAndNoneOlderReplacesIt) {
  const test::CodexHome home;
  home.write("rollout-a.jsonl", test::recordLine(1, 10), 100);
  const auto b = home.write("rollout-b.jsonl", test::recordLine(2, 90), 99);
  home.write("rollout-c.jsonl", test::recordLine(3, 95), 80);  // older than what b holds: not read
  CodexProvider provider = home.provider();
  EXPECT_EQ(percent(provider.fetch(at(200))), 2);
  EXPECT_EQ(provider.lastSource(), b);

  home.write("rollout-b.jsonl", "", 99);
  home.write("rollout-c.jsonl", "", 80);
  EXPECT_EQ(percent(provider.rescan(at(200))), 2) << "only the record of 10 is left";
  EXPECT_EQ(percent(home.provider().fetch(at(200))), 2) << "nor was the cache set back";
  EXPECT_EQ(percent(provider.rescan(at(50))), 1) << "a reading from the future holds nothing up";
}

TEST(CodexProvider, ReadsWhatChanged) {
  const test::CodexHome home;
  const auto a = home.write("a/rollout-a.jsonl", test::recordLine(1, 10), 10);
  const auto b = home.write("a/rollout-b.jsonl", test::recordLine(2, 5), 5);
  CodexProvider provider = home.provider();
  EXPECT_EQ(percent(provider.fetch({b}, at(20))), 1) << "the first read is a regular one";

  home.write("a/rollout-b.jsonl", test::recordLine(3, 15), 9);
  EXPECT_EQ(percent(provider.fetch({a, b}, at(20))), 3);
  EXPECT_EQ(provider.lastSource(), b);
  EXPECT_EQ(provider.lastProcessed().value().path, a) << "b is the older file";

  home.write("a/rollout-b.jsonl", test::recordLine(4, 12), 9);
  EXPECT_EQ(percent(provider.fetch({b}, at(20000))), 3) << "not newer";
  EXPECT_EQ(provider.fetch({b}, at(20000)).health, Health::stale("5h ago"));

  home.write("a/rollout-b.jsonl", test::recordLine(5, 22), 23);
  EXPECT_EQ(percent(provider.fetch({b, "/gone/rollout-x.jsonl"}, at(30))), 5);
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{b, at(23)}));
  EXPECT_EQ(DiskCache(home.surroundings()).load(ProviderID::codex).value().capturedAt, at(22));

  home.write("a/rollout-b.jsonl", "", 24);
  home.write("a/rollout-c.jsonl", test::recordLine(6, 25), 25);
  EXPECT_EQ(percent(provider.fetch({b}, at(30))), 6) << "no record there: a regular read";
}

TEST(CodexDump, TellsHowTheReadingCameAbout) {
  const test::CodexHome home;
  home.write("rollout-a.jsonl", "{\"text\":\"private\"}\n" + test::recordLine(12.5, 10), 10);
  home.write("rollout-b\n.jsonl", "{}\n", 20);
  home.write("rollout-c.jsonl", "{}\n", 5);
  const std::string dump = codexDump(home.surroundings(), at(60));
  for (const char* part :
       {"3 found, the newest 3 considered, 2 opened", "rollout-a.jsonl  <- the reading",
        "at byte 19", "rollout-b?.jsonl\n", "no usable record", "not opened", "5h: 12.5% used",
        "plan: Codex Plus", "note: none", "health: ok", "cached reading: none"}) {
    EXPECT_THAT(dump, HasSubstr(part));
  }
  EXPECT_THAT(dump, Not(HasSubstr("private")));
  EXPECT_FALSE(fs::exists(home.home().path() + "/cache"));
  EXPECT_THAT(codexDump({.home = "/nowhere"}, at(0)),
              HasSubstr("not installed, \"Codex not detected\""));
}

// What the tool itself left behind, when those files are at hand.
struct RealHome {
  const char* name;
  std::vector<UsageWindow> windows;
  std::optional<std::string> plan;
  std::optional<std::string> note;
};

std::vector<UsageWindow> both(double fiveHour, double fiveHourReset, double weekly,
                              double weeklyReset) {
  return {{"5h", fiveHour, dateFromEpoch(fiveHourReset)},
          {"Weekly", weekly, dateFromEpoch(weeklyReset)}};
}

std::vector<RealHome> realHomes() {
  return {
      {"a_5h_weekly_ws", both(37, 1795387304, 12, 1795680104), "Codex Plus", {}},
      {"a_5h_weekly_headers", both(37, 1795387310, 12.5, 1795680110), {}, {}},
      {"b_weekly_only_primary", {{"Weekly", 64, dateFromEpoch(1795580115.0)}}, "Codex Free", {}},
      {"b_weekly_only_secondary",
       {{"Weekly", 64, dateFromEpoch(1795580121.0)}},
       "Codex Business",
       {}},
      {"c_credits_balance", both(8, 1795387326, 55, 1795680126), "Codex Pro",
       "Rate resets available: 12.4 credits"},
      {"c_credits_unlimited", both(8, 1795387332, 55, 1795680132), "Codex Pro",
       "Rate resets available: unlimited credits"},
      {"c_credits_none", both(8, 1795387338, 55, 1795680138), "Codex Pro", {}},
      {"d_multi_turn", both(30, 1795387343, 6, 1795680143), "Codex Plus", {}},
      {"d_last_turn_null", both(20, 1795387360, 5, 1795680160), "Codex Plus", {}},
      {"e_two_sessions", both(5, 1795398170, 21, 1795680170), "Codex Plus", {}},
      {"e_older_file_resumed", both(61, 1795387396, 22, 1795680196), "Codex Plus", {}},
      {"f_pct_zero", both(0, 0, 0, 0), "Codex Plus", {}},
      {"f_pct_low_fraction", both(0.4, 0, 0.4, 0), "Codex Plus", {}},
      {"f_pct_high_fraction", both(99.6, 0, 99.6, 0), "Codex Plus", {}},
      {"f_pct_hundred", both(100, 0, 100, 0), "Codex Plus", {}},
      {"g_none_ws", {}, {}, {}},
      {"g_none_headers", {}, {}, {}},
      {"i_limit_reached_429", both(100, 1795387496, 45, 1795680296), {}, {}},
      // Before version 0.58 the tool told only the seconds to a reset.
      {"n_old_0_42_0", {{"5h", 37, {}}, {"Weekly", 12, {}}}, {}, {}},
      {"n_old_0_98_0",
       both(37, 1795387568, 12, 1795680368),
       {},
       "Rate resets available: 12.4 credits"},
      {"n_old_0_125_0",
       both(37, 1795387574, 12, 1795680374),
       {},
       "Rate resets available: 12.4 credits"},
      {"o_tui_two_turns", both(10, 0, 3, 0), "Codex Plus", {}},
      {"p_long_tail", both(44, 1795389431, 15, 1795682231), "Codex Plus", {}},
  };
}

TEST(CodexProvider, ReadsTheHomesOfTheRealTool) {
  const char* folder = std::getenv("MARIGOLD_CODEX_HOMES");  // NOLINT(concurrency-mt-unsafe)
  if (folder == nullptr || !fs::exists(folder)) {
    std::cout
        << "the real tool's homes are not here: its formats were tested by our own lines only\n";
    return;
  }
  std::ptrdiff_t folders = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    folders += entry.is_directory() ? 1 : 0;
  }
  EXPECT_EQ(folders, std::ssize(realHomes())) << "a home without its truth here";
  for (const RealHome& real : realHomes()) {
    const test::CodexHome home;
    const fs::path source = fs::path(folder) / real.name;
    std::ifstream times(source / "mtimes.tsv");
    std::string path;
    double time = 0;
    double newest = 0;
    while (times >> path >> time) {
      const fs::path target = fs::path(home.home().path()) / ".codex" / path;
      fs::create_directories(target.parent_path());
      fs::copy_file(source / path, target);
      test::setModified(target, secondsBetween(epoch, dateFromEpoch(time)));
      newest = std::max(newest, time);
    }
    ProviderSnapshot snapshot = home.provider().fetch(dateFromEpoch(newest + 1));
    for (std::size_t i = 0; i < std::min(snapshot.windows.size(), real.windows.size()); ++i) {
      if (real.windows[i].resetsAt == dateFromEpoch(0.0)) {  // no time is known for this home
        snapshot.windows[i].resetsAt = dateFromEpoch(0.0);
      }
    }
    EXPECT_EQ(snapshot.windows, real.windows) << real.name;
    EXPECT_EQ(snapshot.planLabel, real.plan) << real.name;
    EXPECT_EQ(snapshot.extraNote, real.note) << real.name;
    EXPECT_EQ(snapshot.health, real.windows.empty()
                                   ? Health::reconnect("Run Codex once to see usage")
                                   : Health::ok());
  }
}

}  // namespace
}  // namespace marigold
