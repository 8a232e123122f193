// Whatever a log holds and however it is cut into chunks, a scan finds what walking all of its
// lines finds, and so does one that extends a memo of the log when it was shorter. Input: the
// chunk, the longest line, the budget, the length of the shorter log in 64ths, the bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>

#include "support/GrokHome.h"
#include "support/GrokReference.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marigold;
  static const test::GrokHome home;
  if (size < 4) {
    return 0;
  }
  const std::span input(data, size);
  const GrokProvider::Limits limits{.chunkSize = 1 + std::size_t{input[0]} * 2,
                                    .searchBudget = 1 + std::size_t{input[2]} * 16,
                                    .maxLine = std::size_t{input[1]} * 2};
  const auto rest = input.subspan(4);
  const std::string log(rest.begin(), rest.end());
  std::optional<GrokProvider::ScanMemo> memo;
  for (const std::string& content : {log.substr(0, log.size() * (input[3] % 64U) / 64), log}) {
    home.write(content);
    const auto file = BoundedFile::open(home.log);
    if (!file) {
      std::abort();
    }
    // Long after: a memo of an unchanged log must not stand in for a scan here.
    const Date now = test::at(memo ? 1000 : 0);
    auto [scan, renewed] = GrokProvider::memoizedScan(*file, test::at(0), memo, now, limits);
    if (test::places(scan) != test::places(test::reference(content, limits))) {
      std::abort();
    }
    memo = std::move(renewed);
  }
  return 0;
}
