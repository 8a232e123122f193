#include "app/SelfTest.h"

#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string_view>
#include <system_error>

#include "bar/MenuBarSlots.h"
#include "base/ISODate.h"
#include "base/LenientDecoding.h"
#include "claude/ClaudePacing.h"
#include "claude/ClaudeUsage.h"
#include "codex/CodexRecords.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

// A line as the Codex tool writes it.
constexpr std::string_view sampleLine =
    R"({"timestamp":"2026-06-12T13:40:42.000Z","type":"event_msg","payload":{"type":"token_count",)"
    R"("rate_limits":{"limit_id":"codex","primary":{"used_percent":16.0,"window_minutes":300,)"
    R"("resets_at":1781273445},"secondary":{"used_percent":5.0,"window_minutes":10080,)"
    R"("resets_at":1781745034},"credits":null,"plan_type":"plus"}}})";

// What Anthropic answers, with one value that is none.
constexpr std::string_view sampleAnswer =
    R"({"five_hour":{"utilization":10.0,"resets_at":"2026-06-14T20:00:00.000Z"},)"
    R"("seven_day":{"utilization":1e400},"limits":[{"kind":"weekly_scoped","percent":42.5,)"
    R"("scope":{"model":{"display_name":"Fable 5"}}},"bogus"]})";

// In a directory of its own, which is gone then.
bool survivesTheCache(const CachedSnapshot& reading, const Surroundings& surroundings) {
  std::string directory = surroundings.temporary + "/marigold-selftest-XXXXXX";
  if (::mkdtemp(directory.data()) == nullptr) {
    return false;
  }
  const DiskCache cache({.environment = {{"MARIGOLD_CACHE_DIR", directory}}});
  cache.save(reading);
  const auto restored = cache.load(reading.provider);
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
  return restored == reading;
}

class Checks {
 public:
  explicit Checks(std::ostream& out) : out_(out) {}

  void check(std::string_view name, bool holds) {
    out_ << (holds ? "  ok    " : "  FAIL  ") << name << '\n';
    passed_ = passed_ && holds;
  }
  [[nodiscard]] bool passed() const { return passed_; }

 private:
  std::ostream& out_;
  bool passed_ = true;
};

}  // namespace

bool runSelfTest(const Surroundings& surroundings, const DesktopChecks& ofDesktop,
                 std::ostream& out) {
  Checks checks(out);
  const Date captured = dateFromEpoch(1781271642.0);
  const Date now = captured + Seconds{30};

  checks.check("dates with and without fraction",
               ISODate::parse("2026-06-12T13:40:42.000Z") == captured &&
                   ISODate::parse("2026-06-12T15:40:42+02:00") == captured);
  checks.check("percentages out of range are absent, not empty or full",
               !sanitizePercent(101.01) && !sanitizePercent(-1.01) &&
                   sanitizePercent(100.7) == 100.0 && sanitizePercent(-0.5) == 0.0);

  const auto line = CodexRolloutLine::decode(sampleLine);
  const auto* const limits =
      line && line->payload && line->payload->rateLimits ? &*line->payload->rateLimits : nullptr;
  checks.check("a Codex line decodes", line && limits != nullptr && line->timestamp == captured);
  const ProviderSnapshot codex =
      limits != nullptr ? limits->snapshot(captured, now) : ProviderSnapshot();
  checks.check("its windows and plan are read", codex.percent("5h") == 16.0 &&
                                                    codex.percent("Weekly") == 5.0 &&
                                                    codex.planLabel == "Codex Plus");
  checks.check("a reading survives the cache", survivesTheCache(codex.cached(), surroundings));
  const MenuSlot slot =
      resolveMenuSlot(codex, MenuBarWindowKind::automatic, ProviderAccent::automatic, now);
  checks.check("the status bar says what was read",
               slot.token == "16%" && slot.tooltip == "Codex: 5h 16% used, updated just now");

  const auto usage = ClaudeUsage::decode(sampleAnswer);
  const ProviderSnapshot claude =
      usage ? usage->snapshot(now, "max") : turnedOffClaudeSnapshot(now);
  checks.check("an answer about Claude decodes, less its bad fields",
               claude.windows.size() == 2 && claude.percent("5h") == 10.0 &&
                   claude.percent("Fable 5") == 42.5 && claude.planLabel == "Claude Max");
  checks.check("a throttled request is not repeated for a quarter of an hour",
               claudeCooldown(1, parseRetryAfter(" 30 "), {}, now) == Seconds{900} &&
                   claudeCooldown(1, parseRetryAfter("99999"), {}, now) == Seconds{7200});
  for (const SelfCheck& check : ofDesktop(surroundings)) {
    checks.check(check.name, check.holds);
  }
  return checks.passed();
}

}  // namespace marigold
