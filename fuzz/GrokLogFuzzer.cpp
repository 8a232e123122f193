// Whatever a log holds and however it is cut into chunks, a scan finds what walking all of its
// lines finds, and so does one that extends a memo of the log when it was shorter. Input: the
// chunk, the longest line, the budget, the length of the shorter log in 64ths, the bytes.

#include <optional>
#include <string>

#include "Fuzzed.h"
#include "support/GrokHome.h"

namespace marigold::fuzz {

void examine(std::string_view input) {
  static const test::GrokHome home;
  if (input.size() < 4) {
    return;
  }
  const GrokLogScan::Limits limits{.chunkSize = 1 + byteAt(input, 0) * 2,
                                   .searchBudget = 1 + byteAt(input, 2) * 16,
                                   .maxLine = byteAt(input, 1) * 2};
  const std::string log(input.substr(4));
  std::optional<GrokLogScan::ScanMemo> memo;
  for (const std::string& content :
       {log.substr(0, log.size() * (byteAt(input, 3) % 64) / 64), log}) {
    home.write(content);
    const auto file = BoundedFile::open(home.log);
    require(file.has_value());
    // Long after: a memo of an unchanged log must not stand in for a scan here.
    const Date now = test::at(memo ? 1000 : 0);
    auto [scan, renewed] = GrokLogScan::memoizedScan(*file, test::at(0), memo, now, limits);
    require(test::places(scan) == test::places(test::reference(content, limits, now)));
    memo = std::move(renewed);
  }
}

}  // namespace marigold::fuzz
