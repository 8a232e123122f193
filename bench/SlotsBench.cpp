#include <benchmark/benchmark.h>

#include "bar/MenuBarSegments.h"
#include "support/SimplePorts.h"

namespace marigold::bench {
namespace {

// What each redraw resolves: three providers, two windows each, every text on.
void everySlot(benchmark::State& state) {
  const Date now = dateFromEpoch(1781271642.0);
  const test::FixedLocalTimeText times;
  const MenuBarTextPrefs prefs{
      .percent = MenuBarTextScope::both, .reset = MenuBarTextScope::both, .labels = true};
  std::vector<ProviderSnapshot> snapshots;
  snapshots.reserve(allCases<ProviderID>.size());
  for (const ProviderID provider : allCases<ProviderID>) {
    snapshots.push_back(
        {.provider = provider,
         .windows = {{.label = "5h", .percent = 37, .resetsAt = now + Seconds{7000}},
                     {.label = "Weekly", .percent = 92, .resetsAt = now + Seconds{300'000}}},
         .capturedAt = now - Seconds{30}});
  }
  for ([[maybe_unused]] auto _ : state) {
    for (const ProviderSnapshot& snapshot : snapshots) {
      const MenuGauge gauge =
          resolveMenuGauge(snapshot, MenuBarWindowKind::automatic, prefs, MenuBarStyle::rings,
                           ProviderAccent::automatic, RingColorMode::byWindow, now);
      const MenuBarSegment segment = menuBarSegment(gauge, MenuBarStyle::rings, now);
      benchmark::DoNotOptimize(menuSegmentLines(gauge, segment, now, times));
    }
  }
}
BENCHMARK(everySlot)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marigold::bench
