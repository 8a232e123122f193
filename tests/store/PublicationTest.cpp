#include <gtest/gtest.h>

#include "store/Publication.h"

namespace marigold {
namespace {

using Order = Publication::Order;
using Resets = std::vector<std::optional<double>>;

constexpr Date now{Seconds{1'000'000}};
constexpr std::nullopt_t never = std::nullopt;

// A reading of as many windows as there are `resets`, all in seconds after now.
ProviderSnapshot reading(double captured, const Resets& resets) {
  ProviderSnapshot made{.capturedAt = now + Seconds{captured}};
  for (const auto& reset : resets) {
    made.windows.push_back(
        {.resetsAt = reset ? std::optional(now + Seconds{*reset}) : std::nullopt});
  }
  return made;
}

TEST(Publication, AnOlderReadingReplacesANewerOneOnlyWhereThatSaysNothingAnyMore) {
  struct Row {
    const char* standing;
    double captured;
    Resets resets;
    double freshCaptured;
    Resets freshResets;
    bool replaced;
  };
  for (const auto& row : std::initializer_list<Row>{
           {"newer", -5, {60}, -6, {60}, false},
           {"of the same time", -5, {60}, -5, {60}, true},
           {"older", -5, {60}, -4, {60}, true},
           {"captured now", 0, {60}, -6, {60}, false},
           {"from the future", 1, {60}, -6, {60}, true},
           {"newer, but without windows", -5, {}, -6, {60}, true},
           {"newer, replaced by one without windows", -5, {60}, -6, {}, true},
           {"newer, all reset", -5, {0, -1}, -6, {60}, true},
           {"newer, one in force", -5, {-1, 1}, -6, {60}, false},
           {"newer, one that never resets", -5, {-1, never}, -6, {60}, false}}) {
    for (const Order order : {Order::byCapture, Order::byArrival}) {
      Publication publication(order);
      publication.put(reading(row.captured, row.resets));
      const auto fresh = reading(row.freshCaptured, row.freshResets);
      const bool replaced = row.replaced || order == Order::byArrival;
      EXPECT_EQ(publication.offer(publication.arrive(publication.ask(), fresh), now), replaced);
      EXPECT_EQ(publication.snapshot() == fresh, replaced) << row.standing;
    }
  }
}

TEST(Publication, AnAnswerIsLateOnceALaterOneWasAcceptedOrItsQuestionDropped) {
  Publication publication(Order::byCapture);
  const auto arrived = [&](double captured) {
    return publication.arrive(publication.ask(), reading(captured, {60}));
  };
  const Answer waiting = arrived(-3);
  const Answer accepted = arrived(-3);
  const Answer refused = arrived(-4);
  EXPECT_TRUE(publication.offer(accepted, now));
  EXPECT_FALSE(publication.offer(waiting, now));
  EXPECT_TRUE(publication.offer(accepted, now)) << "it is the last one";
  const Answer next = arrived(-2);
  EXPECT_FALSE(publication.offer(refused, now));
  EXPECT_TRUE(publication.offer(next, now)) << "what was refused keeps nothing out";

  const auto back = publication.arrive(publication.ask(), reading(-8, {60}), true);
  EXPECT_TRUE(publication.offer(back, now)) << "it says that the later one is over";

  const std::uint64_t before = publication.ask();
  publication.clear();
  publication.dropAsked();
  EXPECT_FALSE(publication.offer(publication.arrive(before, reading(-1, {60})), now));
  EXPECT_FALSE(publication.snapshot());
  EXPECT_TRUE(publication.isCleared());
  EXPECT_TRUE(publication.offer(arrived(-9), now));
  EXPECT_FALSE(publication.isCleared());
}

}  // namespace
}  // namespace marigold
