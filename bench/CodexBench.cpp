#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "Floors.h"
#include "Ratios.h"
#include "codex/CodexProvider.h"
#include "support/CodexHome.h"

namespace marigold::bench {
namespace {

constexpr Date now = test::at(20000);

// A year of heavy use: nothing has changed since the last read.
void unchangedRefresh(benchmark::State& state) {
  const test::CodexHome home;
  for (int i = 0; i < 10'000; ++i) {
    const int day = i % 365;
    home.write("2027/" + std::to_string(day / 31) + "/" + std::to_string(day % 31) +
                   "/rollout-2027-01-01T00-00-00-01a204fe-652e-7143-9ec7-" + std::to_string(i) +
                   ".jsonl",
               i == 9'999 ? test::recordLine(5, 9'999) : "{}\n", i);
  }
  CodexProvider provider = home.provider();
  if (!provider.fetch(now).isUsable()) {
    state.SkipWithError("no reading");
    return;
  }
  measureRatio(
      state, "unchanged refresh to a bare walk", 1.25,
      [root = home.sessions] { return bareWalk(root); }, [&] { return provider.fetch(now); });
}
BENCHMARK(unchangedRefresh)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(3);

// The first read of a long session whose record is followed by so many bytes of other lines.
void firstRead(benchmark::State& state) {
  const auto after = static_cast<std::size_t>(state.range(0));
  const test::CodexHome home;
  const std::string path = home.write("rollout-long.jsonl", "", 0);
  std::filesystem::resize_file(path, 100UL << 20);
  std::string lines = "\n";
  const std::string line =
      R"({"type":"response_item","payload":")" + std::string(2000, 'x') + "\"}\n";
  while (lines.size() < codexTailWindow - after) {
    lines += line;
  }
  lines += test::recordLine(5, 0);
  for (const std::size_t end = lines.size() + after; lines.size() + line.size() < end;) {
    lines += line;
  }
  std::ofstream(path, std::ios::binary | std::ios::app) << lines;

  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<char> buffer(codexTailWindow);
  measureRatio(
      state,
      "first read, " + std::to_string(after / 1024) + " KiB after the record, to read and search",
      2.0, [&] { return bareTailRead(descriptor, buffer, "rate_limits"); },
      [&] { return lastRateLimits(*BoundedFile::open(path), now).value().limits.primary; });
  ::close(descriptor);
}
BENCHMARK(firstRead)->Arg(2 << 10)->Arg(100 << 10)->Arg(500 << 10)->UseManualTime()->Unit(
    benchmark::kMicrosecond);

void winningLine(benchmark::State& state) {
  const std::string line =
      R"({"timestamp":"2026-11-22T20:42:07.480Z","ordinal":16,"type":"event_msg","payload":{"type":)"
      R"("token_count","info":{"total_token_usage":{"input_tokens":4237,"cached_input_tokens":1024,)"
      R"("output_tokens":11,"total_tokens":4248},"last_token_usage":{"input_tokens":4237,)"
      R"("cached_input_tokens":1024,"output_tokens":11,"total_tokens":4248},)"
      R"("model_context_window":258400},"rate_limits":{"limit_id":"codex","limit_name":null,)"
      R"("primary":{"used_percent":8.0,"window_minutes":300,"resets_at":1795387326},)"
      R"("secondary":{"used_percent":55.0,"window_minutes":10080,"resets_at":1795680126},)"
      R"("credits":{"has_credits":true,"unlimited":false,"balance":"12.40"},"plan_type":"pro"}}})";
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(CodexRolloutLine::decode(line));
  }
}
BENCHMARK(winningLine);

}  // namespace
}  // namespace marigold::bench
