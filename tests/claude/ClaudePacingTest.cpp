#include <gtest/gtest.h>

#include "claude/ClaudePacing.h"
#include "claude/ClaudeTexts.h"
#include "claude/ClaudeUsage.h"
#include "claude/HTTPClassification.h"

namespace marigold {
namespace {

using namespace std::chrono_literals;

const Date start = dateFromEpoch(1e9);

TEST(ClaudePacing, PollsFasterOnlyOnFreshEvidenceOfARise) {
  // The first reading, the second and when it is taken, the time, the interval then.
  using Row = std::array<double, 5>;
  for (const auto& [first, second, taken, now, interval] :
       {Row{10, 12, 60, 60, 450}, Row{10, 12, 60, 1860, 450}, Row{10, 12, 60, 1861, 900},
        Row{12, 10, 60, 60, 900}, Row{10, 10, 60, 60, 900}, Row{10, 12, 60, 59, 900},
        Row{10, 12, 0, 60, 900}}) {
    ClaudeCadenceTracker tracker;
    tracker.observe(ClaudeCadenceSample{.percent = first, .capturedAt = start});
    tracker.observe(ClaudeCadenceSample{.percent = second, .capturedAt = start + Seconds{taken}});
    EXPECT_EQ(tracker.interval(start + Seconds{now}), Seconds{interval}) << second << ' ' << now;
    tracker.observe({});
    EXPECT_EQ(tracker, ClaudeCadenceTracker());
  }
  ProviderSnapshot mixed{.windows = {{.label = "5h", .percent = 7}}, .capturedAt = start};
  mixed.windows.insert(mixed.windows.begin(), {.label = "Weekly", .percent = 90});
  EXPECT_EQ(claudeCadenceSample(mixed)->percent, 7);
  mixed.windows.pop_back();
  EXPECT_EQ(claudeCadenceSample(mixed)->percent, 90);
  EXPECT_FALSE(claudeCadenceSample(mixed.withHealth(Health::stale("fetch failed"))));
  mixed.windows[0].percent = std::nan("");
  EXPECT_FALSE(claudeCadenceSample(mixed));
}

TEST(ClaudePacing, ReadsHeadersThatTellWhenToComeBack) {
  using Row = std::tuple<const char*, std::optional<std::chrono::seconds>, std::optional<Date>>;
  for (const auto& [text, retryAfter, reset] :
       {Row{" 120\t", 120s, start + 120s}, Row{"-0", 0s, start}, Row{"7199", 7199s, start + 7199s},
        Row{"7201", 7200s, start + 7201s}, Row{"1781455589", 7200s, dateFromEpoch(1781455589.0)},
        Row{"10000000", 7200s, dateFromEpoch(1e7)}, Row{"9999999.5", {}, start + 9999999500ms},
        Row{"99999999999999999999", 7200s, distantFuture}, Row{"1e300", {}, distantFuture},
        Row{"+7", 7s, start + 7s}, Row{"-5", {}, {}}, Row{"-99999999999999999999", {}, {}},
        Row{"1e400", {}, {}}, Row{"nan", {}, {}}, Row{"inf", {}, {}}, Row{" ", {}, {}},
        Row{"+", {}, {}}, Row{"1 2", {}, {}}, Row{"Fri, 12 Jun 2026 13:40:42 GMT", {}, {}}}) {
    EXPECT_EQ(parseRetryAfter(text), retryAfter) << text;
    EXPECT_EQ(parseUnifiedReset(text, start), reset) << text;
  }
  EXPECT_FALSE(parseRetryAfter({}) || parseUnifiedReset({}, start));
}

TEST(ClaudePacing, DelaysDoubleUpToTheirCap) {
  using Delay = Seconds (*)(int);
  const std::vector<std::pair<Delay, std::vector<double>>> series = {
      {[](int n) { return Seconds{backoffDelay(n, {})}; },
       {180, 180, 360, 720, 1440, 2880, 3600, 3600}},
      {[](int n) { return claudeCooldown(n, {}, {}, start); }, {900, 900, 1800, 3600, 7200, 7200}},
      {claudeAuthBackoff, {300, 300, 600, 1200, 2400, 3600, 3600}},
      {claudeReadRetryDelay, {60, 60, 120, 240, 480, 900, 900}}};
  for (const auto& [delay, expected] : series) {
    for (int step = 0; step < static_cast<int>(expected.size()); ++step) {
      EXPECT_EQ(delay(step).count(), expected.at(static_cast<std::size_t>(step))) << step;
    }
    EXPECT_EQ(delay(INT_MAX).count(), expected.back());
  }
  EXPECT_EQ(backoffDelay(7, 5s), 5s);
  using Row = std::tuple<std::optional<std::chrono::seconds>, std::optional<Date>, double>;
  for (const auto& [retryAfter, reset, delay] :
       {Row(30s, {}, 900), Row(5000s, {}, 5000), Row(0s, start + 4000s, 4000),
        Row(5000s, start + 4000s, 5000), Row({}, start + 100000s, 7200), Row({}, start, 900)}) {
    EXPECT_EQ(claudeCooldown(1, retryAfter, reset, start).count(), delay);
  }
}

TEST(ClaudePacing, SortsFailedReadsOfTheLogin) {
  using enum KeychainReadError::Kind;
  for (const auto kind : allCases<KeychainReadError::Kind>) {
    const KeychainReadError error{.kind = kind, .payload = 2};
    EXPECT_EQ(claudeReadSpawned(error), kind == exitStatus || kind >= launchFailed);
    EXPECT_EQ(claudeReadLatches(error), kind == timedOut);
    const auto health = claudeReadHealth(error).kind();
    EXPECT_EQ(health == Health::Kind::stale, kind == locked);
    EXPECT_EQ(health == Health::Kind::notInstalled, kind == notInstalled);
  }
  EXPECT_EQ(claudeReadHealth({.kind = timedOut}).reason(), ClaudeUnavailable::timedOut);
}

constexpr std::array failures{
    ClaudeUnavailable::ambiguous,      ClaudeUnavailable::unauthorized,
    ClaudeUnavailable::indeterminate,  ClaudeUnavailable::timedOut,
    ClaudeUnavailable::unreadable,     ClaudeUnavailable::tokenExpired,
    ClaudeUnavailable::keychainLocked, ClaudeUnavailable::unreachable,
    ClaudeUnavailable::throttled,      ClaudeUnavailable::unexpectedAnswer,
    ClaudeUnavailable::serverError};

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
  std::set<std::string_view> explanations{claudeFailureText("else")};
  for (const std::string_view text : failures) {
    explanations.insert(claudeFailureText(text));
  }
  EXPECT_EQ(explanations.size(), failures.size()) << "each its own, but for the unreadable login";
  EXPECT_EQ(claudeToggleTitle(ClaudeUsageToggle::turnOn), "Turn On Claude Usage");
  EXPECT_EQ(claudeToggleTooltip(ClaudeUsageToggle::turnOn),
            "Read your Claude login again and show usage.");
}

}  // namespace
}  // namespace marigold
