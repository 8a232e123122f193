#include <benchmark/benchmark.h>

#include "claude/ClaudeUsage.h"

namespace marigold::bench {
namespace {

// An answer of the usual size, decoded and made a reading.
void usageAnswer(benchmark::State& state) {
  const std::string scoped =
      R"({"kind":"weekly_scoped","group":"weekly","percent":42.5,"severity":"normal",)"
      R"("resets_at":"2026-06-16T00:00:00.000Z","scope":{"model":{"id":null,)"
      R"("display_name":"Fable 5"},"surface":null},"is_active":true})";
  const std::string body =
      R"({"five_hour":{"utilization":10.0,"resets_at":"2026-06-14T20:00:00.000Z"},)"
      R"("seven_day":{"utilization":15.0,"resets_at":"2026-06-16T00:00:00Z"},)"
      R"("seven_day_opus":null,"seven_day_sonnet":{"utilization":1.0,"resets_at":null},)"
      R"("extra_usage":{"is_enabled":true,"monthly_limit":1000,"used_credits":266.0,)"
      R"("utilization":26.6,"currency":"USD"},"limits":[)" +
      scoped + "," + scoped + "," + scoped + "]}";
  const Date now = dateFromEpoch(1781271642.0);
  for ([[maybe_unused]] auto _ : state) {
    const auto usage = ClaudeUsage::decode(body);
    if (!usage || usage->snapshot(now, "max").windows.size() != 4) {
      state.SkipWithError("the answer was not read");
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}
BENCHMARK(usageAnswer)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marigold::bench
