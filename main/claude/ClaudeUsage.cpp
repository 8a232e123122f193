#include "claude/ClaudeUsage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <utility>

#include "base/AsciiText.h"
#include "base/LenientDecoding.h"

namespace marigold {

namespace {

// Something was sent as a percentage that is none.
bool wasRejected(const std::optional<double>& percent, std::string_view name, JsonValue container) {
  return !percent && sentNonNull(name, container);
}

std::optional<std::string> extraNote(const std::optional<ClaudeUsage::ExtraUsage>& extra) {
  if (!extra || !extra->isEnabled || extra->usedCredits <= 0) {
    return std::nullopt;
  }
  if (!extra->utilization) {
    return "Extra usage on";
  }
  std::array<char, 8> digits{};  // 100 at most
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), *extra->utilization,
                                 std::chars_format::fixed, 0);
  return "Extra usage " + std::string(digits.data(), end.ptr) + "%";
}

}  // namespace

HTTPRequest claudeUsageRequest(Secret accessToken, std::string userAgent) {
  return {.method = "GET",
          .url = "https://api.anthropic.com/api/oauth/usage",
          .bearerToken = std::move(accessToken),
          .headers = {{"anthropic-beta", "oauth-2025-04-20"},
                      {"anthropic-version", "2023-06-01"},
                      {"User-Agent", std::move(userAgent)}}};
}

std::optional<ClaudeUsage::Block> ClaudeUsage::Block::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  const auto utilization = decodePercent("utilization", value);
  return Block{.utilization = utilization,
               .resetsAt = value["resets_at"].date(),
               .rejectedValue = wasRejected(utilization, "utilization", value)};
}

std::optional<ClaudeUsage::ExtraUsage> ClaudeUsage::ExtraUsage::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  return ExtraUsage{.isEnabled = value["is_enabled"].flag().value_or(false),
                    .monthlyLimit = value["monthly_limit"].wholeNumber().value_or(0),
                    .usedCredits = value["used_credits"].number().value_or(0),
                    .utilization = decodePercent("utilization", value),
                    .currency = value["currency"].text().value_or("USD"),
                    .disabledReason = value["disabled_reason"].text()};
}

std::optional<ClaudeUsage::ScopedLimit> ClaudeUsage::ScopedLimit::decode(JsonValue value) {
  if (!value.object()) {
    return std::nullopt;
  }
  const auto percent = decodePercent("percent", value);
  return ScopedLimit{.kind = value["kind"].text(),
                     .percent = percent,
                     .resetsAt = value["resets_at"].date(),
                     .displayName = value["scope"]["model"]["display_name"].text(),
                     .rejectedValue = wasRejected(percent, "percent", value)};
}

std::optional<ClaudeUsage> ClaudeUsage::decode(std::string_view body) {
  const auto document = JsonDocument::parseObject(body);
  if (!document) {
    return std::nullopt;
  }
  const JsonValue root = document->root();
  return ClaudeUsage{.fiveHour = Block::decode(root[K::fiveHour]),
                     .sevenDay = Block::decode(root[K::sevenDay]),
                     .sevenDayOpus = Block::decode(root[K::sevenDayOpus]),
                     .sevenDaySonnet = Block::decode(root[K::sevenDaySonnet]),
                     .extra = ExtraUsage::decode(root[K::extraUsage]),
                     .limits = decodeSurvivors<ScopedLimit>(root[K::limits]),
                     .recognizedEnvelope = std::ranges::any_of(
                         K::all, [&](std::string_view name) { return !root[name].isAbsent(); })};
}

bool ClaudeUsage::rejectedValue() const {
  const auto rejected = [](const auto& value) { return value && value->rejectedValue; };
  return rejected(fiveHour) || rejected(sevenDay) || rejected(sevenDayOpus) ||
         rejected(sevenDaySonnet) ||
         (limits && std::ranges::any_of(*limits, &ScopedLimit::rejectedValue));
}

ProviderSnapshot ClaudeUsage::snapshot(Date capturedAt,
                                       const std::optional<std::string>& plan) const {
  ProviderSnapshot snapshot{
      .provider = ProviderID::claude,
      .windows = {},
      .capturedAt = capturedAt,
      .planLabel = plan ? std::optional("Claude " + capitalizedWords(*plan)) : std::nullopt,
      .extraNote = extraNote(extra)};
  std::set<std::string> labels;  // in lower case; an answer may hold thousands of limits
  const auto add = [&](const std::string& label, std::optional<double> percent,
                       std::optional<Date> resetsAt) {
    if (percent && labels.insert(lowercased(label)).second) {
      snapshot.windows.push_back({.label = label, .percent = *percent, .resetsAt = resetsAt});
    }
  };
  for (const auto& [label, block] :
       {std::pair("5h", &fiveHour), std::pair("Weekly", &sevenDay),
        std::pair("Opus", &sevenDayOpus), std::pair("Sonnet", &sevenDaySonnet)}) {
    if (*block) {
      add(label, (*block)->utilization, (*block)->resetsAt);
    }
  }
  if (limits) {
    for (const ScopedLimit& limit : *limits) {
      if (limit.kind == "weekly_scoped" && limit.displayName && !limit.displayName->empty()) {
        add(*limit.displayName, limit.percent, limit.resetsAt);
      }
    }
  }
  return snapshot;
}

ClaudePayloadVerdict claudePayloadVerdict(bool hasWindows, bool recognizedEnvelope,
                                          bool rejectedValue) noexcept {
  if (hasWindows) {
    return ClaudePayloadVerdict::usable;
  }
  if (!recognizedEnvelope) {
    return ClaudePayloadVerdict::unrecognized;
  }
  return rejectedValue ? ClaudePayloadVerdict::rejectedValues
                       : ClaudePayloadVerdict::noActiveWindows;
}

}  // namespace marigold
