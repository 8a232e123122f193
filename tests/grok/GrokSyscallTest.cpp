// Counts what a read of the Grok tool's log asks of the system.

#include <gmock/gmock.h>

#include "support/CountedCalls.h"
#include "support/GrokHome.h"

namespace marigold {
namespace {

using test::at, test::made, testing::ElementsAre;

TEST(GrokSyscalls, DependOnWhatIsNew) {
  constexpr std::size_t stamp = GrokLogScan::stampBytes;
  constexpr std::size_t chunk = GrokLogScan::chunkBytes;
  const std::string kib = std::string(1023, 'x') + "\n";
  const test::GrokHome home;
  home.append("");
  std::filesystem::resize_file(home.log, 1UL << 30U);  // sparse
  home.append("\n" + test::billingLine("15", 10) + kib);
  GrokProvider provider = home.provider();
  const auto callsAt = [&](double now) {
    made = {};
    EXPECT_TRUE(provider.fetch(at(now)).isUsable());
    return std::vector{made["open"], made["pread"], made["bytes"]};
  };
  EXPECT_THAT(callsAt(20), ElementsAre(1, 2, chunk + stamp));
  EXPECT_THAT(callsAt(30), ElementsAre(1, 0, 0)) << "nothing changed";
  EXPECT_THAT(callsAt(139.9), ElementsAre(1, 0, 0));
  EXPECT_THAT(callsAt(140), ElementsAre(1, 2, chunk + stamp)) << "the memo is too old";
  EXPECT_THAT(callsAt(130), ElementsAre(1, 2, chunk + stamp)) << "the clock went backwards";
  home.append(kib);
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 1024 + 2 * stamp)) << "a KiB is new";
  home.append("half");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 4 + 2 * stamp));
  home.append(" a line\n");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, 12 + 2 * stamp)) << "its begin is read again";
  const std::string billing = test::billingLine("16", 150);
  home.append(billing);
  EXPECT_THAT(callsAt(200), ElementsAre(1, 3, billing.size() + 2 * stamp));
  std::filesystem::resize_file(home.log, 2UL << 30U);
  home.append("\n");
  EXPECT_THAT(callsAt(200), ElementsAre(1, 9, GrokLogScan::searchBudgetBytes + stamp));
}

}  // namespace
}  // namespace marigold
