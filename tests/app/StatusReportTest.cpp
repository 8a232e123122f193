#include <array>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "app/StatusReport.h"
#include "support/SimplePorts.h"

namespace marigold {
namespace {

constexpr Date now{Seconds{1'800'000'000}};  // 2027-01-15T08:00:00Z, a Friday

ProviderSnapshot reading(ProviderID provider, std::vector<UsageWindow> windows, double age = 0,
                         Health health = Health::ok()) {
  return {.provider = provider,
          .windows = std::move(windows),
          .capturedAt = now - Seconds{age},
          .health = std::move(health)};
}
UsageWindow five(double percent) {
  return {.label = "5h", .percent = percent, .resetsAt = now + Seconds{7500}};
}
UsageWindow weekly(double percent) {
  return {.label = "Weekly", .percent = percent};
}

StatusReport report(const std::vector<ProviderSnapshot>& readings,
                    const std::vector<DefaultsChange>& chosen = {}, Date at = now) {
  test::MemoryDefaults defaults(chosen);
  const Preferences preferences(defaults);
  return statusReport(readings, preferences, at, test::FixedLocalTimeText());
}

TEST(StatusReportTest, TellsWhatTheMarkShows) {
  using enum ProviderID;
  struct Row {
    std::vector<ProviderSnapshot> readings;
    std::vector<DefaultsChange> chosen;
    std::string lines;
    std::string shortLine;
    std::string json;  // a part of it
  };
  const auto both = reading(codex, {five(37.5), weekly(90)}, 120);
  for (const Row& row : {
           Row{{},
               {},
               "Marigold: no data yet",
               "",
               R"("class":"none","percentage":null,"providers":[])"},
           Row{{reading(claude, {five(95), weekly(3)}), both},
               {},
               "Claude: 5h 95% used, updated just now; Weekly 3% used, updated just now\n"
               "Codex: 5h 38% used, updated 2m ago; Weekly 90% used, updated 2m ago",
               "Claude 95% | Codex 38%",
               R"("class":"red","percentage":95,)"},
           Row{{both},
               {{"menuBarLabels", true},
                {"percentWindows.codex", "both"},
                {"resetWindows.codex", "both"}},
               "Codex: 5h 38% used, updated 2m ago, resets in 2h 5m; "
               "Weekly 90% used, updated 2m ago",
               "Codex 5h 38% 2h05m wk 90%",
               R"("class":"red","percentage":90,"providers":[{"provider":"codex","name":"Codex",)"
               R"("shown":true,"text":"5h 38% 2h05m wk 90%")"},
           // A text stands for the gauge.
           Row{{both},
               {{"percentWindows.codex", "off"}, {"menuBarStyle", "pills"}},
               "Codex: 5h 38% used, updated 2m ago",
               "Codex 38%",
               R"("class":"green","percentage":38,)"},
           Row{{reading(claude, {}, 0, Health::notInstalled("Claude Code not detected")),
                reading(codex, {five(75)}, 7200, Health::stale("5m ago"))},
               {},
               "Claude: Claude Code not detected\nCodex: 5h was 75% used, data 2h ago",
               "Codex 75%",
               R"("health":"stale","reason":"2h ago")"},
           Row{{reading(claude, {five(75)}, 0, Health::turnedOff())},
               {},
               "Claude: usage reading is off",
               "",
               R"("health":"turnedOff","reason":null,"until":null,"plan":null,"note":null,)"
               R"("capturedAt":null,"age":null,"windows":[])"},
           Row{{reading(codex, {five(95)}, 100'000)},
               {},
               "Codex: last reading 5h 95% used, 1d ago",
               "Codex 1d",
               R"("class":"none","percentage":null,)"},
           Row{{reading(codex, {{.label = "5h", .percent = 9, .resetsAt = now}})},
               {},
               "Codex: 5h window reset, no new reading yet",
               "",
               R"("resetsAt":"2027-01-15T08:00:00Z")"},
           Row{{both},
               {{"menubar.codex", false}},
               "Marigold: no providers shown in the menu bar. Enable one in the popover.",
               "",
               R"("shown":false,"text":"","health":"ok")"},
           Row{{reading(claude, {five(70)}, 0, Health::serverError(now + Seconds{60}))},
               {},
               "Claude: 5h 70% used, server error, data just now",
               "Claude 70%",
               R"("class":"amber","percentage":70,"providers":[{"provider":"claude",)"
               R"("name":"Claude","shown":true,"text":"70%","health":"serverError",)"
               R"("reason":null,"until":"2027-01-15T08:01:00Z",)"},
       }) {
    std::vector<DefaultsChange> chosen = row.chosen;
    chosen.emplace_back("perProviderMigrated", true);
    for (const char* const name : {"menubar.claude", "menubar.codex"}) {
      chosen.insert(chosen.begin(), {name, true});
    }
    const StatusReport told = report(row.readings, chosen);
    EXPECT_EQ(statusText(told, StatusForm::lines), row.lines + "\n");
    EXPECT_EQ(statusText(told, StatusForm::shortLine), row.shortLine + "\n");
    EXPECT_THAT(statusText(told, StatusForm::json), testing::HasSubstr(row.json)) << row.lines;
  }
}

TEST(StatusReportTest, FiltersTextsFromOutside) {
  ProviderSnapshot hostile = reading(ProviderID::codex, {{.label = "a\x1b[2J\n\"", .percent = 80}},
                                     60, Health::reconnect("b\r\xff"));
  hostile.planLabel = std::string("c\xe2") + "\x80\xae";
  hostile.extraNote = "d\x07";
  const StatusReport told = report({hostile});
  EXPECT_EQ(statusText(told, StatusForm::lines), "Codex: a?[2J?\" 80% used, b??, data just now\n");
  EXPECT_EQ(statusText(told, StatusForm::json),
            R"({"version":1,"text":"Codex 80%","tooltip":"Codex: a?[2J?\" 80% used, b??, )"
            R"(data just now","class":"amber","percentage":80,"providers":[{"provider":"codex",)"
            R"("name":"Codex","shown":true,"text":"80%","health":"reconnect","reason":"b??",)"
            R"("until":null,"plan":"c?","note":"d?","capturedAt":"2027-01-15T07:59:00Z","age":60,)"
            R"("windows":[{"label":"a?[2J?\"","percent":80.0,"resetsAt":null}]}]})"
            "\n");
}

TEST(StatusReportTest, NewsAreWhatChangesBesidesAges) {
  using enum ProviderID;
  struct Row {
    std::vector<ProviderSnapshot> readings;
    double later = 0;
    std::array<std::string, 3> news;  // of the JSON: its first percentage
  };
  const Health stale = Health::stale("2h ago");
  const ProviderSnapshot codexReading = reading(codex, {five(40)}, 400);
  std::array<StatusNews, 3> followers{StatusNews(StatusForm::lines),
                                      StatusNews(StatusForm::shortLine),
                                      StatusNews(StatusForm::json)};
  for (const Row& row : {
           Row{{reading(claude, {five(30)}, 7200, stale), codexReading},
               0,
               {"Claude: 5h was 30% used, data 2h ago\nCodex: 5h was 40% used, 6m ago\n",
                "Claude 30% | Codex 40%\n", "30.0"}},
           Row{{reading(claude, {five(30)}, 7200, Health::stale("3h ago")), codexReading},
               3600,
               {}},
           Row{{reading(claude, {five(30), {.label = "Opus", .percent = 1}}, 7200, stale),
                codexReading},
               3600,
               {"", "", "30.0"}},
           Row{{reading(claude, {five(31)}), codexReading},
               0,
               {"Claude: 5h 31% used, updated just now\n", "Claude 31% | Codex 40%\n", "31.0"}},
           Row{{}, 0, {"Marigold: no data yet\n", "\n", ""}},
       }) {
    const StatusReport told = report(row.readings, {}, now + Seconds{row.later});
    EXPECT_EQ(followers[0].next(told), row.news[0]);
    EXPECT_EQ(followers[1].next(told), row.news[1]);
    const std::string json = followers[2].next(told);
    std::smatch percent;
    const bool found = std::regex_search(json, percent, std::regex(R"("percent":([0-9.]+))"));
    EXPECT_EQ(found ? percent.str(1) : "", row.news[2]) << json;
  }
}

TEST(StatusReportTest, EveryMemberIsDocumented) {
  std::ifstream file(MARIGOLD_STATUS_DOCUMENT);
  const std::string document{std::istreambuf_iterator<char>(file), {}};
  const std::string json =
      statusText(report({reading(ProviderID::codex, {five(1)})}), StatusForm::json);
  const std::regex member(R"rx("(\w+)":)rx");
  std::set<std::string> members;
  for (std::sregex_iterator found(json.begin(), json.end(), member), end; found != end; ++found) {
    members.insert((*found)[1]);
    EXPECT_THAT(document, testing::HasSubstr("| `" + found->str(1) + "` |"));
  }
  EXPECT_EQ(members.size(), 20U);
}

}  // namespace
}  // namespace marigold
