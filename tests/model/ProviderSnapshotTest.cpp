#include <limits>

#include <gtest/gtest.h>

#include "model/ProviderSnapshot.h"

namespace marigold {
namespace {

TEST(ProviderSnapshot, QueriesItsWindows) {
  const ProviderSnapshot snapshot{.windows = {{"5h", 42.4, Date{Seconds{60}}},
                                              {"Weekly", 62.5, Date{Seconds{30}}},
                                              {"Opus", 62.5, {}},
                                              {"Weekly", 50, Date{Seconds{90}}}}};
  EXPECT_EQ(snapshot.headlineWindow(), &snapshot.windows[1]) << "the first of equals";
  EXPECT_EQ(snapshot.percent("Weekly"), 62.5) << "the first of that label";
  EXPECT_EQ(snapshot.soonestReset(), Date{Seconds{30}});
  EXPECT_EQ(snapshot.accessibilityDescription("Weekly"), "Claude Weekly 63%") << "half away from 0";
  EXPECT_EQ(snapshot.accessibilityDescription("30d"), "Claude 63%");

  const ProviderSnapshot empty{.provider = ProviderID::grok};
  EXPECT_EQ(empty.headlinePercent(), std::nullopt);
  EXPECT_EQ(empty.accessibilityDescription("5h"), "Grok: no data");
}

TEST(ProviderSnapshot, IsRestoredAsStaleAndColouredUpToADay) {
  const ProviderSnapshot snapshot{
      .windows = {{"5h", 1, {}}}, .planLabel = "Plus", .extraNote = "note"};
  const Date captured = snapshot.capturedAt;
  EXPECT_EQ(snapshot.cached().restored(captured + Seconds{7200}),
            snapshot.withHealth(Health::stale("2h ago")));
  EXPECT_TRUE(snapshot.isColorTrustworthy(captured + Seconds{86400}));
  EXPECT_FALSE(snapshot.isColorTrustworthy(captured + Seconds{86401}));
}

TEST(ReadingAge, CountsWholeUnitsAndIsCurrentBelowFiveMinutes) {
  using Limits = std::numeric_limits<double>;
  for (const auto& [seconds, phrase] : {std::pair(-5.0, "just now"),
                                        {Limits::quiet_NaN(), "just now"},
                                        {89.9, "just now"},
                                        {90, "1m ago"},
                                        {299.9, "4m ago"},
                                        {300, "5m ago"},
                                        {3599, "59m ago"},
                                        {3600, "1h ago"},
                                        {86399, "23h ago"},
                                        {86400, "1d ago"}}) {
    const double age = seconds > 0 ? seconds : 0;
    EXPECT_EQ(readingAge(seconds), (ReadingAge{age, phrase, age < 300}));
  }
  EXPECT_TRUE(relativeAge(Limits::infinity()).ends_with("d ago"));
}

}  // namespace
}  // namespace marigold
