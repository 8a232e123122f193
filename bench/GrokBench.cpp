#include <array>
#include <span>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "Floors.h"
#include "Ratios.h"
#include "support/GrokHome.h"

namespace marigold::bench {
namespace {

constexpr std::array<std::string_view, 3> needles{GrokBillingLine::billingMsg,
                                                  GrokActivityLine::inferenceDoneMsg,
                                                  GrokActivityLine::rateLimitedKind};

// A log of hours of work in which nothing is told: all of the budget is read and searched.
void fullScan(benchmark::State& state) {
  const test::GrokHome home;
  std::string log;
  for (int i = 0; log.size() < GrokLogScan::searchBudgetBytes + 1; ++i) {
    log += test::logLine("shell.turn.tool_call_started", i,
                         R"({"tool_name":"read_file","path":"src/billing/mod.rs","text":")" +
                             std::string(static_cast<std::size_t>(i % 7) * 100, 'x') + "\"}");
  }
  home.write(log);
  const auto file = BoundedFile::open(home.log);
  const int descriptor = ::open(home.log.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<char> buffer(GrokLogScan::searchBudgetBytes);
  measureRatio(
      state, "full scan of a log to a read and a search for each of its three marks", 1.5,
      [&] { return bareSearch(descriptor, buffer, needles); },
      [&] { return GrokLogScan::scanBilling(*file, {}, {}, GrokLogScan::Limits{}, 0); });
  ::close(descriptor);
}
BENCHMARK(fullScan)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marigold::bench
