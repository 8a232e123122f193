#include <algorithm>
#include <chrono>
#include <vector>

#include <QtGui/QImage>

#include "MenuBarRender.h"
#include "Ratios.h"
#include "bar/Palette.h"
#include "linux/system/QtPainter.h"
#include "support/ToolkitApplication.h"

namespace marigold::bench {
namespace {

// A whole redraw of three providers with every text on, from their readings to the pixels of the
// mark at two pixels a point. A percentage moves each time, so that nothing can be remembered.
void redraw(benchmark::State& state) {
  const test::ToolkitApplication application;
  const QtTextMeasurer measurer;
  const Date now = dateFromEpoch(1781271642.0);
  const MenuBarTextPrefs prefs{
      .percent = MenuBarTextScope::both, .reset = MenuBarTextScope::both, .labels = true};
  int step = 0;
  const auto subject = [&] {
    MenuBarMark mark{.textColor = menuBarLabelColor(DarkMenuBar::yes, false)};
    for (const ProviderID provider : allCases<ProviderID>) {
      const ProviderSnapshot snapshot{
          .provider = provider,
          .windows = {{.label = "5h", .percent = 1.0 * step, .resetsAt = now + Seconds{7000}},
                      {.label = "Weekly", .percent = 92, .resetsAt = now + Seconds{300'000}}},
          .capturedAt = now - Seconds{30}};
      const MenuGauge gauge =
          resolveMenuGauge(snapshot, MenuBarWindowKind::automatic, prefs, MenuBarStyle::rings,
                           ProviderAccent::automatic, RingColorMode::byWindow, now);
      mark.segments.push_back(menuBarSegment(gauge, MenuBarStyle::rings, now));
    }
    step = (step + 1) % 100;
    return rasterize(MenuBarRender::markImage(mark, measurer), 2);
  };
  using Clock = std::chrono::steady_clock;
  std::vector<double> seconds;
  for ([[maybe_unused]] auto _ : state) {
    const auto start = Clock::now();
    benchmark::DoNotOptimize(subject());
    seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    state.SetIterationTime(seconds.back());
  }
  // The middle one: the first fill the caches of fonts.
  std::ranges::sort(seconds);
  report(state, "whole redraw, against 1 ms", 1e-3, seconds[seconds.size() / 2], 1);
}
BENCHMARK(redraw)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);

}  // namespace
}  // namespace marigold::bench
