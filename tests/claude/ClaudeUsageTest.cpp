#include <gmock/gmock.h>

#include "claude/ClaudeUsage.h"
#include "claude/HTTPClassification.h"

namespace marigold {
namespace {

using namespace std::chrono_literals;
using Verdict = ClaudePayloadVerdict;

TEST(ClaudeUsage, ARequestHoldsTheTokenApart) {
  const HTTPRequest request = claudeUsageRequest(Secret("t"), "agent");
  EXPECT_EQ(request.bearerToken.expose(), "t");
  EXPECT_EQ(request.method + " " + request.url, "GET https://api.anthropic.com/api/oauth/usage");
  EXPECT_THAT(request.headers,
              testing::ElementsAre(testing::Pair("anthropic-beta", "oauth-2025-04-20"),
                                   testing::Pair("anthropic-version", "2023-06-01"),
                                   testing::Pair("User-Agent", "agent")));
}

TEST(ClaudeUsage, ClassifiesAStatus) {
  using Kind = HTTPClassification::Kind;
  for (const auto& [status, kind] :
       {std::pair(200, Kind::ok), std::pair(299, Kind::ok), std::pair(199, Kind::serverError),
        std::pair(302, Kind::serverError), std::pair(401, Kind::unauthorized),
        std::pair(402, Kind::serverError), std::pair(403, Kind::unauthorized),
        std::pair(429, Kind::throttled), std::pair(503, Kind::serverError)}) {
    const bool waits = kind == Kind::throttled || kind == Kind::serverError;
    EXPECT_EQ(classify(status, "30"),
              (HTTPClassification{kind, waits ? std::optional(30s) : std::nullopt}))
        << status;
  }
}

TEST(ClaudeUsage, ReadsAnAnswer) {
  const auto usage = ClaudeUsage::decode(
      R"({"five_hour":{"utilization":10.0,"resets_at":"2026-06-14T20:00:00.000Z"},)"
      R"("seven_day":{"utilization":15.0,"resets_at":"2026-06-16T00:00:00Z"},)"
      R"("seven_day_opus":null,"seven_day_sonnet":{"utilization":1.0,"resets_at":null},)"
      R"("tangelo":null,"iguana_necktie":null,"extra_usage":{"is_enabled":true,)"
      R"("monthly_limit":1000,"used_credits":266.0,"utilization":26.6,"currency":"USD"},"limits":[)"
      R"({"kind":"weekly_scoped","percent":42.5,"scope":{"model":{"display_name":"Fable 5"}}},)"
      R"({"kind":"weekly_scoped","percent":null,"scope":{"model":{"display_name":"Ghost"}}},)"
      R"("bogus",{"kind":"weekly_scoped","percent":12.0,"scope":null},)"
      R"({"kind":"weekly_scoped","percent":99.0,"scope":{"model":{"display_name":"SONNET"}}}]})");
  ASSERT_TRUE(usage.has_value());
  EXPECT_EQ(usage->limits.value().size(), 4U);
  const Date now = dateFromEpoch(1.7814e9);
  const ProviderSnapshot expected{.provider = ProviderID::claude,
                                  .windows = {{"5h", 10, dateFromEpoch(1781467200.0)},
                                              {"Weekly", 15, dateFromEpoch(1781568000.0)},
                                              {"Sonnet", 1, {}},
                                              {"Fable 5", 42.5, {}}},
                                  .capturedAt = now,
                                  .planLabel = "Claude Max",
                                  .extraNote = "Extra usage 27%"};
  EXPECT_EQ(usage->snapshot(now, "max"), expected);
  EXPECT_EQ(usage->snapshot(now, {}).planLabel, std::nullopt);
  EXPECT_EQ(usage->snapshot(now, "team").planLabel, "Claude Team");
  EXPECT_EQ(usage->snapshot(now, "enterprise plus").planLabel, "Claude Enterprise Plus");
}

TEST(ClaudeUsage, ABadFieldCostsThatFieldOnly) {
  const auto scoped = [](const std::string& percent, const std::string& kind = "weekly_scoped",
                         const std::string& name = "M") {
    return R"({"limits":[{"kind":")" + kind + R"(","percent":)" + percent +
           R"(,"scope":{"model":{"display_name":")" + name + R"("}}}]})";
  };
  const std::vector<std::tuple<std::string, Verdict, std::optional<double>>> cases = {
      {"{}", Verdict::unrecognized, {}},
      {R"({"error":{"type":"x"}})", Verdict::unrecognized, {}},
      {R"({"cinder_cove":null})", Verdict::noActiveWindows, {}},
      {R"({"five_hour":[],"limits":{}})", Verdict::noActiveWindows, {}},
      {R"({"five_hour":{"utilization":null}})", Verdict::noActiveWindows, {}},
      {R"({"five_hour":{"utilization":101.5}})", Verdict::rejectedValues, {}},
      {R"({"seven_day_opus":{"utilization":1e400}})", Verdict::rejectedValues, {}},
      {R"({"five_hour":{"utilization":1e400},"seven_day":{"utilization":"7"}})", Verdict::usable,
       7},
      {R"({"five_hour":{"utilization":-0.5,"resets_at":1e999}})", Verdict::usable, 0},
      {scoped("100.7"), Verdict::usable, 100},
      {scoped("true"), Verdict::rejectedValues, {}},
      {scoped("50", "Weekly_scoped"), Verdict::noActiveWindows, {}},
      {scoped("50", "weekly_scoped", ""), Verdict::noActiveWindows, {}}};
  for (const auto& [body, verdict, percent] : cases) {
    const auto usage = ClaudeUsage::decode(body);
    ASSERT_TRUE(usage.has_value()) << body;
    const ProviderSnapshot snapshot = usage->snapshot({}, {});
    EXPECT_EQ(snapshot.headlinePercent(), percent) << body;
    EXPECT_EQ(claudePayloadVerdict(snapshot.isUsable(), usage->recognizedEnvelope,
                                   usage->rejectedValue()),
              verdict)
        << body;
  }
  EXPECT_FALSE(ClaudeUsage::decode("[]"));
}

TEST(ClaudeUsage, NotesExtraUsageWithoutAmounts) {
  const std::vector<std::pair<const char*, std::optional<std::string>>> cases = {
      {R"("is_enabled":true,"used_credits":1)", "Extra usage on"},
      {R"("is_enabled":true,"used_credits":1,"utilization":"100.9")", "Extra usage 100%"},
      {R"("is_enabled":true,"used_credits":1,"utilization":200)", "Extra usage on"},
      {R"("is_enabled":true,"used_credits":0,"utilization":5)", {}},
      {R"("is_enabled":1,"used_credits":5)", {}}};
  for (const auto& [extra, note] : cases) {
    const auto usage = ClaudeUsage::decode(R"({"extra_usage":{)" + std::string(extra) + "}}");
    EXPECT_EQ(usage.value().snapshot({}, {}).extraNote, note) << extra;
  }
}

}  // namespace
}  // namespace marigold
