#include <regex>

#include <gmock/gmock.h>

#include "app/CodexDump.h"
#include "base/AsciiText.h"
#include "support/CodexHome.h"
#include "support/TemporaryDirectory.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::at, test::recordLine, test::told, test::toldInFull;

// The reading of a line of the tool with these members among its limits.
ProviderSnapshot reading(const std::string& members, double now = 10) {
  const auto line = CodexRolloutLine::decode(
      R"({"timestamp":"2027-01-15T08:00:10.000Z","type":"event_msg","payload":{"type":"token_count",)"
      R"("rate_limits":{"limit_id":"codex",)" +
      members + R"(,"rate_limit_reached_type":null}}})");
  const auto limits = line.value().payload.value().rateLimits.value();
  EXPECT_EQ(limits.limitId, "codex");
  return limits.snapshot(line->timestamp.value(), at(now));
}

TEST(CodexRecords, ABadFieldCostsThatFieldOnly) {
  const std::string weekly = R"("secondary":{"used_percent":7,"window_minutes":10080})";
  for (const auto& [members, full] : std::vector<std::pair<std::string, std::string>>{
           {R"("primary":{"used_percent":16.0,"window_minutes":300,"resets_at":1800000100},)"
            R"("plan_type":"plus","credits":null)",
            "5h 16 until 1800000100, Weekly 7, Codex Plus"},
           {R"("primary":[],"plan_type":7)", "Weekly 7"},
           {R"("primary":{"used_percent":150,"window_minutes":300})", "Weekly 7"},
           {R"("primary":{"used_percent":5})", "Weekly 7"},
           {R"("primary":{"used_percent":5,"window_minutes":0})", "Weekly 7"},
           {R"("primary":{"used_percent":5,"window_minutes":527041})", "Weekly 7"},
           {R"("primary":{"used_percent":"42","window_minutes":527040,"resets_at":"soon"})",
            "366d 42, Weekly 7"},
           {R"("credits":{"has_credits":false,"balance":5})", "Weekly 7"},
           {R"("credits":{"has_credits":1,"unlimited":true})",
            "Weekly 7, Rate resets available: unlimited credits"},
           {R"("credits":{"has_credits":true,"balance":-1})", "Weekly 7, Rate resets available"},
           {R"("credits":{"has_credits":true,"balance":9223372036854775807})",
            "Weekly 7, Rate resets available"},
           {R"("credits":{"has_credits":true,"balance":-0.0})",
            "Weekly 7, Rate resets available: 0 credits"},
           {R"("credits":{"has_credits":true,"balance":"12.40"})",
            "Weekly 7, Rate resets available: 12.4 credits"}}) {
    EXPECT_EQ(toldInFull(reading(std::string(members).append(",").append(weekly))), full)
        << members;
  }
  EXPECT_EQ(told(reading(weekly, 10810)), "Weekly 7 @10, ok");
  EXPECT_EQ(told(reading(weekly, 10811)), "Weekly 7 @10, 3h ago");
  EXPECT_EQ(dateFromEpoch(INT64_MAX), distantFuture) << "which resets may saturate at";
  const auto spoilt = CodexRolloutLine::decode(R"({"timestamp":12,"payload":[1]})");
  EXPECT_TRUE(spoilt && !spoilt->timestamp && !spoilt->payload);
  EXPECT_FALSE(CodexRolloutLine::decode("[]"));
}

TEST(CodexRecords, WindowsAreNamedByTheirLengthAndPlansByTheirType) {
  using Row = std::pair<int, const char*>;
  for (const auto& [minutes, name] :
       {Row{300, "5h"}, Row{10080, "Weekly"}, Row{20160, "14d"}, Row{1440, "1d"}, Row{59, "59m"},
        Row{-7, "1m"}, Row{60, "1h"}, Row{1500, "25h"}, Row{90, "1h30m"}, Row{1441, "24h1m"}}) {
    EXPECT_EQ(codexWindowLabel(minutes), name);
  }
  EXPECT_EQ(codexPlanLabel("ProLite"), "Pro Lite");
  EXPECT_EQ(codexPlanLabel("self_serve école ÉLITE 12TH a ze"), "Self_Serve école Élite 12th A Ze");
}

class CodexProviderTest : public testing::Test {
 protected:
  // What a regular read at that time answers.
  std::string answer(double now) { return told(provider.fetch(at(now))); }

  test::CodexHome home;
  CodexProvider provider = home.provider();
};

TEST_F(CodexProviderTest, TellsWhatItHas) {
  EXPECT_EQ(provider.fetch(at(0)).health, Health::notInstalled("Codex not detected"));
  fs::create_directories(home.sessions);
  EXPECT_EQ(provider.fetch(at(0)).health, Health::reconnect("Run Codex once to see usage"));
  const auto file = home.write("2027/rollout-a.jsonl", recordLine(16, 10), 11);
  const ProviderSnapshot good = provider.fetch(at(20));
  EXPECT_EQ(told(good), "5h 16 @10, ok");
  EXPECT_EQ(provider.lastProcessed(), (CodexProvider::Processed{file, at(11), 142}));
  home.write("2027/rollout-a.jsonl", recordLine(17, 12), 11);
  EXPECT_EQ(provider.fetch(at(20000)), good.withHealth(Health::stale("5h ago")));
  EXPECT_EQ(told(provider.rescan(at(20))), "5h 17 @12, ok") << "only a rescan looks";
  home.write("2027/rollout-a.jsonl", recordLine(18, 13), 11.001);
  EXPECT_EQ(answer(20), "5h 18 @13, ok") << "within a second";
  const auto newer = home.write("rollout-b.jsonl", recordLine(19, 14), 14);
  home.write("rollout-c.jsonl", recordLine(20, 15), 15);
  EXPECT_EQ(told(home.provider().fetch({newer}, at(20))), "5h 20 @15, ok")
      << "restored but never read: all files";
  for (const char* name : {"2027/rollout-a.jsonl", "rollout-b.jsonl", "rollout-c.jsonl"}) {
    home.write(name, "{}\n", 13);
  }
  EXPECT_EQ(answer(20), "5h 18 @13, no recent usage");
  EXPECT_FALSE(provider.lastProcessed() || provider.lastSource());
  home.write("rollout-c.jsonl", recordLine(21, 16), 16);
  EXPECT_EQ(answer(20), "5h 21 @16, ok");
  fs::remove_all(home.sessions);
  EXPECT_EQ(answer(20), "5h 21 @16, Codex not running");
  EXPECT_FALSE(provider.lastProcessed() || provider.lastSource());
  provider.forgetCache();
  EXPECT_EQ(provider.fetch(at(20)).health, Health::notInstalled("Codex not detected"));
  EXPECT_EQ(home.provider().lastGood(), std::nullopt);
  home.write("rollout-b.jsonl", recordLine(18, 99).replace(2, 9, "otherwise"), 14);
  EXPECT_EQ(answer(20), "5h 18 @14, ok") << "the file's time for want of the line's";
  provider.forgetCache();
  EXPECT_FALSE(provider.lastProcessed() || provider.lastSource());
}

TEST_F(CodexProviderTest, ReadsTheLastUsableLineOfATail) {
  constexpr std::size_t tail = codexTailWindow;
  constexpr std::size_t step = 65536;
  const auto pad = [](std::size_t bytes) { return std::string(bytes - 1, ' ') + "\n"; };
  const std::string one = recordLine(1, 0);
  const std::string two = recordLine(2, -50);
  const std::string open = two.substr(0, two.size() - 1);
  const std::string deep = R"({"x":)" + std::string(100'000, '[') + std::string(100'000, ']') + ",";
  const std::vector<std::tuple<const char*, std::string, std::optional<double>>> cases = {
      {"the later line, not the later time", one + two, 2},
      {"no newline at the end", "_\n" + one + open, 2},
      {"still being written", one + two.substr(0, two.size() - 3), 1},
      {"CRLF and empty lines", one + open + "\r\n\n\n", 2},
      {"mark in other lines", one + R"({"a":"rate_limits"})", 1},
      {"no window", one + R"({"payload":{"rate_limits":{"primary":null}}})" + "\n", 1},
      {"across the first step", pad(tail) + one + pad(step - 20), 1},
      {"step begins at the line", pad(tail) + one + pad(step - one.size()), 1},
      {"step begins at a newline", pad(tail) + one + pad(step - one.size() - 1), 1},
      {"whole file in two steps", one + pad(2 * step), 1},
      {"tail begins inside the line", pad(tail) + one + pad(tail - 20), {}},
      {"tail begins at what may be a part", pad(tail) + one + pad(tail - one.size()), {}},
      {"a line of 256 KiB", one + open + pad(codexLongestLine - open.size() + 1), 2},
      {"of 256 KiB and a byte", one + open + pad(codexLongestLine - open.size() + 2), 1},
      {"not UTF-8", one + "{\"x\":\"\xff\"," + two.substr(1), 1},
      {"NUL", one + std::string(1, '\0') + two, 1},
      {"nesting", one + deep + two.substr(1), 2}};
  for (const auto& [what, content, percent] : cases) {
    const auto file = BoundedFile::open(home.write("rollout-a.jsonl", content, 0));
    const auto found = lastRateLimits(*file, at(0));
    EXPECT_EQ(found ? found->limits.primary->usedPercent : std::nullopt, percent) << what;
  }
}

TEST_F(CodexProviderTest, ReadsNothingButRolloutFiles) {
  const test::TemporaryDirectory elsewhere;
  const std::string target = elsewhere.write("rollout-t.jsonl", recordLine(99, 50));
  std::set<std::string> others{target, home.sessions + "/linked/rollout-t.jsonl"};
  for (const char* name : {"session.jsonl", "rollout-x.json", ".rollout-x.jsonl",
                           ".hidden/rollout-x.jsonl", "rollout-d.jsonl/inside.txt"}) {
    others.insert(home.write(name, recordLine(99, 50), 60));
  }
  fs::create_symlink(elsewhere.path(), home.sessions + "/linked");
  fs::create_symlink(target, *others.insert(home.sessions + "/rollout-link.jsonl").first);
  ASSERT_EQ(::mkfifo(others.insert(home.sessions + "/rollout-fifo.jsonl").first->c_str(), 0600), 0);
  EXPECT_THAT(home.recentRolloutFiles(), testing::IsEmpty());
  home.write("a/rollout-a.jsonl", recordLine(5, 1), 1);
  EXPECT_EQ(provider.fetch(at(60)).headlinePercent(), 5);
  home.write("a/rollout-a.jsonl", recordLine(6, 2), 1);  // which a regular read does not see
  others.insert({home.sessions + "//a/rollout-a.jsonl", home.sessions + "/./a/rollout-a.jsonl"});
  EXPECT_EQ(provider.fetch(others, at(60)).headlinePercent(), 5) << *provider.lastSource();
}

TEST_F(CodexProviderTest, TheLatestRecordOfAllFilesWins) {
  home.write("rollout-a.jsonl", recordLine(1, 10), 100);
  home.write("rollout-b.jsonl", recordLine(2, 90), 99);
  home.write("rollout-c.jsonl", recordLine(3, 95), 90);
  home.write("rollout-d.jsonl", recordLine(4, 99), 89);
  EXPECT_EQ(told(home.provider().fetch(at(200))), "5h 3 @95, ok") << "d was last written before";
  home.write("rollout-c.jsonl", recordLine(3, 90), 90);
  home.provider().forgetCache();
  EXPECT_EQ(told(home.provider().fetch(at(200))), "5h 2 @90, ok") << "the first of equals";
  std::vector<std::string> walked;
  std::string deep;
  for (int i = 0; i < 200; ++i) {
    deep += "d/";
  }
  home.write(deep + "rollout-deep.jsonl", "", 400);
  home.write("rollout-future.jsonl", "", 1000);
  for (int i = 0; i < 20; ++i) {
    home.write("same/rollout-" + std::to_string(i) + ".jsonl", "", 300);
  }
  for (const auto& entry : fs::directory_iterator(home.sessions + "/same")) {
    walked.push_back("same/" + entry.path().filename().string());
  }
  walked.insert(walked.begin(), deep + "rollout-deep.jsonl");
  walked.insert(walked.end(), {"rollout-a.jsonl", "rollout-b.jsonl", "rollout-c.jsonl",
                               "rollout-d.jsonl", "rollout-future.jsonl"});
  EXPECT_EQ(home.recentRolloutFiles(699), walked) << "of one time, in the order of the walk";
  walked.pop_back();
  walked.insert(walked.begin(), "rollout-future.jsonl");
  walked.resize(12);
  EXPECT_EQ(home.recentRolloutFiles(700, 12), walked) << "the future has come";
}

// What becomes of the files, then what a regular read and one of these files answer.
TEST_F(CodexProviderTest, AnOlderReadingReplacesANewerOneInNoWay) {
  const auto a = home.write("a/rollout-a.jsonl", recordLine(1, 10), 10);
  const auto b = home.write("rollout-b.jsonl", recordLine(2, 20), 20);
  EXPECT_EQ(answer(30), "5h 2 @20, ok");
  const std::string away = home.home.path() + "/away";
  const std::vector<std::function<void()>> losses = {
      [&] { fs::rename(b, away); }, [&] { home.write("rollout-b.jsonl", recordLine(3, 15), 40); },
      [&] { home.write("rollout-b.jsonl", "", 41); },
      [&] {
        fs::permissions(home.home.write("codex/sessions/rollout-b.jsonl", ""), fs::perms::none);
      }};
  for (const auto& lose : losses) {
    lose();
    test::asOrdinaryUser([&] {
      EXPECT_EQ(told(provider.rescan(at(11000))), "5h 2 @20, 3h ago");
      EXPECT_EQ(told(provider.fetch({a, b}, at(50))), "5h 2 @20, ok");
      EXPECT_EQ(told(home.provider().fetch(at(50))), "5h 2 @20, ok") << "nor on the disk";
    });
  }
  fs::remove_all(home.sessions + "/a");
  fs::remove(b);
  EXPECT_EQ(answer(60), "5h 2 @20, no recent usage");
  std::string resets = recordLine(4, 25);
  home.write("rollout-c.jsonl",
             resets.insert(resets.find(R"(,"window_min)"), R"(,"resets_at":1800000100)"), 25);
  EXPECT_EQ(answer(60), "5h 4 @25, ok");
  home.write("rollout-c.jsonl", recordLine(5, 24), 26);
  EXPECT_EQ(answer(99), "5h 4 @25, ok");
  EXPECT_EQ(told(provider.rescan(at(100))), "5h 5 @24, ok") << "its windows have reset";
}

TEST_F(CodexProviderTest, AFileWrittenUnderAWrongClockHidesNone) {
  home.write("rollout-future.jsonl", recordLine(9, 5000), 5000);
  EXPECT_EQ(answer(10), "5h 9 @5000, ok") << "there is no other";
  const auto a = home.write("rollout-a.jsonl", recordLine(1, 10), 10);
  EXPECT_EQ(told(provider.fetch({a}, at(20))), "5h 1 @10, ok");
  home.write("rollout-b.jsonl", recordLine(2, 30), 30);
  EXPECT_EQ(answer(40), "5h 2 @30, ok") << "it is the newest";
  EXPECT_EQ(provider.lastProcessed().value().path, home.sessions + "/rollout-b.jsonl");
  home.write("rollout-future.jsonl", recordLine(8, 50), 6000);
  EXPECT_EQ(told(provider.rescan(at(60))), "5h 8 @50, ok") << "only the file's time is wrong";
  home.write("rollout-b.jsonl", recordLine(3, 361), 61);
  EXPECT_EQ(answer(60), "5h 8 @50, ok");
  EXPECT_EQ(told(provider.rescan(at(61))), "5h 3 @361, ok") << "300 s ahead";
}

TEST_F(CodexProviderTest, ReadsWhatChanged) {
  const auto a = home.write("rollout-a.jsonl", recordLine(1, 10), 10);
  const auto b = home.write("b/rollout-b.jsonl", recordLine(2, 5), 5);
  const std::string real = home.home.path() + "/real";  // the root may be a link
  fs::rename(home.sessions, real);
  fs::create_symlink(real, home.sessions);
  EXPECT_EQ(provider.fetch({b}, at(20)).headlinePercent(), 1) << "first a regular read";
  home.write("b/rollout-b.jsonl", recordLine(3, 15), 9);
  EXPECT_EQ(provider.fetch({a, real + "/b/rollout-b.jsonl"}, at(20)).headlinePercent(), 3);
  EXPECT_EQ(provider.lastSource(), b);
  EXPECT_EQ(provider.lastProcessed().value().path, a) << "b is the older file";
  home.write("b/rollout-b.jsonl", recordLine(4, 12), 9);
  EXPECT_EQ(provider.fetch({b}, at(20000)).headlinePercent(), 3) << "not newer";
  home.write("b/rollout-b.jsonl", recordLine(5, 22), 23);
  EXPECT_EQ(provider.fetch({b, "/gone/rollout-x.jsonl"}, at(30)).headlinePercent(), 5);
  EXPECT_EQ(provider.lastProcessed().value().path, b);
  EXPECT_EQ(home.provider().lastGood().value().capturedAt, at(22));
  std::set<std::string> many;
  for (int i = 0; i < 60; ++i) {
    many.insert(home.write("rollout-" + std::to_string(i) + ".jsonl", "{}\n", 50));
  }
  many.insert(home.write("rollout-last.jsonl", recordLine(6, 30), 30));
  EXPECT_EQ(told(provider.fetch(many, at(60))), "5h 6 @30, ok") << "the last of more than 40";
  home.write("b/rollout-b.jsonl", "", 24);
  home.write("rollout-c.jsonl", recordLine(7, 61), 61);
  EXPECT_EQ(told(provider.fetch({b}, at(62))), "5h 7 @61, ok") << "no record there: a regular read";
}

TEST(CodexDump, TellsHowTheReadingCameAbout) {
  const test::CodexHome home;
  home.write("rollout-a.jsonl", "{\"text\":\"private\"}\n" + recordLine(12.5, 10), 10);
  home.write("rollout-b\n\u00e9\xff.jsonl", "{}\n", 20);
  home.write("rollout-c.jsonl", "{}\n", 5);
  fs::permissions(home.write("rollout-d.jsonl", "{}\n", 19), fs::perms::none);
  std::string dump;
  test::asOrdinaryUser([&] { dump = codexDump(home.surroundings, at(60)); });
  EXPECT_EQ(std::regex_replace(dump, std::regex(home.home.path()), "~"),
            R"(Codex reading at 2027-01-15T08:01:00Z
home: ~/codex
sessions: ~/codex/sessions
directories: 1 read, 0 could not be read
rollout files: 4 found, the newest 4 considered, 2 read
  rollout-b?é?.jsonl
    written 2027-01-15T08:00:20Z (just now), 3 bytes; no usable record in its last 524288 bytes
  rollout-d.jsonl
    written 2027-01-15T08:00:19Z (just now), 3 bytes; could not be read
  rollout-a.jsonl  <- the reading, the latest record found
    written 2027-01-15T08:00:10Z (just now), 161 bytes; record of 2027-01-15T08:00:10Z at byte 19
  rollout-c.jsonl
    written 2027-01-15T08:00:05Z (just now), 3 bytes; not opened: older than the best record
reading:
  5h: 12.5% used, resets at a time not told
  captured: 2027-01-15T08:00:10Z (just now)
  plan: Codex Plus
  note: none
  health: ok
cached reading: none
)");
  EXPECT_FALSE(fs::exists(home.home.path() + "/cache"));
}

TEST(CodexProvider, ReadsTheHomesOfTheRealTool) {
  const char* folder = std::getenv("MARIGOLD_CODEX_HOMES");  // NOLINT(concurrency-mt-unsafe)
  std::ifstream index(fs::path(folder == nullptr ? "" : folder) / "INDEX.txt");
  std::cout << (index ? "" : "the real tool's homes are not here: only our own lines were read\n");
  int seen = 0;
  // What each holds: "name: 5h 37% used resets 1795387304; weekly 12% used; plan plus".
  for (std::string truth; std::getline(index, truth);) {
    const test::CodexHome home;
    const std::string target = home.home.path() + "/codex/";
    fs::copy(fs::path(folder) / truth.substr(0, truth.find(':')), target,
             fs::copy_options::recursive);
    std::ifstream times(target + "mtimes.tsv");
    for (auto [path, time] = std::pair(std::string(), 0.0); times >> path >> time;) {
      test::setModified(target + path, dateFromEpoch(time));
    }
    const ProviderSnapshot reading = home.provider().fetch(dateFromEpoch(1795383000.0));
    EXPECT_EQ(reading.isUsable(), !truth.contains("no data")) << truth;
    std::smatch fact;
    for (const UsageWindow& window : reading.windows) {
      std::ostringstream words;
      words << '(' << lowercased(window.label) << "|both windows) " << window.percent
            << R"(% used( \(\d+% left\))?( resets (\d+))?)";
      seen += std::regex_search(truth, fact, std::regex(words.str())) ? 1 : 0;
      EXPECT_TRUE(!fact[4].matched || dateFromEpoch(std::stod(fact[4])) == window.resetsAt)
          << truth;
    }
    EXPECT_TRUE(!std::regex_search(truth, fact, std::regex("plan ([a-z]+)$")) ||
                lowercased(reading.planLabel.value()) == "codex " + fact.str(1))
        << truth;
  }
  EXPECT_TRUE(!index.is_open() || seen == 38) << seen;
}

}  // namespace
}  // namespace marigold
