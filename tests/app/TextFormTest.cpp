#include <gtest/gtest.h>

#include "app/TextForm.h"

namespace marigold {
namespace {

TEST(TextFormTest, TellsEachChangeOnceAndNoAges) {
  std::vector<std::string> printed;
  TextStatusBar bar([&](std::string text) { printed.push_back(std::move(text)); });
  const auto item = bar.makeItem();
  StatusItemContent content{.label = "37%",
                            .tooltip = "Codex: 5h 37% used, updated just now\nCodex: Weekly",
                            .tooltipWithoutAges = "Codex: 5h 37% used, updated \nCodex: Weekly"};
  item->show(content);
  content.tooltip = "Codex: 5h 37% used, updated 2m ago\nCodex: Weekly";
  item->show(content);
  content.label = "38%";
  item->show(content);
  const std::vector<std::string> expected{
      "Codex: 5h 37% used, updated just now\nCodex: Weekly\nmark: 37%\n",
      "Codex: 5h 37% used, updated 2m ago\nCodex: Weekly\nmark: 38%\n"};
  EXPECT_EQ(printed, expected);
  EXPECT_EQ(textForm({.label = "\x1b[2J", .tooltip = "Claude: \u202e 1%\nGrok"}),
            "Claude: ? 1%\nGrok\nmark: ?[2J\n");
}

}  // namespace
}  // namespace marigold
