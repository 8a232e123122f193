#include "Ratios.h"

#include <cstdio>
#include <iterator>
#include <map>
#include <string_view>
#include <vector>

namespace marigold::bench {

namespace {

// A busy machine must not fail a check; a lost optimisation costs more than this.
constexpr double clearMargin = 1.1;

struct Ratio {
  double ratio;
  double budget;
};

// By name, the last measurement of each: a benchmark may be run several times.
std::map<std::string, Ratio>& ratios() {
  static std::map<std::string, Ratio> all;
  return all;
}

bool printed() {
  bool kept = true;
  for (const auto& [name, measured] : ratios()) {
    std::printf("%s: ratio %.2f (budget %.2f)\n", name.c_str(), measured.ratio, measured.budget);
    kept = kept && measured.ratio <= measured.budget * clearMargin;
  }
  return kept;
}

}  // namespace

void report(benchmark::State& state, const std::string& name, double floorSeconds,
            double subjectSeconds, double budget) {
  const double ratio = subjectSeconds / floorSeconds;
  ratios().insert_or_assign(name, Ratio{.ratio = ratio, .budget = budget});
  state.counters["floor_us"] = floorSeconds * 1e6;
  state.counters["ratio"] = ratio;
}

}  // namespace marigold::bench

// With "--check" the exit status tells whether every ratio kept its budget.
int main(int count, char** arguments) {
  std::vector<char*> own(arguments, std::next(arguments, count));
  const bool check =
      std::erase_if(own, [](const char* text) { return std::string_view(text) == "--check"; }) > 0;
  count = static_cast<int>(own.size());
  benchmark::Initialize(&count, own.data());
  if (benchmark::ReportUnrecognizedArguments(count, own.data())) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return marigold::bench::printed() || !check ? 0 : 1;
}
