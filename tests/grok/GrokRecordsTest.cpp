#include <gmock/gmock.h>

#include "grok/GrokRecords.h"

namespace marigold {
namespace {

const Date captured = dateFromEpoch(1.8e9);

GrokBillingLine billing(const std::string& ctx) {
  return GrokBillingLine::decode(R"({"msg":"billing: fetched credits config","ctx":)" + ctx + "}")
      .value();
}

GrokActivityLine refused(const std::string& ctx) {
  return GrokActivityLine::decode(R"({"ctx":{"kind":"rate_limited",)" + ctx + "}}").value();
}

TEST(GrokRecords, DecodesABillingLineOfTheTool) {
  const auto line = GrokBillingLine::decode(
      R"({"ts":"2026-07-12T12:17:02.074Z","msg":"billing: fetched credits config","ctx":{)"
      R"("config":{"creditUsagePercent":15.0,)"
      R"("currentPeriod":{"end":"2026-07-14T17:01:30.825368+00:00"}},)"
      R"("subscriptionTier":"X Premium"}})");
  ASSERT_TRUE(line && line->isBilling() && line->hasCreditPercent());
  EXPECT_EQ(line->ts, dateFromEpoch(1783858622.074));
  const ProviderSnapshot expected{.provider = ProviderID::grok,
                                  .windows = {{"Weekly", 15, dateFromEpoch(1784048490.825368)}},
                                  .capturedAt = captured,
                                  .planLabel = "Grok X Premium"};
  EXPECT_EQ(line->snapshot(captured, captured + Seconds{10800}), expected);
  EXPECT_EQ(line->snapshot(captured, captured + Seconds{10801}),
            expected.withHealth(Health::stale("3h ago")));
  for (const char* text : {"junk", "[]", "", "{}}"}) {
    EXPECT_FALSE(GrokBillingLine::decode(text) || GrokActivityLine::decode(text)) << text;
  }
}

TEST(GrokRecords, ABadBillingFieldCostsThatFieldOnly) {
  const std::vector<std::pair<const char*, std::vector<UsageWindow>>> cases = {
      {R"({"config":{"creditUsagePercent":null}})", {}},
      {R"({"config":{"creditUsagePercent":101.5}})", {}},
      {R"({"config":[15]})", {}},
      {"7", {}},
      {R"({"config":{"creditUsagePercent":"42.5","currentPeriod":[]}})", {{"Weekly", 42.5, {}}}},
      {R"({"config":{"creditUsagePercent":-0.5,"currentPeriod":{"end":"soon"}}})",
       {{"Weekly", 0, {}}}}};
  for (const auto& [ctx, windows] : cases) {
    EXPECT_EQ(billing(ctx).snapshot(captured, captured).windows, windows) << ctx;
  }
  const auto odd = GrokBillingLine::decode(R"({"msg":1,"ts":9,"ctx":{"subscriptionTier":{}}})");
  EXPECT_TRUE(odd && !odd->isBilling() && !odd->ts);
  EXPECT_EQ(odd->snapshot(captured, captured).planLabel, std::nullopt);
}

TEST(GrokRecords, TellsAQuotaExhaustionAndItsWindow) {
  const std::string spent = "\"error\":\"subscription: usage-exhausted";
  const std::vector<std::tuple<std::string, bool, std::optional<int>>> cases = {
      {spent + ", Rolling 24-hour window\"", true, 24},
      {spent + " rolling 744-hours\"", true, 744},
      {spent + "\",\"message\":null", true, {}},
      {spent + "\",\"message\":\"rolling 1-hour\"", false, 1},
      {R"("message":"subscription: rolling 5-hour")", false, 5},
      {R"("message":"Subscription: usage-exhausted")", false, {}},
      {spent + " rolling 0-hour\"", true, {}},
      {spent + " rolling 745-hour\"", true, {}},
      {spent + " rolling -hour\"", true, {}},
      {spent + " rolling x, rolling 24-hour\"", true, {}}};
  for (const auto& [ctx, exhausted, hours] : cases) {
    EXPECT_EQ(refused(ctx).isQuotaExhaustion(), exhausted) << ctx;
    EXPECT_EQ(refused(ctx).rollingWindowHours(), hours) << ctx;
  }
  const auto otherKind = GrokActivityLine::decode(
      R"({"msg":"shell.turn.inference_done","ctx":{"kind":"x",)" + spent + "\"}}");
  EXPECT_TRUE(otherKind && otherKind->isInferenceDone() && !otherKind->isQuotaExhaustion());

  const ProviderSnapshot rolling{.provider = ProviderID::grok,
                                 .windows = {{"24h", 100, captured + Seconds{86400}}},
                                 .capturedAt = captured,
                                 .planLabel = "Grok X",
                                 .extraNote = "included usage spent, rolling 24h window"};
  EXPECT_EQ(refused(std::get<0>(cases[0])).exhaustedSnapshot("X", captured, captured), rolling);
  const ProviderSnapshot quota{.provider = ProviderID::grok,
                               .windows = {{"Quota", 100, {}}},
                               .capturedAt = captured,
                               .health = Health::stale("1d ago"),
                               .extraNote = "included usage spent"};
  EXPECT_EQ(refused(std::get<0>(cases[6])).exhaustedSnapshot({}, captured, captured + Seconds{9e4}),
            quota);
}

}  // namespace
}  // namespace marigold
