#include <gtest/gtest.h>

#include "codex/CodexRecords.h"
#include "support/Told.h"

namespace marigold {
namespace {

using test::at, test::told, test::toldInFull;

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
    EXPECT_EQ(toldInFull(reading(members + "," + weekly)), full) << members;
  }
  EXPECT_EQ(told(reading(weekly, 10810)), "Weekly 7 @10, ok");
  EXPECT_EQ(told(reading(weekly, 10811)), "Weekly 7 @10, 3h ago");
  EXPECT_EQ(dateFromEpoch(INT64_MAX), distantFuture) << "which resets may saturate at";
  const auto spoilt = CodexRolloutLine::decode(R"({"timestamp":12,"payload":[1]})");
  EXPECT_TRUE(spoilt && !spoilt->timestamp && !spoilt->payload);
  EXPECT_FALSE(CodexRolloutLine::decode("[]"));
}

TEST(CodexRecords, WindowsAreNamedByTheirLengthAndPlansByTheirType) {
  for (const auto& [minutes, name] : {std::pair(300, "5h"),
                                      {10080, "Weekly"},
                                      {20160, "14d"},
                                      {1440, "1d"},
                                      {59, "59m"},
                                      {-7, "1m"},
                                      {60, "1h"},
                                      {1500, "25h"},
                                      {90, "1h30m"},
                                      {1441, "24h1m"}}) {
    EXPECT_EQ(codexWindowLabel(minutes), name);
  }
  EXPECT_EQ(codexPlanLabel("ProLite"), "Pro Lite");
  EXPECT_EQ(codexPlanLabel("self_serve école ÉLITE 12TH a z"), "Self_Serve école Élite 12th A Z");
}

}  // namespace
}  // namespace marigold
