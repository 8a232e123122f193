#include <gmock/gmock.h>

#include "ClaudeHealth.h"
#include "DesktopTexts.h"

namespace marigold {
namespace {

using Kind = EmptyStateKind::Kind;
using testing::AnyOf, testing::HasSubstr;

constexpr std::array shortTexts{
    ClaudeUnavailable::ambiguous,        ClaudeUnavailable::unauthorized,
    ClaudeUnavailable::indeterminate,    ClaudeUnavailable::timedOut,
    ClaudeUnavailable::unreadable,       ClaudeUnavailable::tokenExpired,
    ClaudeUnavailable::keychainLocked,   ClaudeUnavailable::unreachable,
    ClaudeUnavailable::unexpectedAnswer, ClaudeUnavailable::throttled,
    ClaudeUnavailable::serverError};

TEST(ClaudeHealth, ACardSaysWhyItIsEmpty) {
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

TEST(ClaudeHealth, TellsAFailureInOneLineAndInFull) {
  const std::vector<std::pair<std::optional<Health>, std::optional<std::string_view>>> rows = {
      {{}, {}},
      {Health::rateLimited({}), ClaudeUnavailable::throttled},
      {Health::stale("fetch failed"), ClaudeUnavailable::unreachable},
      {Health::stale("unexpected payload"), ClaudeUnavailable::unexpectedAnswer},
      {Health::stale("unreadable usage value"), ClaudeUnavailable::unexpectedAnswer},
      {Health::stale("Mac Keychain is locked"), ClaudeUnavailable::keychainLocked},
      {Health::stale("1m ago"), {}},
      {Health::reconnect("fetch failed"), {}}};
  for (const auto& [health, line] : rows) {
    EXPECT_EQ(claudeFailureLine(health), line);
  }
  const std::string_view general = claudeFailureText("anything else");
  for (const std::string_view text : shortTexts) {
    EXPECT_EQ(claudeFailureText(text) == general, text == ClaudeUnavailable::unreadable) << text;
  }
  const std::vector<std::pair<std::string_view, const char*>> parts = {
      {ClaudeUnavailable::ambiguous, "more than one Claude login"},
      {ClaudeUnavailable::unauthorized, "no longer lets Apple's security tool"},
      {ClaudeUnavailable::indeterminate, "check your Claude login safely"},
      {ClaudeUnavailable::timedOut, "did not finish"},
      {ClaudeUnavailable::tokenExpired, "has expired"},
      {ClaudeUnavailable::keychainLocked, "Keychain is locked"},
      {ClaudeUnavailable::unreachable, "not reach Anthropic"},
      {ClaudeUnavailable::unexpectedAnswer, "could not read"},
      {ClaudeUnavailable::throttled, "limiting how often"},
      {ClaudeUnavailable::serverError, "returned an error"}};
  for (const auto& [text, part] : parts) {
    EXPECT_THAT(std::string(claudeFailureText(text)), HasSubstr(part));
  }
  EXPECT_EQ(claudeToggleTitle(ClaudeUsageToggle::turnOff), "Turn Off Claude Usage");
  EXPECT_EQ(claudeToggleTitle(ClaudeUsageToggle::turnOn), "Turn On Claude Usage");
  EXPECT_EQ(claudeToggleTooltip(ClaudeUsageToggle::turnOn),
            "Read your Claude login again and show usage.");
}

TEST(DesktopTexts, AreTrueOnLinuxAndReplaceOnlyWhatIsShown) {
  std::set<std::string_view> shown;
  for (const std::string_view text : shortTexts) {
    shown.insert({text, claudeFailureText(text)});
  }
  for (const auto toggle : {ClaudeUsageToggle::turnOn, ClaudeUsageToggle::turnOff}) {
    shown.insert({claudeToggleTitle(toggle), claudeToggleTooltip(toggle)});
  }
  const auto ofAMac = AnyOf(HasSubstr("Mac"), HasSubstr("macOS"), HasSubstr("Keychain"),
                            HasSubstr("Terminal"), HasSubstr("Apple"));
  for (const std::string_view text : shown) {
    EXPECT_EQ(worded(text, macTexts), text);
    EXPECT_THAT(std::string(worded(text, linuxTexts())), Not(ofAMac));
  }
  for (const TextSubstitute& substitute : linuxTexts()) {
    EXPECT_THAT(std::string(substitute.text), ofAMac);
    EXPECT_TRUE(shown.contains(substitute.text)) << substitute.text;
  }
}

}  // namespace
}  // namespace marigold
