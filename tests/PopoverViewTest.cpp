#include <gmock/gmock.h>

#include "PopoverView.h"
#include "bar/Palette.h"
#include "claude/ClaudeTexts.h"
#include "popover/EmptyState.h"
#include "support/PopoverText.h"
#include "support/SimplePorts.h"

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
    const bool isOff = kind.kind == Kind::turnedOff;
    for (const bool retained : {false, true}) {
      EXPECT_EQ(emptyStateShowsMessage(kind), !isOff);
      EXPECT_EQ(emptyStateEmitsBody(kind, retained), !isOff || retained);
      EXPECT_EQ(cardLeadsWithReading(kind, retained), kind.kind == Kind::retrying && retained);
    }
  }
}

TEST(PopoverView, ARowIsFilledByHowGoodItsReadingIs) {
  using enum WindowRowFill;
  const Date now = dateFromEpoch(1e9);
  const UsageWindow window{.label = "5h", .percent = 42.5};
  for (const auto& [known, age, dim, row] :
       std::vector<std::tuple<const UsageWindow*, double, bool, WindowRowPresentation>>{
           {nullptr, 0, false, {none, "–"}},
           {&window, 0, false, {solid, "43%"}},
           {&window, 86400, false, {solid, "43%"}},
           {&window, 86400, true, {dim, "43%"}},
           {&window, 86401, false, {none, "43%"}},
           {&window, 86401, true, {none, "43%"}}}) {
    const ProviderSnapshot snapshot{.capturedAt = now - Seconds{age}};
    EXPECT_EQ(windowRowPresentation(known, snapshot, dim, now), row) << age << dim;
  }
}

TEST(PopoverView, ARowIsColoredAsTheMarkAndSpokenAsOneText) {
  const Date now = dateFromEpoch(1e9);  // a Sunday, 01:46:40
  const test::FixedLocalTimeText localTime;
  const ProviderSnapshot reading{.provider = ProviderID::codex,
                                 .windows = {{"5h", 37.4, now + Seconds{7190}},
                                             {"Weekly", 95, now + Seconds{2 * 86400}},
                                             {"Opus", 12, now}},
                                 .capturedAt = now};
  for (const auto mode : {RingColorMode::byUsage, RingColorMode::byWindow}) {
    for (const auto scheme : {MarigoldTheme::Scheme::light, MarigoldTheme::Scheme::dark}) {
      const bool byUsage = mode == RingColorMode::byUsage;
      const bool dark = scheme == MarigoldTheme::Scheme::dark;
      const ProviderCard card = providerCard(ProviderID::codex, &reading,
                                             {.now = now,
                                              .localTime = localTime,
                                              .scheme = scheme,
                                              .ringColors = mode,
                                              .accent = ProviderAccent::pink});
      const auto fill = [&](ProviderAccent accent, double percent) {
        return menuBarBarFill(accent, percent, dark ? DarkMenuBar::yes : DarkMenuBar::no);
      };
      using enum ProviderAccent;
      const std::vector<CardBlock> rows = {CardRow{"5h",
                                                   "37%",
                                                   "in 1h 59m",
                                                   {37.4, fill(byUsage ? pink : teal, 37)},
                                                   "5h, 37 percent used, resets in 1h 59m"},
                                           CardRow{"Weekly",
                                                   "95%",
                                                   "Tue 01:46",
                                                   {95, UsageZone::red},
                                                   "Weekly, 95 percent used, resets Tue 01:46"},
                                           CardRow{"Opus",
                                                   "12%",
                                                   "",
                                                   {12, fill(byUsage ? pink : automatic, 12)},
                                                   "Opus, 12 percent used"}};
      EXPECT_EQ(card.blocks, rows) << byUsage << dark;
    }
  }
}

TEST(PopoverView, ACardTellsWhatThereIs) {
  const Date now = dateFromEpoch(1e9);
  const test::FixedLocalTimeText localTime;
  enum : std::uint8_t { bare = 0, full = 1, noted = 2, latched = 4, unread = 8, busy = 16 };
  struct Row {
    ProviderID provider;
    std::optional<Health> health;
    int how;
    std::vector<const char*> told;  // the first line behind the provider's name
  };
  const auto claude = ProviderID::claude;
  const auto codex = ProviderID::codex;
  const char* disclosure = "> What Marigold does with your Claude login";
  const char* keeps = "- Marigold keeps checking. The numbers come back on their own.";
  const char* dim = "5h 43% dim in 2h 5m";
  const char* before = "= Last reading before this";
  const char* afterAll = "--- = Last reading before this";
  const char* expired =
      "Your Claude Code login has expired. Run claude in Terminal once to refresh it. Marigold "
      "reads that login, not the Claude app's.";
  const char* below =
      "--- - Your Claude Code login has expired. Run claude in Terminal once to refresh it. "
      "Marigold reads that login, not the Claude app's.";
  const char* hung =
      "Reading your Claude login did not finish. If macOS left a Keychain dialog on screen, close "
      "it, then try again.";
  const char* why = "- Marigold could not reach Anthropic to ask for your usage.";
  const char* fails = "Anthropic's usage service returned an error";
  const char* retrying = ", Max [retrying!]";
  const char* held = ", Max [needs a tap!]";
  const Health asks = Health::reconnect(std::string(ClaudeUnavailable::tokenExpired));
  const Health hangs = Health::reconnect(std::string(ClaudeUnavailable::timedOut));
  const Health unreachable = Health::stale("fetch failed");
  for (const auto& [provider, health, how, lines] : std::vector<Row>{
           {claude, {}, unread, {"", "- Checking Claude...", disclosure}},
           {codex, {}, unread, {"", "- No usage data yet."}},
           {claude, Health::ok(), full, {", Max", "5h 43% solid in 2h 5m", disclosure}},
           {codex, Health::ok(), full | noted, {", Max", "5h 43% solid in 2h 5m", "--- - note"}},
           {codex, Health::ok(), bare, {", Max", "- No active limits right now."}},
           {codex, Health::ok(), noted, {", Max", "- No active limits right now.", "- note"}},
           {codex, Health::stale("r"), full | noted, {", Max", dim, "--- - r", "- note"}},
           {codex, Health::stale("9h ago"), full, {", Max", dim, "--- - 1h ago"}},
           {codex, Health::stale("r"), bare, {", Max", "- No usage data yet."}},
           {codex, Health::stale("r"), noted, {", Max", "- note"}},
           {codex, Health::reconnect("r"), bare, {", Max", "r"}},
           {codex, Health::reconnect("r"), full, {", Max", "r", afterAll, dim}},
           {codex, Health::notInstalled("r"), full | noted, {", Max", "r", "- Looks in ~/place"}},
           {claude,
            Health::notInstalled("r"),
            bare,
            {", Max", "r", "- Looks in ~/place", disclosure}},
           {claude, Health::turnedOff(), full | noted, {", Max [off]", "(Turn On)"}},
           {claude, asks, full, {retrying, before, dim, below, keeps, disclosure}},
           {claude, asks, bare, {retrying, expired, keeps, disclosure}},
           {claude, hangs, full | latched, {held, hung, "(Try Again)", afterAll, dim, disclosure}},
           {claude, hangs, latched | busy, {held, hung, "(Try Again…)", disclosure}},
           {claude, Health::stale("2h ago"), full, {", Max", dim, disclosure}},
           {claude,
            unreachable,
            full,
            {", Max", dim, "--- Can't reach Anthropic", why, keeps, disclosure}},
           {claude,
            Health::serverError({}),
            bare,
            {", Max [server error!]", fails, keeps, disclosure}},
           {claude,
            Health::rateLimited({}),
            full | unread,
            {", Max [throttled!]", dim, "--- - Checking Claude...", disclosure}}}) {
    ProviderSnapshot snapshot{.provider = provider,
                              .capturedAt = now - Seconds{3600},
                              .health = health.value_or(Health::ok()),
                              .planLabel = "Max"};
    if ((how & full) != 0) {
      snapshot.windows = {{"5h", 42.5, now + Seconds{7500}}};
    }
    if ((how & noted) != 0) {
      snapshot.extraNote = "note";
    }
    const ProviderCard card = providerCard(provider, health ? &snapshot : nullptr,
                                           {.now = now,
                                            .localTime = localTime,
                                            .looksIn = "~/place",
                                            .claudeReadLatched = (how & latched) != 0,
                                            .claudeYetFetched = (how & unread) == 0,
                                            .claudeRetrying = (how & busy) != 0});
    std::string all(displayName(provider));
    for (const char* gap = ""; const char* const line : lines) {
      all.append(std::exchange(gap, "\n")).append(line);
    }
    EXPECT_EQ(test::told(card), all);
    EXPECT_EQ(card.key, rawValue(provider));
  }
  EXPECT_EQ(test::told(nothingVisibleCard({})), "\nNo providers are shown.\n(Choose in Settings)");
}

}  // namespace
}  // namespace marigold
