#pragma once

#include <algorithm>
#include <sstream>
#include <string>

#include "GrokProvider.h"

namespace marigold::test {

/// What a scan of `content` finds, by walking all of its lines.
inline GrokProvider::BillingScan reference(const std::string& content,
                                           const GrokProvider::Limits& limits) {
  GrokProvider::BillingScan found{.size = static_cast<std::int64_t>(content.size())};
  const std::size_t floor = content.size() - std::min(content.size(), limits.searchBudget);
  for (std::size_t start = 0, end = content.rfind('\n');
       end != std::string::npos && end >= floor && !found.usable; end = start - 1) {
    found.lineEnd = found.lineEnd.value_or(static_cast<std::int64_t>(end + 1));
    start = end == 0 ? 0 : content.rfind('\n', end - 1) + 1;  // after none comes 0
    if (floor > 0 && start <= floor) {
      break;
    }
    const std::string line = content.substr(start, end - start);
    const auto has = [&](const char* mark) { return line.find(mark) != std::string::npos; };
    const auto offset = static_cast<std::int64_t>(start);
    if (line.size() > limits.maxLine) {
      continue;
    }
    if (has("billing: fetched credits config")) {
      if (const auto bill = GrokBillingLine::decode(line); bill && bill->isBilling()) {
        const GrokLocated located{.line = *bill, .ts = {}, .at = offset};
        found.newest = found.newest.value_or(located);
        found.usable = bill->hasCreditPercent() ? std::optional(located) : std::nullopt;
      }
    } else if (!found.activity && (has("shell.turn.inference_done") || has("rate_limited"))) {
      const auto activity = GrokActivityLine::decode(line);
      if (activity && (activity->isInferenceDone() || activity->isQuotaExhaustion())) {
        found.activity = {.line = *activity, .ts = {}, .at = offset};
      }
    }
  }
  return found;
}

/// What was found and where, without what depends on how it was scanned.
inline std::string places(const GrokProvider::BillingScan& scan) {
  std::ostringstream text;
  const auto place = [&](const char* name, const auto& located) {
    if (located) {
      text << name << located->at << ' ' << isoText(located->line.ts.value_or(Date{})) << ' ';
    }
  };
  place("usable ", scan.usable);
  place("newest ", scan.newest);
  place("activity ", scan.activity);
  text << "end " << scan.lineEnd.value_or(-1) << " of " << scan.size;
  return text.str();
}

}  // namespace marigold::test
