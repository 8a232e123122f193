#pragma once

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>

#include <benchmark/benchmark.h>

namespace marigold::bench {

/// Keeps a subject's cost in multiples of its floor for the summary; fails a "--check" run when it
/// is clearly over `budget`.
void report(benchmark::State& state, const std::string& name, double floorSeconds,
            double subjectSeconds, double budget);

/// Runs `floor` and `subject` in turn and reports the ratio of their fastest runs, which other work
/// on the machine disturbs least.
template <class Floor, class Subject>
void measureRatio(benchmark::State& state, const std::string& name, double budget,
                  const Floor& floor, const Subject& subject) {
  using Clock = std::chrono::steady_clock;
  const auto seconds = [](const auto& work) {
    const auto start = Clock::now();
    benchmark::DoNotOptimize(work());
    return std::chrono::duration<double>(Clock::now() - start).count();
  };
  double fastestFloor = std::numeric_limits<double>::infinity();
  double fastestSubject = fastestFloor;
  for ([[maybe_unused]] auto _ : state) {
    fastestFloor = std::min(fastestFloor, seconds(floor));
    const double time = seconds(subject);
    fastestSubject = std::min(fastestSubject, time);
    state.SetIterationTime(time);
  }
  report(state, name, fastestFloor, fastestSubject, budget);
}

}  // namespace marigold::bench
