#include <gtest/gtest.h>

#include "TextForm.h"
#include "support/FixedLocalTimeText.h"
#include "support/StoreFixture.h"

namespace marigold {
namespace {

class TextFormTest : public testing::Test, protected test::StoreFixture {
 protected:
  TextFormTest() { makeStore(); }

  [[nodiscard]] std::string shown() const {
    const Date now = loop.date();
    return textForm(resolveMenuBar(*store, now), *store, now, test::FixedLocalTimeText());
  }
  // Seconds until the texts change by themselves.
  [[nodiscard]] std::optional<double> untilChange() const {
    const Date now = loop.date();
    const auto next = nextTextChange(resolveMenuBar(*store, now), now);
    return next ? std::optional(secondsBetween(now, *next)) : std::nullopt;
  }
};

TEST_F(TextFormTest, SaysWhatTheTooltipSaysAndWhatTheMarkPrints) {
  EXPECT_EQ(shown(), "Marigold: no data yet\n");
  store->turnOffClaude();
  EXPECT_EQ(shown(), "Claude: usage reading is off\n") << "nothing to draw, so no mark";
  codex->answer = [](Date now) {
    ProviderSnapshot both = test::reading(ProviderID::codex, 37, now);
    both.windows.front().resetsAt = now + Seconds{7290};
    both.windows.push_back({.label = "Weekly", .percent = 12, .resetsAt = now + Seconds{90}});
    return both;
  };
  store->start();
  settle();
  EXPECT_EQ(shown(),
            "Claude: usage reading is off\n"
            "Codex: 5h 37% used, updated just now; Codex: Weekly 12% used, updated just now\n"
            "mark: 37%\n");
  EXPECT_EQ(untilChange(), 90) << "the weekly window resets";
  store->preferences().setPercentScope(ProviderID::codex, MenuBarTextScope::both);
  store->preferences().setResetScope(ProviderID::codex, MenuBarTextScope::fiveHour);
  store->preferences().setMenuBarLabels(true);
  EXPECT_NE(shown().find("mark: 5h 37% 2h01m wk 12%\n"), std::string::npos) << shown();
  EXPECT_EQ(untilChange(), 30) << "the countdown moves on";
  store->preferences().setVisible(ProviderID::codex, false);
  store->preferences().setVisible(ProviderID::claude, false);
  EXPECT_EQ(shown().find("Marigold: no providers shown"), 0U);
  EXPECT_EQ(untilChange(), std::nullopt);
}

}  // namespace
}  // namespace marigold
