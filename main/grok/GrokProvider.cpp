#include "grok/GrokProvider.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace marigold {

namespace {

// Whether the percentage of `reading` goes on holding although a later line about the same account
// tells none.
bool outlasts(const ProviderSnapshot& reading, const GrokBillingLine& later, Date now) {
  const auto end = reading.soonestReset();
  const auto laterEnd = later.periodEnd();
  return !isFromFuture(reading.capturedAt, now) &&
         (end && laterEnd
              ? GrokProvider::sameMinute(*end, *laterEnd)
              : secondsBetween(reading.capturedAt, now) <= GrokProvider::healReachSeconds);
}

bool isInForce(const GrokLocated<GrokActivityLine>& activity, Date now) {
  return activity.line.isQuotaExhaustion() &&
         activity.line.rollsOverAt(activity.ts).value_or(distantFuture) > now;
}

ProviderSnapshot withoutWindows(Date capturedAt, Health health) {
  return {.provider = GrokProvider::id, .capturedAt = capturedAt, .health = std::move(health)};
}

}  // namespace

GrokPaths::GrokPaths(const Surroundings& surroundings)
    : home_(surroundings.toolHome("GROK_HOME", "~/.grok")) {}

bool GrokProvider::sameMinute(Date a, Date b) noexcept {
  const auto minutes = [](Date date) {
    return std::round(date.time_since_epoch().count() / secondsPerMinute);
  };
  return minutes(a) == minutes(b);
}

GrokProvider::GrokProvider(GrokPaths paths, DiskCache cache)
    : paths_(std::move(paths)), cache_(std::move(cache)) {
  if (const auto cached = cache_.load(id)) {
    lastGood_ = cached->restored(cached->capturedAt);  // each answer tells its age
    planLabel_ = lastGood_->planLabel;
  }
}

ProviderSnapshot GrokProvider::fetch(Date now) {
  ProviderSnapshot answer = read(now);
  takesBack_ = lastExhausted_ && answer.isUsable() && answer.capturedAt < *lastExhausted_;
  return answer;
}

ProviderSnapshot GrokProvider::rescan(Date now) {
  scanMemo_.reset();
  return fetch(now);
}

ProviderSnapshot GrokProvider::fetch(const std::set<std::string>& /*changed*/, Date now) {
  return fetch(now);
}

void GrokProvider::forgetCache() {
  lastGood_.reset();
  lastProcessed_.reset();
  scanMemo_.reset();
  exhaustion_.reset();
  lastExhausted_.reset();
  planLabel_.reset();
  cache_.remove(id);
}

ProviderSnapshot GrokProvider::read(Date now) {
  std::string path = paths_.unifiedLog();
  const auto log = BoundedFile::open(path);
  if (log) {
    lastProcessed_ = {.path = std::move(path),
                      .size = log->size(),
                      .mtime = log->modified(),
                      .fileNumber = log->fileNumber()};
    auto [scan, memo] = GrokLogScan::memoizedScan(*log, log->modified(), scanMemo_, now, {});
    scanMemo_ = std::move(memo);
    return decide(scan, now);
  }
  lastProcessed_.reset();
  ProviderSnapshot answer = decide({}, now);
  if (log.error() != FileFailure::missing) {
    return answer;
  }
  return answer.isUsable() ? answer.withHealth(Health::stale("Grok not running"))
                           : withoutWindows(now, Health::notInstalled("Grok not detected"));
}

ProviderSnapshot GrokProvider::decide(const BillingScan& scan, Date now) {
  const auto& usable = scan.usable;
  const auto& newest = scan.newest;
  const auto rankOf = [now](const auto& line) { return trustedDate(line->ts, now); };
  const bool fromLog =
      usable && !(lastGood_ && trustedDate(lastGood_->capturedAt, now) > rankOf(usable));
  const auto known = fromLog ? usable->line.snapshot(usable->ts, now) : lastGood_;
  const Date knownRank = known ? trustedDate(known->capturedAt, now) : distantPast;
  // What lies behind the line that is known is the newer one, unless it is from the future.
  const bool replaced =
      newest && !newest->line.hasCreditPercent() &&
      (knownRank <= rankOf(newest) || (fromLog && !isFromFuture(newest->ts, now))) &&
      !(known && outlasts(*known, newest->line, now));
  keep(replaced ? std::nullopt : known);
  for (const auto* billing : {&usable, &newest}) {
    if (const auto tier = *billing ? (*billing)->line.tier() : std::nullopt) {
      planLabel_ = grokPlanLabel(tier);
    }
  }

  followExhaustion(scan, now);
  const auto isNewer = [&](const auto& billing) {
    const bool told = exhaustion_->line.ts && billing->line.ts;
    return told && rankOf(billing) != rankOf(exhaustion_) ? rankOf(billing) > rankOf(exhaustion_)
                                                          : billing->at > exhaustion_->at;
  };
  if (exhaustion_ && isInForce(*exhaustion_, now) &&
      !(fromLog ? isNewer(usable) : knownRank > rankOf(exhaustion_)) &&
      !(replaced && isNewer(newest))) {
    lastExhausted_ = std::max(lastExhausted_.value_or(exhaustion_->ts), exhaustion_->ts);
    ProviderSnapshot answer = exhaustion_->line.exhaustedSnapshot({}, exhaustion_->ts, now);
    answer.planLabel = planLabel_;
    return answer;
  }
  if (replaced) {
    ProviderSnapshot answer = newest->line.snapshot(newest->ts, now);
    answer.planLabel = planLabel_;
    answer.extraNote = grokNoPercentNote;
    return answer.withHealth(Health::stale("no quota reported"));
  }
  if (!known) {
    return withoutWindows(now, Health::reconnect("Run Grok once to see usage"));
  }
  const double age = secondsBetween(known->capturedAt, now);
  const bool told = newest || (lastProcessed_ && age <= healReachSeconds);
  return known->withHealth(told ? grokHealth(age) : Health::stale("no recent usage"));
}

void GrokProvider::followExhaustion(const BillingScan& scan, Date now) {
  const bool sameLog = lastProcessed_ && lastProcessed_->fileNumber == exhaustionFile_;
  const auto isItself = [&](const auto& line) {
    return line->at == exhaustion_->at && line->line.ts == exhaustion_->line.ts;
  };
  const auto ends = [&](const auto& line) {
    if (!line || isItself(line)) {
      return false;
    }
    const bool isDated = line->line.ts || !sameLog;
    return (sameLog && line->at > exhaustion_->at) ||
           (isDated && trustedDate(line->ts, now) > trustedDate(exhaustion_->ts, now));
  };
  if (exhaustion_ && (ends(scan.usable) || ends(scan.activity))) {
    exhaustion_.reset();
  }
  // One that is over is kept: without a time of its own it would begin anew.
  if (scan.activity && isInForce(*scan.activity, now) &&
      (!exhaustion_ || (!isInForce(*exhaustion_, now) && !isItself(scan.activity)))) {
    exhaustion_ = scan.activity;
    exhaustionFile_ = lastProcessed_ ? lastProcessed_->fileNumber : 0;
  }
}

void GrokProvider::keep(std::optional<ProviderSnapshot> reading) {
  if (reading && (!lastGood_ || reading->cached() != lastGood_->cached())) {
    cache_.save(reading->cached());
  } else if (!reading && lastGood_) {
    cache_.remove(id);
  }
  lastGood_ = std::move(reading);
}

}  // namespace marigold
