#include "grok/GrokRecords.h"

#include <algorithm>
#include <charconv>

#include "base/AsciiText.h"
#include "base/LenientDecoding.h"

namespace marigold {

namespace {

// A reading older than this, in seconds, no longer passes for current.
constexpr double staleAfter = 3 * secondsPerHour;

constexpr int longestRollingHours = 31 * 24;

}  // namespace

std::optional<GrokBillingLine::Ctx::Config::Period> GrokBillingLine::Ctx::Config::Period::decode(
    JsonValue value) {
  return value.object() ? std::optional(Period{.end = value["end"].date()}) : std::nullopt;
}

std::optional<GrokBillingLine::Ctx::Config> GrokBillingLine::Ctx::Config::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Config{.creditUsagePercent = decodePercent("creditUsagePercent", value),
                .currentPeriod = Period::decode(value["currentPeriod"])};
}

std::optional<GrokBillingLine::Ctx> GrokBillingLine::Ctx::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Ctx{.config = Config::decode(value["config"]),
             .subscriptionTier = value["subscriptionTier"].text()};
}

std::optional<GrokBillingLine> GrokBillingLine::decode(std::string_view line) {
  const auto document = JsonDocument::parseObject(line);
  if (!document) {
    return std::nullopt;
  }
  const JsonValue root = document->root();
  return GrokBillingLine{
      .msg = root["msg"].text(), .ts = root["ts"].date(), .ctx = Ctx::decode(root["ctx"])};
}

std::optional<double> GrokBillingLine::creditPercent() const {
  return ctx && ctx->config ? ctx->config->creditUsagePercent : std::nullopt;
}

std::optional<Date> GrokBillingLine::periodEnd() const {
  return ctx && ctx->config && ctx->config->currentPeriod ? ctx->config->currentPeriod->end
                                                          : std::nullopt;
}

std::optional<std::string> GrokBillingLine::tier() const {
  return ctx ? ctx->subscriptionTier : std::nullopt;
}

ProviderSnapshot GrokBillingLine::snapshot(Date capturedAt, Date now) const {
  ProviderSnapshot reading{.provider = ProviderID::grok,
                           .capturedAt = capturedAt,
                           .health = grokHealth(secondsBetween(capturedAt, now)),
                           .planLabel = grokPlanLabel(tier())};
  if (const auto percent = creditPercent()) {
    reading.windows.push_back({.label = "Weekly", .percent = *percent, .resetsAt = periodEnd()});
  }
  return reading;
}

std::optional<GrokActivityLine::Ctx> GrokActivityLine::Ctx::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return Ctx{.kind = value["kind"].text(),
             .message = value["message"].text(),
             .error = value["error"].text()};
}

std::optional<GrokActivityLine> GrokActivityLine::decode(std::string_view line) {
  const auto document = JsonDocument::parseObject(line);
  if (!document) {
    return std::nullopt;
  }
  const JsonValue root = document->root();
  return GrokActivityLine{
      .msg = root["msg"].text(), .ts = root["ts"].date(), .ctx = Ctx::decode(root["ctx"])};
}

std::string_view GrokActivityLine::messageText() const {
  if (!ctx) {
    return {};
  }
  const auto& text = ctx->message ? ctx->message : ctx->error;
  return text ? std::string_view(*text) : std::string_view();
}

bool GrokActivityLine::isQuotaExhaustion() const {
  return ctx && ctx->kind == rateLimitedKind &&
         std::ranges::all_of(quotaMarkers, [text = messageText()](std::string_view marker) {
           return text.find(marker) != std::string_view::npos;
         });
}

std::optional<int> GrokActivityLine::rollingWindowHours() const {
  constexpr std::string_view before = "rolling ";
  const std::string_view text = messageText();
  const auto found = std::ranges::search(text, before, {}, lowered);
  if (found.empty()) {
    return std::nullopt;
  }
  const std::string_view rest(found.end(), text.end());
  const std::string_view digits = leadingDigits(rest);
  int hours = 0;  // stays so when there are no digits or too many
  std::from_chars(digits.data(), digits.data() + digits.size(), hours);
  if (!rest.substr(digits.size()).starts_with("-hour") || hours < 1 ||
      hours > longestRollingHours) {
    return std::nullopt;
  }
  return hours;
}

std::optional<Date> GrokActivityLine::rollsOverAt(Date writtenAt) const {
  const auto hours = rollingWindowHours();
  return hours ? std::optional(writtenAt + Seconds{*hours * secondsPerHour}) : std::nullopt;
}

ProviderSnapshot GrokActivityLine::exhaustedSnapshot(const std::optional<std::string>& tier,
                                                     Date capturedAt, Date now) const {
  const auto hours = rollingWindowHours();
  const std::string length = hours ? std::to_string(*hours) + "h" : "";
  return {.provider = ProviderID::grok,
          .windows = {{.label = hours ? length : "Quota",
                       .percent = 100,
                       .resetsAt = rollsOverAt(capturedAt)}},
          .capturedAt = capturedAt,
          .health = grokHealth(secondsBetween(capturedAt, now)),
          .planLabel = grokPlanLabel(tier),
          .extraNote = hours ? "included usage spent, rolling " + length + " window"
                             : "included usage spent"};
}

std::optional<std::string> grokPlanLabel(const std::optional<std::string>& tier) {
  return tier ? std::optional("Grok " + *tier) : std::nullopt;
}

ProviderSnapshot::Health grokHealth(double age) {
  return age > staleAfter ? Health::stale(relativeAge(age)) : Health::ok();
}

}  // namespace marigold
