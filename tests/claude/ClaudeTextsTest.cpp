#include <gmock/gmock.h>

#include "claude/ClaudeTexts.h"
#include "popover/DesktopTexts.h"

namespace marigold {
namespace {

using testing::AnyOf, testing::HasSubstr, testing::Value;

// Each short text, and what only its explanation says.
constexpr std::array<std::pair<std::string_view, const char*>, 11> failures{
    {{ClaudeUnavailable::ambiguous, "more than one Claude login"},
     {ClaudeUnavailable::unauthorized, "no longer lets Apple's security tool"},
     {ClaudeUnavailable::indeterminate, "check your Claude login safely"},
     {ClaudeUnavailable::timedOut, "did not finish"},
     {ClaudeUnavailable::unreadable, "could not read your Claude login."},
     {ClaudeUnavailable::tokenExpired, "has expired"},
     {ClaudeUnavailable::keychainLocked, "Keychain is locked"},
     {ClaudeUnavailable::unreachable, "not reach Anthropic"},
     {ClaudeUnavailable::unexpectedAnswer, "data Marigold could not read"},
     {ClaudeUnavailable::throttled, "limiting how often"},
     {ClaudeUnavailable::serverError, "returned an error"}}};

TEST(ClaudeTexts, TellsAFailureInOneLineAndInFull) {
  const std::vector<std::pair<std::optional<Health>, std::optional<std::string_view>>> rows = {
      {{}, {}},
      {Health::serverError({}), ClaudeUnavailable::serverError},
      {Health::rateLimited({}), ClaudeUnavailable::throttled},
      {Health::stale("fetch failed"), ClaudeUnavailable::unreachable},
      {Health::stale("unexpected payload"), ClaudeUnavailable::unexpectedAnswer},
      {Health::stale("unreadable usage value"), ClaudeUnavailable::unexpectedAnswer},
      {Health::stale("Mac Keychain is locked"), ClaudeUnavailable::keychainLocked},
      {Health::reconnect("fetch failed"), {}}};
  for (const auto& [health, line] : rows) {
    EXPECT_EQ(claudeFailureLine(health), line);
  }
  for (const auto& [text, part] : failures) {
    EXPECT_THAT(std::string(claudeFailureText(text)), HasSubstr(part));
  }
  EXPECT_EQ(claudeFailureText("else"), claudeFailureText(ClaudeUnavailable::unreadable));
  EXPECT_EQ(claudeToggleTitle(ClaudeUsageToggle::turnOn), "Turn On Claude Usage");
  EXPECT_EQ(claudeToggleTooltip(ClaudeUsageToggle::turnOn),
            "Read your Claude login again and show usage.");
}

TEST(ClaudeTexts, AreTrueOnLinuxAndReplacedOnlyWhereTheyWereNot) {
  const auto ofAMac = AnyOf(HasSubstr("Mac"), HasSubstr("macOS"), HasSubstr("Keychain"),
                            HasSubstr("Terminal"), HasSubstr("Apple"));
  for (const auto& [shortText, part] : failures) {
    for (const std::string_view text : {shortText, claudeFailureText(shortText)}) {
      EXPECT_EQ(macTexts(text), text);
      EXPECT_THAT(std::string(linuxTexts(text)), Not(ofAMac));
      EXPECT_TRUE(linuxTexts(text) == text || Value(std::string(text), ofAMac)) << text;
    }
  }
}

}  // namespace
}  // namespace marigold
