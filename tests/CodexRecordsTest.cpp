#include <gmock/gmock.h>

#include "CodexRecords.h"
#include "LenientDecoding.h"

namespace marigold {
namespace {

using testing::ElementsAre;

template <class Given, class Expected>
using Table = std::vector<std::pair<Given, Expected>>;

CodexRateLimits limits(std::string_view json) {
  const auto document = JsonDocument::parseObject(json);
  EXPECT_TRUE(document) << json;
  return document ? CodexRateLimits::decode(document->root()).value_or(CodexRateLimits{})
                  : CodexRateLimits{};
}

UsageWindow window(std::string label, double percent, std::optional<Date> resetsAt = {}) {
  return {.label = std::move(label), .percent = percent, .resetsAt = resetsAt};
}

TEST(CodexRecords, DecodesALineOfTheTool) {
  const auto decoded = CodexRolloutLine::decode(
      R"({"timestamp":"2026-06-12T13:40:42.000Z","type":"event_msg","payload":{"type":"token_count",)"
      R"("rate_limits":{"limit_id":"codex","limit_name":null,)"
      R"("primary":{"used_percent":16.0,"window_minutes":300,"resets_at":1781273445},)"
      R"("secondary":{"used_percent":5.0,"window_minutes":10080,"resets_at":1781745034},)"
      R"("credits":null,"plan_type":"plus","rate_limit_reached_type":null}}})");
  const auto line = decoded.value_or(CodexRolloutLine{});
  const auto payload = line.payload.value_or(CodexRolloutLine::Payload{});
  const auto record = payload.rateLimits.value_or(CodexRateLimits{});
  EXPECT_EQ(record.limitId, "codex");
  const Date captured = dateFromEpoch(1781271642.0);
  EXPECT_EQ(line.timestamp, captured);
  const ProviderSnapshot expected{.provider = ProviderID::codex,
                                  .windows = {window("5h", 16, dateFromEpoch(1781273445.0)),
                                              window("Weekly", 5, dateFromEpoch(1781745034.0))},
                                  .capturedAt = captured,
                                  .health = Health::ok(),
                                  .planLabel = "Codex Plus",
                                  .extraNote = {}};
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10800}), expected);
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10801}),
            expected.withHealth(Health::stale("3h ago")));
}

TEST(CodexRecords, ABadFieldCostsThatFieldOnly) {
  const auto windows = [](const std::string& primary) {
    std::string json = R"({"primary":)" + primary;
    json += R"(,"secondary":{"used_percent":7,"window_minutes":10080}})";
    return limits(json).renderableWindows();
  };
  for (const char* bad :
       {"null", "[]", R"({"used_percent":150,"window_minutes":300})",
        R"({"used_percent":null,"window_minutes":300})", R"({"used_percent":5})",
        R"({"used_percent":5,"window_minutes":0})", R"({"used_percent":5,"window_minutes":527041})",
        R"({"used_percent":5,"window_minutes":"300"})",
        R"({"used_percent":1e400,"window_minutes":300})",
        R"({"used_percent":5,"window_minutes":9223372036854775808})"}) {
    EXPECT_THAT(windows(bad), ElementsAre(window("Weekly", 7))) << bad;
  }
  for (const auto& [primary, shown] : Table<const char*, UsageWindow>{
           {R"({"used_percent":"42","window_minutes":300,"resets_at":"soon"})", window("5h", 42)},
           {R"({"used_percent":100.7,"window_minutes":527040})", window("366d", 100)},
           {R"({"used_percent":5,"window_minutes":300,"resets_at":9223372036854775807})",
            window("5h", 5, distantFuture)},
           {R"({"used_percent":1,"used_percent":2,"window_minutes":300})", window("5h", 1)}}) {
    EXPECT_THAT(windows(primary), ElementsAre(shown, window("Weekly", 7))) << primary;
  }
  const auto spoilt = CodexRolloutLine::decode(R"({"timestamp":12,"payload":[1]})");
  EXPECT_TRUE(spoilt && !spoilt->timestamp && !spoilt->payload);
  for (const char* line : {"", "[]", "null", "{", R"({"payload":{}} x)"}) {
    EXPECT_FALSE(CodexRolloutLine::decode(line)) << line;
  }
}

TEST(CodexRecords, AWeeklyOnlyAccountHasOneWindow) {
  const auto record =
      limits(R"({"primary":{"used_percent":25.0,"window_minutes":10080,"resets_at":1784507223},)"
             R"("secondary":null,"plan_type":"prolite"})");
  EXPECT_THAT(record.renderableWindows(),
              ElementsAre(window("Weekly", 25, dateFromEpoch(1784507223.0))));
  EXPECT_EQ(record.snapshot({}, {}).planLabel, "Codex Pro Lite");
  EXPECT_EQ(limits(R"({"plan_type":7})").snapshot({}, {}).planLabel, std::nullopt);
}

TEST(CodexRecords, WindowsAreNamedByTheirLength) {
  for (const auto& [minutes, name] : Table<std::int64_t, const char*>{{300, "5h"},
                                                                      {10080, "Weekly"},
                                                                      {20160, "14d"},
                                                                      {1440, "1d"},
                                                                      {59, "59m"},
                                                                      {0, "1m"},
                                                                      {60, "1h"},
                                                                      {1500, "25h"},
                                                                      {90, "1h30m"},
                                                                      {1441, "24h1m"}}) {
    EXPECT_EQ(codexWindowLabel(minutes), name) << minutes;
  }
}

TEST(CodexRecords, PlansAreNamed) {
  for (const auto& [type, name] :
       Table<const char*, const char*>{{"ProLite", "Pro Lite"},
                                       {"PLUS", "Plus"},
                                       {"pro", "Pro"},
                                       {"team", "Team"},
                                       {"business", "Business"},
                                       {"free", "Free"},
                                       {"enterprise", "Enterprise"},
                                       {"edu", "Edu"},
                                       {"k12 TEACHERS", "K12 Teachers"},
                                       {"self_serve", "Self_Serve"},
                                       {"", ""},
                                       {"école ÉLITE plan", "école Élite Plan"}}) {
    EXPECT_EQ(codexPlanLabel(type), name) << type;
  }
}

TEST(CodexRecords, CreditsAreNoted) {
  const std::string note = "Rate resets available";
  for (const auto& [credits, expected] : Table<const char*, std::optional<std::string>>{
           {"null", {}},
           {R"({"has_credits":false,"unlimited":false,"balance":5})", {}},
           {R"({"has_credits":1})", {}},
           {R"({"has_credits":false,"unlimited":true,"balance":-3})", note + ": unlimited credits"},
           {R"({"has_credits":true})", note},
           {R"({"has_credits":true,"balance":-1})", note},
           {R"({"has_credits":true,"balance":"inf"})", note},
           {R"({"has_credits":true,"balance":9223372036854775807})", note},
           {R"({"has_credits":true,"balance":9223372036854774784})",
            note + ": 9223372036854774784 credits"},
           {R"({"has_credits":true,"balance":2.5})", note + ": 2.5 credits"},
           {R"({"has_credits":true,"balance":-0.0})", note + ": 0 credits"},
           {R"({"has_credits":true,"balance":1})", note + ": 1 credits"},
           {R"({"has_credits":true,"balance":"12.40"})", note + ": 12.4 credits"}}) {
    std::string json = R"({"credits":)";
    json.append(credits).append("}");
    EXPECT_EQ(limits(json).snapshot({}, {}).extraNote, expected) << credits;
  }
}

}  // namespace
}  // namespace marigold
