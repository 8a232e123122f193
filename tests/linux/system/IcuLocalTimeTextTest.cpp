#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "linux/system/IcuLocalTimeText.h"
#include "support/LocalTimeContract.h"

namespace marigold {
namespace {

constexpr Date friday{Seconds{1'781'270'000}};  // 2026-06-12 13:13:20 UTC

TEST(IcuLocalTimeText, FollowsTheLocale) {
  for (const auto& [locale, text] : test::fridayAfternoons) {
    EXPECT_EQ(IcuLocalTimeText(locale, "Europe/Berlin").weekdayAndTime(friday), text) << locale;
  }
  const std::string american = "Fri 3:13\u202FPM";
  for (const auto& [locale, text] :
       std::vector<std::pair<std::string, std::string>>{{"C.UTF-8", american},
                                                        {"de_DE@euro", "Fr., 15:13"},
                                                        {"sr_RS.UTF-8@latin", "pet 15:13"},
                                                        {std::string(4000, 'a'), american}}) {
    EXPECT_EQ(IcuLocalTimeText(locale, "Europe/Berlin").weekdayAndTime(friday), text) << locale;
  }
}

TEST(IcuLocalTimeText, FollowsTheSystemsZoneWhileRunning) {
  const IcuLocalTimeText local("de_DE.UTF-8");
  for (const auto& [zone, text] : {std::pair("AAA-5:30", "Fr., 18:43"), {"BBB+14", "Do., 23:13"}}) {
    ::setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): this test program has one thread
    EXPECT_EQ(local.weekdayAndTime(friday), text);
  }
  EXPECT_FALSE(local.weekdayAndTime(distantFuture).empty());
  ::unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace
}  // namespace marigold
