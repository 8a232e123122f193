#include <gtest/gtest.h>

#include "grok/GrokRecords.h"
#include "support/Told.h"

namespace marigold {
namespace {

using test::at, test::told, test::toldInFull;

TEST(GrokRecords, ABadBillingFieldCostsThatFieldOnly) {
  const std::string whole =
      R"({"ts":"2027-01-15T08:00:00.074Z","msg":"billing: fetched credits config","ctx":{"config":)"
      R"({"creditUsagePercent":15.0,"currentPeriod":{"end":"2027-01-15T08:01:40.5+00:00"}},)"
      R"("subscriptionTier":"X Premium"}})";
  // A part of that line, what stands in its place, the reading.
  for (const auto& [part, other, full] :
       std::vector<std::tuple<const char*, const char*, const char*>>{
           {"", "", "Weekly 15 until 1800000100.5, Grok X Premium"},
           {"15.0", "null", "Grok X Premium"},
           {"15.0", "101.5", "Grok X Premium"},
           {"15.0", "\"42.5\"", "Weekly 42.5 until 1800000100.5, Grok X Premium"},
           {R"({"end":"2027-01-15T08:01:40.5+00:00"})", "[]", "Weekly 15, Grok X Premium"},
           {"2027-01-15T08:01:40.5+00:00", "soon", "Weekly 15, Grok X Premium"},
           {"\"X Premium\"", "{}", "Weekly 15 until 1800000100.5"},
           {R"("config":{)", R"("config":15,"x":{)", "Grok X Premium"},
           {R"("ctx":)", R"("ctx":7,"x":)", ""}}) {
    std::string text = whole;
    text.replace(text.find(part), std::string_view(part).size(), other);
    const auto line = GrokBillingLine::decode(text).value();
    EXPECT_TRUE(line.isBilling());
    EXPECT_EQ(line.ts, at(0.074));
    EXPECT_EQ(toldInFull(line.snapshot(at(0), at(0))), full) << text;
  }
  EXPECT_EQ(told(GrokBillingLine::decode(whole)->snapshot(at(0), at(10800))), "Weekly 15 @0, ok");
  EXPECT_EQ(told(GrokBillingLine::decode(whole)->snapshot(at(0), at(10801))),
            "Weekly 15 @0, 3h ago");
  const auto odd = GrokBillingLine::decode(R"({"msg":1,"ts":9})");
  EXPECT_TRUE(odd && !odd->isBilling() && !odd->ts);
  EXPECT_FALSE(GrokBillingLine::decode("[]") || GrokActivityLine::decode("{}}"));
}

TEST(GrokRecords, TellsAQuotaExhaustionAndItsWindow) {
  const std::string spent = "\"error\":\"subscription: usage-exhausted";
  const std::string note = ", Grok X, included usage spent";
  const std::string day = "24h 100 until 1800086400" + note + ", rolling 24h window";
  // What a refused request's line holds, and the reading where it tells an exhaustion.
  for (const auto& [ctx, full] : std::vector<std::pair<std::string, std::string>>{
           {spent + ", Rolling 24-hour window\"", day},
           {spent + " rolling 744-hours\"",
            "744h 100 until 1802678400" + note + ", rolling 744h window"},
           {spent + "\",\"message\":null", "Quota 100" + note},
           {spent + " rolling 0-hour\"", "Quota 100" + note},
           {spent + " rolling 745-hour\"", "Quota 100" + note},
           {spent + " rolling -hour\"", "Quota 100" + note},
           {spent + " rolling x, rolling 24-hour\"", "Quota 100" + note},
           {spent + "\",\"message\":\"rolling 1-hour\"", ""},
           {R"("message":"subscription: rolling 5-hour")", ""},
           {R"("message":"Subscription: usage-exhausted")", ""},
           {spent + "\",\"kind\":\"x\"", ""}}) {
    const std::string kind =
        ctx.find("kind") == std::string::npos ? R"(,"kind":"rate_limited")" : "";
    const auto line = GrokActivityLine::decode("{\"ctx\":{" + ctx + kind + "}}").value();
    EXPECT_EQ(line.isQuotaExhaustion(), !full.empty()) << ctx;
    const auto reading = line.exhaustedSnapshot("X", at(0), at(10801));
    EXPECT_TRUE(full.empty() || toldInFull(reading) == full) << toldInFull(reading);
    EXPECT_EQ(reading.health, Health::stale("3h ago"));
  }
}

}  // namespace
}  // namespace marigold
