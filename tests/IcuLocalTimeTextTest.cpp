#include <cstdlib>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "IcuLocalTimeText.h"

namespace marigold {
namespace {

constexpr Date friday{Seconds{1'781'270'000}};  // 2026-06-12 13:13:20 UTC

TEST(IcuLocalTimeText, FollowsTheLocale) {
  const std::string american = "Fri 3:13\u202FPM";
  for (const auto& [locale, text] :
       std::vector<std::pair<std::string, std::string>>{{"en_US.UTF-8", american},
                                                        {"de_DE.UTF-8", "Fr., 15:13"},
                                                        {"de_DE@euro", "Fr., 15:13"},
                                                        {"sr_RS.UTF-8", "пет 15:13"},
                                                        {"sr_RS.UTF-8@latin", "pet 15:13"},
                                                        {"C.UTF-8", american},
                                                        {"", american},
                                                        {"xx_XX.UTF-8", american},
                                                        {std::string(4000, 'a'), american}}) {
    EXPECT_EQ(IcuLocalTimeText(locale, "Europe/Berlin").weekdayAndTime(friday), text) << locale;
  }
}

TEST(IcuLocalTimeText, KeepsToItsZone) {
  const IcuLocalTimeText kolkata("de_DE", "Asia/Kolkata");
  EXPECT_EQ(kolkata.weekdayAndTime(friday), "Fr., 18:43");
  EXPECT_EQ(kolkata.weekdayAndTime(friday + std::chrono::hours(6)), "Sa., 00:43");
  for (const Date limit : {distantPast, distantFuture}) {
    EXPECT_FALSE(kolkata.weekdayAndTime(limit).empty());
  }
}

TEST(IcuLocalTimeText, FollowsTheSystemsZoneWhileRunning) {
  // NOLINTBEGIN(concurrency-mt-unsafe): this test program has one thread.
  const char* const zone = std::getenv("TZ");
  const auto before = zone != nullptr ? std::optional<std::string>(zone) : std::nullopt;
  const IcuLocalTimeText local("de_DE");
  ::setenv("TZ", "AAA-5:30", 1);
  EXPECT_EQ(local.weekdayAndTime(friday), "Fr., 18:43");
  ::setenv("TZ", "BBB+14", 1);
  EXPECT_EQ(local.weekdayAndTime(friday), "Do., 23:13");
  before ? ::setenv("TZ", before->c_str(), 1) : ::unsetenv("TZ");
  // NOLINTEND(concurrency-mt-unsafe)
}

TEST(IcuLocalTimeText, HasAPlainForm) {
  EXPECT_EQ(IcuLocalTimeText::plainForm(friday), "Fri 13:13");
  EXPECT_EQ(IcuLocalTimeText::plainForm(friday + std::chrono::hours(11)), "Sat 00:13");
}

}  // namespace
}  // namespace marigold
