#include <filesystem>
#include <iostream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "CodexDump.h"
#include "CodexProvider.h"
#include "support/CodexHome.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::recordLine;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kib = 1024;

template <class Given, class Expected>
using Table = std::vector<std::pair<Given, Expected>>;

Date at(double seconds) {
  return test::codexEpoch + Seconds{seconds};
}

std::optional<double> percent(const ProviderSnapshot& snapshot) {
  return snapshot.headlinePercent();
}

TEST(CodexPaths, FollowTheEnvironment) {
  for (const auto& [variable, sessions] :
       Table<std::optional<std::string>, const char*>{{{}, "/u/.codex/sessions"},
                                                      {"", "/u/.codex/sessions"},
                                                      {"~", "/u/sessions"},
                                                      {"~/c/", "/u/c/sessions"},
                                                      {"/", "/sessions"},
                                                      {"/opt/~c", "/opt/~c/sessions"}}) {
    Surroundings surroundings{.home = "/u"};
    if (variable) {
      surroundings.environment["CODEX_HOME"] = *variable;
    }
    EXPECT_EQ(CodexPaths(surroundings).sessionsDir(), sessions);
  }
}

TEST(CodexProvider, TellsWhatItHas) {
  test::CodexHome home;
  CodexProvider provider = home.provider();
  EXPECT_EQ(provider.fetch(at(0)),
            (ProviderSnapshot{.provider = ProviderID::codex,
                              .capturedAt = at(0),
                              .health = Health::notInstalled("Codex not detected")}));
  fs::create_directories(home.sessions());
  EXPECT_EQ(provider.fetch(at(0)).health, Health::reconnect("Run Codex once to see usage"));

  const auto file = home.write("2027/rollout-a.jsonl", recordLine(16, 10), 11);
  const ProviderSnapshot good = provider.fetch(at(20));
  EXPECT_EQ(percent(good), 16);
  EXPECT_EQ(good.capturedAt, at(10));
  EXPECT_EQ(good.health, Health::ok());
  EXPECT_EQ(provider.lastSource(), file);
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{.path = file, .mtime = at(11)}));

  // The content changes and the time does not: only a rescan looks.
  home.write("2027/rollout-a.jsonl", recordLine(17, 12), 11);
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

// A file of pieces: text, or so many bytes of a line of filler.
class Content {
 public:
  Content& operator<<(std::string_view text) {
    bytes_ += text;
    return *this;
  }
  Content& operator<<(std::size_t filler) {
    bytes_.append(filler - 1, 'x').append("\n");
    return *this;
  }
  operator std::string() const { return bytes_; }  // NOLINT(google-explicit-constructor)

 private:
  std::string bytes_;
};

TEST(CodexProvider, ReadsTheLastUsableLineOfATail) {
  const std::string one = recordLine(1, 0);
  const std::string two = recordLine(2, -50);
  const std::string_view twoOpen = std::string_view(two).substr(0, two.size() - 1);
  const std::string_view twoRest = std::string_view(two).substr(1);
  const std::string open(100'000, '[');
  const std::string close(100'000, ']');
  using namespace std::string_view_literals;
  test::CodexHome home;
  for (const auto& [what, content, percent] :
       std::vector<std::tuple<const char*, std::string, std::optional<double>>>{
           {"empty", "", {}},
           {"later line, earlier time", Content() << one << two, 2},
           {"no newline at the end", Content() << one << twoOpen, 2},
           {"still being written", Content() << one << two.substr(0, two.size() - 3), 1},
           {"empty lines, CRLF",
            Content() << one << "\n\n"
                      << twoOpen << "\r\n\n",
            2},
           {"mark elsewhere", Content() << one << "{\"a\":\"rate_limits\"}\nrate_limits\n", 1},
           {"no window", Content() << one << R"({"payload":{"rate_limits":{"primary":{}}}})", 1},
           {"too far from the end", Content() << one << 2048 * kib, {}},
           {"beyond the first step", Content() << 2048 * kib << one << 100 * kib, 1},
           {"across its start", Content() << 2048 * kib << one << 64 * kib - 20, 1},
           {"at its start", Content() << 2048 * kib << one << 64 * kib - one.size(), 1},
           {"a byte after", Content() << 2048 * kib << one << 64 * kib - one.size() - 1, 1},
           {"whole file in two steps", Content() << one << 100 * kib, 1},
           {"across the tail's start", Content() << 2048 * kib << one << 512 * kib - 20, {}},
           {"at the tail's start", Content() << 600 * kib << one << 512 * kib - one.size(), {}},
           {"300 KiB line", Content() << one << twoOpen << 300 * kib, 1},
           {"not UTF-8", Content() << one << "{\"x\":\"\xff\"," << twoRest, 1},
           {"NUL", Content() << one << "\0"sv << two, 1},
           {"nesting", Content() << one << R"({"rate_limits":)" << open, 1},
           {"nesting that ends", Content() << R"({"x":)" << open << close << "," << twoRest, 2},
           {"huge numbers", Content() << R"({"x":1e400,"y":9223372036854775808,)" << twoRest, 2}}) {
    const auto path = home.write("rollout-a.jsonl", content, 0);
    const auto found = lastRateLimits(path, at(0));
    EXPECT_EQ(found.has_value(), percent.has_value()) << what;
    if (found && percent) {
      EXPECT_EQ(percent, found->limits.renderableWindows().at(0).percent) << what;
      const auto offset = static_cast<std::size_t>(found->offset);
      EXPECT_THAT(content.substr(offset, content.find('\n', offset) - offset),
                  HasSubstr(std::to_string(*percent)))
          << what;
    }
  }
}

TEST(CodexProvider, ALineWithoutATimeHasTheFiles) {
  test::CodexHome home;
  std::string line = recordLine(3, 0);
  line.replace(line.find("20"), 4, "MMXX");
  home.write("rollout-a.jsonl", line, 77);
  EXPECT_EQ(home.provider().fetch(at(100)).capturedAt, at(77));
}

TEST(CodexProvider, ReadsNothingButRolloutFiles) {
  test::CodexHome home;
  home.write("a/rollout-a.jsonl", recordLine(5, 1), 1);
  for (const char* name : {"rollout-x.json", "session.jsonl", ".hidden/rollout-x.jsonl",
                           "rollout-d.jsonl/inside", "../elsewhere/2027/rollout-t.jsonl"}) {
    home.write(name, recordLine(99, 50), 60);
  }
  const std::string sessions = home.sessions();
  const std::string elsewhere = home.path() + "/.codex/elsewhere";
  fs::create_symlink(elsewhere + "/2027/rollout-t.jsonl", sessions + "/rollout-link.jsonl");
  fs::create_symlink(elsewhere, sessions + "/linked");
  fs::create_symlink("/dev/zero", sessions + "/rollout-zero.jsonl");
  ::mkfifo((sessions + "/rollout-fifo.jsonl").c_str(), 0600);

  CodexProvider provider = home.provider();
  EXPECT_EQ(provider.recentRolloutFiles(40).size(), 1);
  EXPECT_EQ(percent(provider.fetch(at(60))), 5);
  for (const std::string& path :
       {sessions + "/rollout-link.jsonl", sessions + "/rollout-zero.jsonl",
        sessions + "/rollout-fifo.jsonl", sessions + "/rollout-d.jsonl", sessions + "/gone.jsonl",
        sessions + "/linked/2027/rollout-t.jsonl", sessions + "/.hidden/rollout-x.jsonl",
        sessions + "/../elsewhere/2027/rollout-t.jsonl", elsewhere + "/2027/rollout-t.jsonl"}) {
    EXPECT_EQ(percent(provider.fetch({path}, at(60))), 5) << path;
  }
  for (const char* path : {"/rollout-link.jsonl", "/rollout-fifo.jsonl", "/rollout-d.jsonl"}) {
    EXPECT_FALSE(lastRateLimits(sessions + path, at(0))) << path;
  }
  EXPECT_FALSE(lastRateLimits("/dev/zero", at(0)));
}

TEST(CodexProvider, TheRootMayBeALink) {
  test::CodexHome home;
  home.write("sub/rollout-a.jsonl", recordLine(8, 1), 1);
  const std::string real = home.path() + "/real";
  fs::rename(home.sessions(), real);
  fs::create_symlink(real, home.sessions());
  EXPECT_EQ(newestRolloutFiles(home.sessions(), 40).rolloutFiles, 1);
  const auto changed = rolloutFileAt(home.sessions(), real + "/sub/rollout-a.jsonl");
  EXPECT_EQ(changed ? changed->path : "", home.sessions() + "/sub/rollout-a.jsonl");
}

TEST(CodexProvider, ListsTheNewestFirst) {
  test::CodexHome home;
  for (int i = 0; i < 50; ++i) {
    home.write("d" + std::to_string(i % 7) + "/rollout-" + std::to_string(i) + ".jsonl", "",
               i * 17 % 50);
  }
  std::vector<double> times;
  for (const RolloutFile& file : home.provider().recentRolloutFiles(40)) {
    times.push_back(secondsBetween(at(0), file.modified));
  }
  EXPECT_EQ(times.size(), 40);
  EXPECT_EQ(times.back(), 10);
  EXPECT_TRUE(std::ranges::is_sorted(times, std::greater<>()));
}

TEST(CodexProvider, HugeFilesAndDeepTreesAreBounded) {
  test::CodexHome home;
  std::string deep;
  for (int i = 0; i < 100; ++i) {
    deep += "d/";
  }
  home.write(deep + "rollout-deep.jsonl", "", 90);
  const auto sparse = home.write("rollout-sparse.jsonl", "", 80);
  fs::resize_file(sparse, 4UL << 30);
  test::setModified(sparse, 80);
  const RolloutListing listing = newestRolloutFiles(home.sessions(), 1);
  EXPECT_EQ(listing.newest.at(0).size, 4L << 30);
  EXPECT_EQ(listing.rolloutFiles, 1);
  EXPECT_EQ(listing.skipped, 1);
  EXPECT_FALSE(lastRateLimits(sparse, at(0)));
}

TEST(CodexProvider, TheLatestRecordWinsAndNoneOlderReplacesIt) {
  test::CodexHome home;
  home.write("rollout-a.jsonl", recordLine(1, 10), 100);
  const auto b = home.write("rollout-b.jsonl", recordLine(2, 90), 99);
  home.write("rollout-c.jsonl", recordLine(3, 95), 80);  // older than what b holds: not read
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
  test::CodexHome home;
  const auto a = home.write("a/rollout-a.jsonl", recordLine(1, 10), 10);
  const auto b = home.write("a/rollout-b.jsonl", recordLine(2, 5), 5);
  CodexProvider provider = home.provider();
  EXPECT_EQ(percent(provider.fetch({b}, at(20))), 1) << "the first read is a regular one";

  home.write("a/rollout-b.jsonl", recordLine(3, 15), 9);
  EXPECT_EQ(percent(provider.fetch({a, b}, at(20))), 3);
  EXPECT_EQ(provider.lastSource(), b);
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{.path = a, .mtime = at(10)}))
      << "b is the older file";

  home.write("a/rollout-b.jsonl", recordLine(4, 12), 9);
  EXPECT_EQ(percent(provider.fetch({b}, at(20))), 3) << "not newer";
  EXPECT_EQ(provider.fetch({b}, at(20000)).health, Health::stale("5h ago"));

  home.write("a/rollout-b.jsonl", recordLine(5, 22), 23);
  EXPECT_EQ(percent(provider.fetch({b, "/gone/rollout-x.jsonl"}, at(30))), 5);
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{.path = b, .mtime = at(23)}));
  EXPECT_EQ(percent(home.provider().lastGood().value_or(ProviderSnapshot{})), 5) << "cached";

  home.write("a/rollout-b.jsonl", "", 24);
  home.write("a/rollout-c.jsonl", recordLine(6, 25), 25);
  EXPECT_EQ(percent(provider.fetch({b}, at(30))), 6) << "no record there: a regular read";
}

TEST(CodexDump, TellsHowTheReadingCameAbout) {
  test::CodexHome home;
  home.write("rollout-a.jsonl", "{\"text\":\"private\"}\n" + recordLine(12.5, 10), 10);
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
  EXPECT_FALSE(fs::exists(home.path() + "/cache"));
  EXPECT_THAT(codexDump({.home = "/nowhere"}, at(0)), HasSubstr("\"Codex not detected\""));
}

// What the tool itself left behind, when those files are at hand: each home's name, and the
// account's true state as windows with their resets, plan and note.
Table<std::string, const char*> realHomes() {
  return {
      {"a_5h_weekly_ws", "5h 37 1795387304, Weekly 12 1795680104, Codex Plus"},
      {"a_5h_weekly_headers", "5h 37 1795387310, Weekly 12.5 1795680110"},
      {"b_weekly_only_primary", "Weekly 64 1795580115, Codex Free"},
      {"b_weekly_only_secondary", "Weekly 64 1795580121, Codex Business"},
      {"c_credits_balance",
       "5h 8 1795387326, Weekly 55 1795680126, Codex Pro, "
       "Rate resets available: 12.4 credits"},
      {"c_credits_unlimited",
       "5h 8 1795387332, Weekly 55 1795680132, Codex Pro, "
       "Rate resets available: unlimited credits"},
      {"c_credits_none", "5h 8 1795387338, Weekly 55 1795680138, Codex Pro"},
      {"d_multi_turn", "5h 30 1795387343, Weekly 6 1795680143, Codex Plus"},
      {"d_last_turn_null", "5h 20 1795387360, Weekly 5 1795680160, Codex Plus"},
      {"e_two_sessions", "5h 5 1795398170, Weekly 21 1795680170, Codex Plus"},
      {"e_older_file_resumed", "5h 61 1795387396, Weekly 22 1795680196, Codex Plus"},
      {"f_pct_zero", "5h 0 1795387430, Weekly 0 1795680230, Codex Plus"},
      {"f_pct_low_fraction", "5h 0.4 1795387430, Weekly 0.4 1795680230, Codex Plus"},
      {"f_pct_high_fraction", "5h 99.6 1795387430, Weekly 99.6 1795680230, Codex Plus"},
      {"f_pct_hundred", "5h 100 1795387430, Weekly 100 1795680230, Codex Plus"},
      {"g_none_ws", "Run Codex once to see usage"},
      {"g_none_headers", "Run Codex once to see usage"},
      {"i_limit_reached_429", "5h 100 1795387496, Weekly 45 1795680296"},
      // Before version 0.58 the tool told only the seconds to a reset.
      {"n_old_0_42_0", "5h 37, Weekly 12"},
      {"n_old_0_98_0",
       "5h 37 1795387568, Weekly 12 1795680368, Rate resets available: 12.4 credits"},
      {"n_old_0_125_0",
       "5h 37 1795387574, Weekly 12 1795680374, Rate resets available: 12.4 credits"},
      {"o_tui_two_turns", "5h 10 1795387590, Weekly 3 1795680390, Codex Plus"},
      {"p_long_tail", "5h 44 1795389431, Weekly 15 1795682231, Codex Plus"},
  };
}

std::string inShort(const ProviderSnapshot& snapshot) {
  std::ostringstream text;
  text.precision(12);
  const char* comma = "";
  for (const UsageWindow& window : snapshot.windows) {
    text << std::exchange(comma, ", ") << window.label << " " << window.percent;
    if (window.resetsAt) {
      text << " " << window.resetsAt->time_since_epoch().count();
    }
  }
  for (const auto& part : {snapshot.planLabel, snapshot.extraNote}) {
    if (part) {
      text << ", " << *part;
    }
  }
  text << snapshot.health.reason();
  return text.str();
}

// Copies a home with its modification times and reads it a second after the last of them.
ProviderSnapshot readRealHome(const fs::path& source) {
  const test::CodexHome home;
  std::ifstream times(source / "mtimes.tsv");
  std::string path;
  double time = 0;
  double newest = 0;
  while (times >> path >> time) {
    const fs::path target = fs::path(home.path()) / ".codex" / path;
    fs::create_directories(target.parent_path());
    fs::copy_file(source / path, target);
    test::setModified(target, secondsBetween(at(0), dateFromEpoch(time)));
    newest = std::max(newest, time);
  }
  return home.provider().fetch(dateFromEpoch(newest + 1));
}

TEST(CodexProvider, ReadsTheHomesOfTheRealTool) {
  const char* folder = std::getenv("MARIGOLD_CODEX_HOMES");  // NOLINT(concurrency-mt-unsafe)
  if (folder == nullptr || !fs::exists(folder)) {
    std::cout << "The real tool's homes are not here; its formats were tested by our own lines.\n";
    return;
  }
  const auto homes = realHomes();
  for (const auto& entry : fs::directory_iterator(folder)) {
    const auto known = std::ranges::find(homes, entry.path().filename().string(),
                                         &std::pair<std::string, const char*>::first);
    if (entry.is_directory()) {
      ASSERT_NE(known, homes.end()) << entry.path();
      EXPECT_EQ(inShort(readRealHome(entry.path())), known->second) << entry.path();
    }
  }
}

}  // namespace
}  // namespace marigold
