#include <gtest/gtest.h>

#include "ClaudeHealth.h"
#include "ClaudePacing.h"
#include "ClaudeUsage.h"

namespace marigold {
namespace {

const Date start = dateFromEpoch(1e9);

TEST(ClaudePacing, PollsFasterOnlyOnFreshEvidenceOfARise) {
  const auto sample = [&](double percent, double at) {
    return ClaudeCadenceSample{.percent = percent, .capturedAt = start + Seconds{at}};
  };
  struct Row {
    double first, second, secondAt, now, interval;
  };
  for (const Row& row :
       {Row{10, 12, 60, 60, 450}, Row{10, 12, 60, 1860, 450}, Row{10, 12, 60, 1861, 900},
        Row{12, 10, 60, 60, 900}, Row{10, 10, 60, 60, 900}, Row{10, 12, 60, 59, 900},
        Row{10, 12, 0, 60, 900}}) {
    ClaudeCadenceTracker tracker;
    tracker.observe(sample(row.first, 0));
    tracker.observe(sample(row.second, row.secondAt));
    EXPECT_EQ(tracker.interval(start + Seconds{row.now}), row.interval)
        << row.first << " then " << row.second << " at " << row.secondAt << ", now " << row.now;
    tracker.observe({});
    EXPECT_EQ(tracker, ClaudeCadenceTracker());
  }
  ProviderSnapshot mixed{.windows = {{.label = "5h", .percent = 7}}, .capturedAt = start};
  mixed.windows.insert(mixed.windows.begin(), {.label = "Weekly", .percent = 90});
  EXPECT_EQ(claudeCadenceSample(mixed)->percent, 7);
  EXPECT_FALSE(claudeCadenceSample(mixed.withHealth(Health::stale("fetch failed"))));
}

TEST(ClaudePacing, ReadsHeadersThatTellWhenToComeBack) {
  using Row = std::pair<const char*, std::optional<int>>;
  for (const auto& [text, seconds] :
       {Row(" 120\t", 120), Row("+7", 7), Row("-0", 0), Row("-5", {}), Row("7199", 7199),
        Row("7201", 7200), Row("99999999999999999999", 7200), Row("-99999999999999999999", {}),
        Row("", {}), Row("+", {}), Row("1 2", {}), Row("1.5", {}),
        Row("Fri, 12 Jun 2026 13:40:42 GMT", {})}) {
    EXPECT_EQ(parseRetryAfter(text), seconds) << text;
  }
  using Reset = std::pair<const char*, std::optional<Date>>;
  for (const auto& [text, date] :
       {Reset("1781455589", dateFromEpoch(1781455589.0)), Reset(" 3600 ", start + Seconds{3600}),
        Reset("9999999.5", start + Seconds{9999999.5}), Reset("1e7", dateFromEpoch(1e7)),
        Reset("1e300", distantFuture), Reset("1e400", {}), Reset("-1", {}), Reset("abc", {}),
        Reset("nan", {}), Reset("inf", {}), Reset(" ", {})}) {
    EXPECT_EQ(parseUnifiedReset(text, start), date) << text;
  }
  EXPECT_FALSE(parseRetryAfter({}) || parseUnifiedReset({}, start));
}

TEST(ClaudePacing, DelaysDoubleUpToTheirCap) {
  using Delay = double (*)(int);
  const std::vector<std::pair<Delay, std::vector<double>>> series = {
      {[](int n) -> double { return backoffDelay(n, {}); },
       {180, 180, 360, 720, 1440, 2880, 3600, 3600}},
      {[](int n) { return claudeCooldown(n, {}, {}, start); }, {900, 900, 1800, 3600, 7200, 7200}},
      {claudeAuthBackoff, {300, 300, 600, 1200, 2400, 3600, 3600}},
      {claudeReadRetryDelay, {60, 60, 120, 240, 480, 900, 900}}};
  for (const auto& [delay, expected] : series) {
    for (int step = 0; step < static_cast<int>(expected.size()); ++step) {
      EXPECT_EQ(delay(step), expected.at(static_cast<std::size_t>(step))) << step;
    }
    EXPECT_EQ(delay(INT_MAX), expected.back());
  }
  EXPECT_EQ(backoffDelay(7, 5), 5);
  struct Row {
    std::optional<int> retryAfter;
    std::optional<double> resetIn;
    double delay = 0;
  };
  for (const Row& row : {Row{30, {}, 900}, Row{5000, {}, 5000}, Row{0, 4000, 4000},
                         Row{5000, 4000, 5000}, Row{{}, 1e5, 7200}, Row{{}, -50, 900}}) {
    const auto reset = row.resetIn ? std::optional(start + Seconds{*row.resetIn}) : std::nullopt;
    EXPECT_EQ(claudeCooldown(1, row.retryAfter, reset, start), row.delay);
  }
}

TEST(ClaudePacing, AnAnswerHoldsOffTheNextRequest) {
  using Kind = HTTPClassification::Kind;
  const Date later = start + Seconds{5000};
  const Date second = start + Seconds{1800};
  for (const auto& [kind, health] : {std::pair(Kind::throttled, Health::rateLimited(later)),
                                     std::pair(Kind::serverError, Health::serverError(later)),
                                     std::pair(Kind::unauthorized, Health::rateLimited(second)),
                                     std::pair(Kind::ok, Health::rateLimited(second))}) {
    EXPECT_EQ(claudeBackoffDecision({kind, 5000}, 1, {}, start),
              (ClaudeBackoffDecision{health.until().value(), health, 2}));
  }
  const auto serves = [&](double age, double interval, bool usable = true) {
    return claudeShouldServeCache(start, interval, usable, start + Seconds{age});
  };
  EXPECT_TRUE(serves(59, 60) && serves(0, 60));
  EXPECT_FALSE(serves(60, 60) || serves(0, 0) || serves(1, 60, false) || serves(-1, 60));
  EXPECT_FALSE(claudeShouldServeCache({}, 60, true, start));
  EXPECT_TRUE(claudeMayBypassBackoff(0, true));
  EXPECT_FALSE(claudeMayBypassBackoff(0, false) || claudeMayBypassBackoff(60, true));
}

TEST(ClaudePacing, SortsFailedReadsOfTheLogin) {
  using Kind = KeychainReadError::Kind;
  const std::vector<std::tuple<Kind, bool, std::string_view>> rows = {
      {Kind::ambiguous, false, ClaudeUnavailable::ambiguous},
      {Kind::indeterminate, false, ClaudeUnavailable::indeterminate},
      {Kind::exitStatus, true, ClaudeUnavailable::unreadable},
      {Kind::notInstalled, false, "Claude Code not detected"},
      {Kind::locked, false, ClaudeUnavailable::keychainLocked},
      {Kind::unauthorized, false, ClaudeUnavailable::unauthorized},
      {Kind::launchFailed, true, ClaudeUnavailable::unreadable},
      {Kind::timedOut, true, ClaudeUnavailable::timedOut},
      {Kind::overflow, true, ClaudeUnavailable::unreadable},
      {Kind::decode, true, ClaudeUnavailable::unreadable}};
  for (const auto& [kind, spawned, text] : rows) {
    const KeychainReadError error{.kind = kind, .payload = 2};
    EXPECT_EQ(claudeReadSpawned(error), spawned) << text;
    EXPECT_EQ(claudeReadLatches(error), kind == Kind::timedOut) << text;
    EXPECT_EQ(claudeReadHealth(error).reason(), text);
  }
}

}  // namespace
}  // namespace marigold
