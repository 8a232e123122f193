#include <gmock/gmock.h>

#include "PopoverView.h"
#include "claude/ClaudeTexts.h"
#include "popover/EmptyState.h"
#include "support/FixedLocalTimeText.h"

namespace marigold {
namespace {

using Kind = EmptyStateKind::Kind;

TEST(PopoverView, ACardSaysWhyItIsEmpty) {
  struct Row {
    ProviderID provider;
    std::optional<Health> health;
    bool latched, fetched;
    const char* note;
    EmptyStateKind kind;
    std::optional<std::string_view> badge;
  };
  const auto claude = ProviderID::claude;
  const auto grok = ProviderID::grok;
  const Health asks = Health::reconnect("r");
  const Health fails = Health::serverError({});
  const EmptyStateKind failure{Kind::failure, std::string(ClaudeUnavailable::serverError)};
  const std::vector<Row> rows = {
      {claude, asks, false, true, "n", {Kind::retrying, "r"}, "retrying"},
      {claude, asks, true, false, "n", {Kind::latched, "r"}, "needs a tap"},
      {grok, asks, true, true, "n", {Kind::reason, "r"}, {}},
      {claude, Health::notInstalled("r"), true, false, "n", {Kind::reason, "r"}, {}},
      {claude, Health::ok(), false, false, "n", {Kind::noLimits, ""}, {}},
      {grok, Health::turnedOff(), false, true, "n", {Kind::turnedOff, ""}, "off"},
      {claude, {}, false, false, "n", {Kind::checking, ""}, {}},
      {claude, Health::rateLimited({}), false, false, "", {Kind::checking, ""}, "throttled"},
      {claude, fails, true, true, "n", failure, "server error"},
      {grok, fails, false, false, "n", {Kind::note, "n"}, "server error"},
      {claude, Health::stale("2h ago"), false, true, "n", {Kind::note, "n"}, {}},
      {grok, Health::stale("fetch failed"), false, false, "", {Kind::noData, ""}, {}}};
  for (const Row& row : rows) {
    const auto kind =
        emptyStateKind(row.provider, row.health, row.latched, row.fetched, std::string(row.note));
    EXPECT_EQ(kind, row.kind) << &row - rows.data();
    EXPECT_EQ(healthBadgeLabel(row.health, kind), row.badge) << &row - rows.data();
    const bool isOwned = kind.kind < Kind::note || kind.kind == Kind::turnedOff;
    EXPECT_EQ(healthOwnsCard(row.health), isOwned) << &row - rows.data();
  }
}

TEST(PopoverView, ACardTellsWhatThereIs) {
  const Date now = dateFromEpoch(1e9);  // a Sunday, 01:46:40
  ProviderSnapshot good{.windows = {{"5h", 42.5, now + Seconds{7500}},
                                    {"Weekly", 7, now + Seconds{2 * 86400}},
                                    {"Opus", 100, now},
                                    {"Sonnet", 0.4, {}}},
                        .capturedAt = now,
                        .planLabel = "Claude Max"};
  const std::vector<CardBlock> rows = {CardRow{"5h", "43%", "in 2h 5m"},
                                       CardRow{"Weekly", "7%", "Tue 01:46"},
                                       CardRow{"Opus", "100%", ""}, CardRow{"Sonnet", "0%", ""}};
  ProviderSnapshot noted = good;
  noted.extraNote = "Extra usage on";
  const ProviderSnapshot bare{.planLabel = "Claude Max"};
  const char* const nothing = "No usage data yet.";
  const std::vector<std::tuple<std::optional<ProviderSnapshot>, bool, const char*>> cases = {
      {{}, false, nothing},
      {good, true, ""},
      {noted, true, "Extra usage on"},
      {noted.withHealth(Health::stale("r")), true, "r"},
      {good.withHealth(Health::stale("3h ago")), true, "just now"},  // ages while it is shown
      {good.withHealth(Health::serverError({})), true, ""},
      {noted.withHealth(Health::notInstalled("r")), false, "r"},
      {good.withHealth(Health::turnedOff()), false, ""},
      {bare, false, "No active limits right now."},
      {bare.withHealth(Health::rateLimited({})), false, nothing}};
  for (const auto& [snapshot, showsRows, message] : cases) {
    std::vector<CardBlock> blocks = showsRows ? rows : std::vector<CardBlock>();
    if (*message != 0) {
      blocks.emplace_back(CardText{message});
    }
    EXPECT_EQ(providerCard(ProviderID::claude, snapshot ? &*snapshot : nullptr, now,
                           test::FixedLocalTimeText()),
              (ProviderCard{.key = "claude",
                            .title = "Claude",
                            .plan = snapshot ? "Claude Max" : "",
                            .blocks = blocks}))
        << message;
  }
}

}  // namespace
}  // namespace marigold
