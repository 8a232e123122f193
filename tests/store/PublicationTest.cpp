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
    bool takesBack = false;
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
           {"newer, and taken back", -5, {60}, -6, {60}, true, true},
           {"newer, one in force", -5, {-1, 1}, -6, {60}, false},
           {"newer, one that never resets", -5, {-1, never}, -6, {60}, false}}) {
    for (const Order order : {Order::byCapture, Order::byArrival}) {
      Publication publication(order);
      publication.put(reading(row.captured, row.resets));
      const auto fresh = reading(row.freshCaptured, row.freshResets);
      const bool replaced = row.replaced || order == Order::byArrival;
      const Answer answer = publication.arrive(publication.ask(), fresh, row.takesBack);
      EXPECT_EQ(publication.offer(answer, now), replaced);
      EXPECT_EQ(publication.snapshot() == fresh, replaced) << row.standing;
    }
  }
}

}  // namespace
}  // namespace marigold
