#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ProviderSnapshot.h"

namespace marigold {
namespace {

constexpr Date captured{Seconds{1'781'271'642}};
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

ProviderSnapshot snapshotOf(ProviderID provider, std::vector<UsageWindow> windows) {
  return {.provider = provider,
          .windows = std::move(windows),
          .capturedAt = captured,
          .planLabel = "Plus",
          .extraNote = "note"};
}

TEST(ProviderSnapshot, QueriesItsWindows) {
  const auto snapshot = snapshotOf(ProviderID::claude, {{"5h", 42.4, captured + Seconds{60}},
                                                        {"Weekly", 62.5, captured + Seconds{30}},
                                                        {"Opus", 62.5, std::nullopt},
                                                        {"Weekly", 50, captured + Seconds{90}}});
  EXPECT_EQ(snapshot.headlineWindow(), &snapshot.windows[1]) << "the first of equals";
  EXPECT_EQ(snapshot.headlinePercent(), 62.5);
  EXPECT_EQ(snapshot.percent("Weekly"), 62.5) << "the first of that label";
  EXPECT_EQ(snapshot.percent("weekly"), std::nullopt);
  EXPECT_EQ(snapshot.soonestReset(), captured + Seconds{30});
  EXPECT_EQ(snapshot.accessibilityDescription("5h"), "Claude 5h 42%");
  EXPECT_EQ(snapshot.accessibilityDescription("Weekly"), "Claude Weekly 63%") << "half away from 0";
  EXPECT_EQ(snapshot.accessibilityDescription("30d"), "Claude 63%");

  const auto empty = snapshotOf(ProviderID::grok, {});
  EXPECT_FALSE(empty.isUsable() || empty.rendersGauge());
  EXPECT_EQ(empty.headlinePercent(), std::nullopt);
  EXPECT_EQ(empty.soonestReset(), std::nullopt);
  EXPECT_EQ(empty.accessibilityDescription("5h"), "Grok: no data");
}

TEST(ProviderSnapshot, OnlyAWithheldReadingDrawsNoGauge) {
  const auto good = snapshotOf(ProviderID::claude, {{"5h", 1, {}}});
  for (const Health& health :
       {Health::stale("old"), Health::reconnect("sign in"), Health::rateLimited({}),
        Health::rateLimited(captured), Health::serverError({}), Health::ok(),
        Health::notInstalled("no"), Health::turnedOff()}) {
    const bool withheld =
        health.kind() == Health::Kind::notInstalled || health.kind() == Health::Kind::turnedOff;
    EXPECT_EQ(good.withHealth(health).rendersGauge(), !withheld);
    EXPECT_EQ(healthWithholdsReading(health), withheld);
    EXPECT_EQ(good.withHealth(health) == good, health == Health::ok());
    EXPECT_EQ(health == Health::rateLimited({}),
              health.kind() == Health::Kind::rateLimited && !health.until().has_value());
  }
  EXPECT_FALSE(healthWithholdsReading(std::nullopt));
}

TEST(ProviderSnapshot, IsRestoredAsStaleAndColouredUpToADay) {
  const auto snapshot = snapshotOf(ProviderID::codex, {{"5h", 1, captured}});
  EXPECT_EQ(snapshot.cached().restored(captured + Seconds{7200}),
            snapshot.withHealth(Health::stale("2h ago")));
  EXPECT_TRUE(snapshot.isColorTrustworthy(captured + Seconds{86400}));
  EXPECT_FALSE(snapshot.isColorTrustworthy(captured + Seconds{86401}));
}

TEST(ReadingAge, CountsWholeUnitsAndIsCurrentBelowFiveMinutes) {
  for (const auto& [seconds, phrase] : {std::pair(-5.0, "just now"),
                                        {notANumber, "just now"},
                                        {89.9, "just now"},
                                        {90, "1m ago"},
                                        {299.9, "4m ago"},
                                        {300, "5m ago"},
                                        {3599, "59m ago"},
                                        {3600, "1h ago"},
                                        {86399, "23h ago"},
                                        {86400, "1d ago"},
                                        {864000, "10d ago"}}) {
    EXPECT_EQ(relativeAge(seconds), phrase);
    const double age = seconds > 0 ? seconds : 0;
    EXPECT_EQ(readingAge(seconds), (ReadingAge{age, phrase, age < 300}));
  }
  EXPECT_THAT(relativeAge(std::numeric_limits<double>::infinity()), testing::EndsWith("d ago"));
}

}  // namespace
}  // namespace marigold
