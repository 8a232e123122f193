#include <gmock/gmock.h>

#include "base/JsonDocument.h"
#include "codex/CodexRecords.h"

namespace marigold {
namespace {

CodexRateLimits limits(const std::string& json) {
  return CodexRateLimits::decode(JsonDocument::parseObject(json).value().root()).value();
}

TEST(CodexRecords, DecodesALineOfTheTool) {
  const auto line = CodexRolloutLine::decode(
      R"({"timestamp":"2026-06-12T13:40:42.000Z","type":"event_msg","payload":{"type":"token_count",)"
      R"("rate_limits":{"limit_id":"codex",)"
      R"("primary":{"used_percent":16.0,"window_minutes":300,"resets_at":1781273445},)"
      R"("secondary":{"used_percent":5.0,"window_minutes":10080,"resets_at":1781745034},)"
      R"("credits":null,"plan_type":"plus","rate_limit_reached_type":null}}})");
  const CodexRateLimits record = line.value().payload.value().rateLimits.value();
  EXPECT_EQ(record.limitId, "codex");
  const Date captured = dateFromEpoch(1781271642.0);
  EXPECT_EQ(line->timestamp, captured);
  const ProviderSnapshot expected{.provider = ProviderID::codex,
                                  .windows = {{"5h", 16, dateFromEpoch(1781273445.0)},
                                              {"Weekly", 5, dateFromEpoch(1781745034.0)}},
                                  .capturedAt = captured,
                                  .planLabel = "Codex Plus"};
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10800}), expected);
  EXPECT_EQ(record.snapshot(captured, captured + Seconds{10801}),
            expected.withHealth(Health::stale("3h ago")));
  const auto spoilt = CodexRolloutLine::decode(R"({"timestamp":12,"payload":[1]})");
  EXPECT_TRUE(spoilt && !spoilt->timestamp && !spoilt->payload);
  EXPECT_FALSE(CodexRolloutLine::decode("[]"));
}

TEST(CodexRecords, ABadFieldCostsThatFieldOnly) {
  const UsageWindow weekly{"Weekly", 7, {}};
  const std::vector<std::pair<const char*, std::vector<UsageWindow>>> cases = {
      {"[]", {weekly}},
      {R"({"used_percent":150,"window_minutes":300})", {weekly}},
      {R"({"used_percent":5})", {weekly}},
      {R"({"used_percent":5,"window_minutes":0})", {weekly}},
      {R"({"used_percent":5,"window_minutes":527041})", {weekly}},
      {R"({"used_percent":5,"window_minutes":9223372036854775808})", {weekly}},
      {R"({"used_percent":100.7,"window_minutes":527040})", {{"366d", 100, {}}, weekly}},
      {R"({"used_percent":"42","window_minutes":300,"resets_at":"soon"})",
       {{"5h", 42, {}}, weekly}},
      {R"({"used_percent":5,"window_minutes":300,"resets_at":9223372036854775807})",
       {{"5h", 5, distantFuture}, weekly}}};
  for (const auto& [primary, windows] : cases) {
    const std::string secondary = R"("secondary":{"used_percent":7,"window_minutes":10080})";
    const auto record = limits(R"({"primary":)" + std::string(primary) + "," + secondary + "}");
    EXPECT_EQ(record.renderableWindows(), windows) << primary;
  }
}

TEST(CodexRecords, WindowsAreNamedByTheirLength) {
  const std::vector<std::pair<std::int64_t, const char*>> names = {
      {300, "5h"}, {10080, "Weekly"}, {20160, "14d"}, {1440, "1d"},  {59, "59m"},
      {-7, "1m"},  {60, "1h"},        {1500, "25h"},  {90, "1h30m"}, {1441, "24h1m"}};
  for (const auto& [minutes, name] : names) {
    EXPECT_EQ(codexWindowLabel(minutes), name) << minutes;
  }
}

TEST(CodexRecords, PlansAndCreditsAreNamed) {
  EXPECT_EQ(limits(R"({"plan_type":7})").snapshot({}, {}).planLabel, std::nullopt);
  EXPECT_EQ(codexPlanLabel("ProLite"), "Pro Lite");
  EXPECT_EQ(codexPlanLabel("self_serve école ÉLITE 12TH"), "Self_Serve école Élite 12th");
  const std::vector<std::pair<const char*, std::optional<std::string>>> notes = {
      {R"("has_credits":false,"balance":5)", {}},
      {R"("has_credits":1,"unlimited":true)", "Rate resets available: unlimited credits"},
      {R"("has_credits":true,"balance":-1)", "Rate resets available"},
      {R"("has_credits":true,"balance":9223372036854775807)", "Rate resets available"},
      {R"("has_credits":true,"balance":-0.0)", "Rate resets available: 0 credits"},
      {R"("has_credits":true,"balance":"12.40")", "Rate resets available: 12.4 credits"}};
  for (const auto& [credits, note] : notes) {
    const auto record = limits(R"({"credits":{)" + std::string(credits) + "}}");
    EXPECT_EQ(record.snapshot({}, {}).extraNote, note) << credits;
  }
}

}  // namespace
}  // namespace marigold
