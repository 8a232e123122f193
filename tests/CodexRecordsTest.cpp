#include <gmock/gmock.h>

#include "CodexRecords.h"
#include "LenientDecoding.h"

namespace marigold {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* sampleLine =
    R"({"timestamp":"2026-06-12T13:40:42.000Z","type":"event_msg","payload":{"type":"token_count",)"
    R"("rate_limits":{"limit_id":"codex","limit_name":null,)"
    R"("primary":{"used_percent":16.0,"window_minutes":300,"resets_at":1781273445},)"
    R"("secondary":{"used_percent":5.0,"window_minutes":10080,"resets_at":1781745034},)"
    R"("credits":null,"plan_type":"plus","rate_limit_reached_type":null}}})";

CodexRateLimits limits(const std::string& json) {
  const auto document = JsonDocument::parseObject(json);
  return CodexRateLimits::decode(document.value().root()).value();
}

TEST(CodexRecords, DecodesALineOfTheTool) {
  const auto line = CodexRolloutLine::decode(sampleLine);
  ASSERT_TRUE(line && line->payload && line->payload->rateLimits);
  EXPECT_EQ(line->timestamp, dateFromEpoch(1781271642.0));
  EXPECT_EQ(line->payload->rateLimits->limitId, "codex");
  const Date captured = *line->timestamp;
  const ProviderSnapshot expected{
      .provider = ProviderID::codex,
      .windows = {{.label = "5h", .percent = 16, .resetsAt = dateFromEpoch(1781273445.0)},
                  {.label = "Weekly", .percent = 5, .resetsAt = dateFromEpoch(1781745034.0)}},
      .capturedAt = captured,
      .health = Health::ok(),
      .planLabel = "Codex Plus",
      .extraNote = {}};
  const CodexRateLimits& record = *line->payload->rateLimits;
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10800}), expected);
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10801}),
            expected.withHealth(Health::stale("3h ago")));
}

TEST(CodexRecords, ABadFieldCostsThatFieldOnly) {
  const auto windows = [](const std::string& primary) {
    return limits(R"({"primary":)" + primary +
                  R"(,"secondary":{"used_percent":7,"window_minutes":10080}})")
        .renderableWindows();
  };
  const UsageWindow weekly{.label = "Weekly", .percent = 7, .resetsAt = {}};
  for (const char* bad :
       {"null", "[]", "5", R"({"used_percent":150,"window_minutes":300})",
        R"({"used_percent":null,"window_minutes":300})", R"({"used_percent":5})",
        R"({"used_percent":5,"window_minutes":0})", R"({"used_percent":5,"window_minutes":527041})",
        R"({"used_percent":5,"window_minutes":"300"})",
        R"({"used_percent":5,"window_minutes":0.5})",
        R"({"used_percent":1e400,"window_minutes":300})",
        R"({"used_percent":5,"window_minutes":9223372036854775808})"}) {
    EXPECT_THAT(windows(bad), ElementsAre(weekly)) << bad;
  }
  struct Good {
    const char* primary;
    UsageWindow window;
  };
  for (const Good& good : {
           Good{R"({"used_percent":"42","window_minutes":300,"resets_at":"soon"})", {"5h", 42, {}}},
           Good{R"({"used_percent":100.7,"window_minutes":527040})", {"366d", 100, {}}},
           Good{R"({"used_percent":5,"window_minutes":300,"resets_at":9223372036854775807})",
                {"5h", 5, distantFuture}},
           Good{R"({"used_percent":1,"used_percent":2,"window_minutes":300})", {"5h", 1, {}}},
       }) {
    EXPECT_THAT(windows(good.primary), ElementsAre(good.window, weekly)) << good.primary;
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
              ElementsAre(UsageWindow{"Weekly", 25, dateFromEpoch(1784507223.0)}));
  EXPECT_EQ(record.snapshot({}, {}).planLabel, "Codex Pro Lite");
  const auto empty = limits(R"({"primary":null,"credits":{},"plan_type":7})");
  EXPECT_FALSE(empty.carriesWindow());
  EXPECT_EQ(empty.snapshot({}, {}).planLabel, std::nullopt);
}

TEST(CodexRecords, WindowsAreNamedByTheirLength) {
  const std::pair<std::int64_t, const char*> names[] = {
      {300, "5h"}, {10080, "Weekly"}, {20160, "14d"}, {2880, "2d"},   {1440, "1d"},
      {45, "45m"}, {59, "59m"},       {0, "1m"},      {-7, "1m"},     {60, "1h"},
      {120, "2h"}, {1500, "25h"},     {90, "1h30m"},  {1441, "24h1m"}};
  for (const auto& [minutes, name] : names) {
    EXPECT_EQ(codexWindowLabel(minutes), name) << minutes;
  }
}

TEST(CodexRecords, PlansAreNamed) {
  const std::pair<const char*, const char*> names[] = {{"prolite", "Pro Lite"},
                                                       {"PLUS", "Plus"},
                                                       {"pro", "Pro"},
                                                       {"Team", "Team"},
                                                       {"business", "Business"},
                                                       {"free", "Free"},
                                                       {"enterprise", "Enterprise"},
                                                       {"edu", "Edu"},
                                                       {"k12 TEACHERS", "K12 Teachers"},
                                                       {"self_serve", "Self_Serve"},
                                                       {"", ""},
                                                       {"école ÉLITE plan", "école Élite Plan"}};
  for (const auto& [type, name] : names) {
    EXPECT_EQ(codexPlanLabel(type), name) << type;
  }
}

TEST(CodexRecords, CreditsAreNoted) {
  const std::pair<const char*, std::optional<std::string>> notes[] = {
      {"null", {}},
      {"{}", {}},
      {R"({"has_credits":false,"unlimited":false,"balance":5})", {}},
      {R"({"has_credits":1})", {}},
      {R"({"has_credits":false,"unlimited":true,"balance":-3})",
       "Rate resets available: unlimited credits"},
      {R"({"has_credits":true})", "Rate resets available"},
      {R"({"has_credits":true,"balance":-1})", "Rate resets available"},
      {R"({"has_credits":true,"balance":"inf"})", "Rate resets available"},
      {R"({"has_credits":true,"balance":9223372036854775807})", "Rate resets available"},
      {R"({"has_credits":true,"balance":9223372036854774784})",
       "Rate resets available: 9223372036854774784 credits"},
      {R"({"has_credits":true,"balance":2.5})", "Rate resets available: 2.5 credits"},
      {R"({"has_credits":true,"balance":3})", "Rate resets available: 3 credits"},
      {R"({"has_credits":true,"balance":-0.0})", "Rate resets available: 0 credits"},
      {R"({"has_credits":true,"balance":1})", "Rate resets available: 1 credits"},
      {R"({"has_credits":true,"balance":"12.40"})", "Rate resets available: 12.4 credits"},
      {R"({"has_credits":true,"balance":0.04})", "Rate resets available: 0.0 credits"}};
  for (const auto& [credits, note] : notes) {
    EXPECT_EQ(limits(R"({"credits":)" + std::string(credits) + "}").snapshot({}, {}).extraNote,
              note)
        << credits;
  }
}

}  // namespace
}  // namespace marigold
