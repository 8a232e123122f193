#include "MenuBarSlots.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace marigold {

namespace {

constexpr double minute = 60;
constexpr double hour = 3600;
constexpr double day = 86400;
constexpr std::int64_t minutesPerHour = 60;
constexpr std::int64_t minutesPerDay = 1440;
constexpr double redFromPercent = 90;

/// The windows that a kind can ask for by name, the preferred one first.
constexpr std::array knownKinds{MenuBarWindowKind::fiveHour, MenuBarWindowKind::weekly};

bool offers(const ProviderSnapshot& snapshot, MenuBarWindowKind kind) noexcept {
  return snapshot.window(limitLabel(kind)) != nullptr;
}

/// Whole units in a length of time, truncated; saturates at the length of the calendar.
std::int64_t whole(double seconds, double unit) noexcept {
  const double longest = secondsBetween(distantPast, distantFuture);
  // Ordered so that not a number counts as none.
  return static_cast<std::int64_t>(std::min(longest, std::max(0.0, seconds)) / unit);
}

std::string twoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

double secondsUntil(Date resetsAt, Date now) noexcept {
  return secondsBetween(now, std::min(resetsAt, distantFuture));
}

/// A slot that draws no gauge and prints no percentage.
MenuSlot noGaugeSlot(ProviderAccent accent, std::string tooltip, std::string spoken) {
  return {.bar = {.accent = accent}, .tooltip = std::move(tooltip), .spoken = std::move(spoken)};
}

MenuSlot noGaugeSlot(ProviderAccent accent, const std::string& text) {
  return noGaugeSlot(accent, text, text);
}

/// The slot of a health that leaves nothing to show, whatever the window.
std::optional<MenuSlot> withheldSlot(const ProviderSnapshot& snapshot, ProviderAccent accent) {
  const std::string name(displayName(snapshot.provider));
  const Health::Kind health = snapshot.health.kind();
  if (health == Health::Kind::turnedOff) {
    const std::string off = name + ": usage reading is off";
    return noGaugeSlot(accent, off, off + ", turn it back on in Marigold's menu");
  }
  if (health == Health::Kind::notInstalled ||
      (health == Health::Kind::reconnect && !snapshot.isUsable())) {
    return noGaugeSlot(accent, name + ": " + snapshot.health.reason());
  }
  return std::nullopt;
}

GaugeBar::Mode gaugeMode(const ProviderSnapshot& snapshot, Date now) noexcept {
  if (!snapshot.rendersGauge() || !snapshot.isColorTrustworthy(now)) {
    return GaugeBar::Mode::hollow;
  }
  return snapshot.health.kind() == Health::Kind::ok ? GaugeBar::Mode::normal
                                                    : GaugeBar::Mode::stale;
}

/// What a reading of this age is worth.
std::string statusPhrase(const Health& health, const ReadingAge& age) {
  switch (health.kind()) {
    case Health::Kind::ok:
      return (age.isCurrent ? "updated " : "") + age.phrase;
    case Health::Kind::reconnect:
      return health.reason() + ", data " + age.phrase;
    case Health::Kind::rateLimited:
      return "throttled, data " + age.phrase;
    case Health::Kind::serverError:
      return "server error, data " + age.phrase;
    case Health::Kind::stale:
    case Health::Kind::notInstalled:
    case Health::Kind::turnedOff:
      break;
  }
  return "data " + age.phrase;
}

/// What every text about a reading is made of.
struct ReadingTexts {
  std::string name;    ///< of the provider
  std::string suffix;  ///< the advice of a reading that needs the user, with its comma
  ReadingAge age;
  std::string status;
};

MenuSlot windowSlot(const UsageWindow& window, GaugeBar bar, const ReadingTexts& texts) {
  const std::string percent = std::to_string(shownPercent(window.percent)) + "%";
  bar.percent = window.percent;
  MenuSlot slot{.bar = bar, .rendersGauge = true, .age = texts.age, .windowLabel = window.label};
  if (bar.mode == GaugeBar::Mode::hollow) {
    const std::string last = " last reading " + window.label + " " + percent;
    const std::string when = ", " + texts.age.phrase + texts.suffix;
    slot.token = shortAge(texts.age.seconds);
    slot.tooltip = texts.name + ":" + last + " used" + when;
    slot.spoken = texts.name + last + when;
    return slot;
  }
  const std::string used = " " + window.label + (texts.age.isCurrent ? " " : " was ") + percent;
  slot.token = percent;
  slot.tooltip = texts.name + ":" + used + " used, " + texts.status;
  slot.spoken = texts.name + used + ", " + texts.status;
  slot.resetsAt = window.resetsAt;
  return slot;
}

/// The provider has windows, but not the one asked for: an empty gauge and the headline in words.
MenuSlot otherWindowSlot(double headline, std::string_view label, ProviderAccent accent,
                         const ReadingTexts& texts) {
  const std::string text = std::string(texts.age.isCurrent ? " " : " was ") +
                           std::to_string(shownPercent(headline)) + "% used (no " +
                           std::string(label.empty() ? "that" : label) + " limit), " + texts.status;
  return {.bar = {.accent = accent},
          .tooltip = texts.name + ":" + text,
          .spoken = texts.name + text,
          .rendersGauge = true,
          .age = texts.age};
}

/// Colours a slot by its window and names the colour.
void tint(MenuSlot& slot, ProviderAccent accent) {
  slot.bar.accent = slotAccent(RingColorMode::byWindow, accent, slot.windowLabel);
  if (const auto word = menuSlotColorWord(slot.bar)) {
    slot.tooltip.append(", ").append(*word);
  }
}

/// Whether a text is wanted of a known window that `outer` does not show.
bool otherTextWanted(const MenuSlot& outer, const MenuBarTextPrefs& prefs) noexcept {
  return std::ranges::any_of(knownKinds, [&](MenuBarWindowKind kind) {
    return outer.windowLabel != limitLabel(kind) && prefs.covers(limitLabel(kind));
  });
}

struct SlotTexts {
  std::optional<std::string> token;
  std::optional<std::string> reset;

  [[nodiscard]] bool any() const noexcept { return token || reset; }
};

/// What is printed of a slot.
SlotTexts printedTexts(const MenuSlot& slot, const MenuBarTextPrefs& prefs, Date now) {
  SlotTexts texts;
  if (covers(prefs.percent, slot.windowLabel)) {
    texts.token = slot.token;
  }
  if (covers(prefs.reset, slot.windowLabel)) {
    texts.reset = menuResetToken(slot.resetsAt, now);
  }
  return texts;
}

}  // namespace

std::vector<MenuBarWindowKind> availableMenuWindowKinds(const ProviderSnapshot& snapshot) {
  std::vector kinds{MenuBarWindowKind::automatic};
  std::ranges::copy_if(knownKinds, std::back_inserter(kinds),
                       [&](MenuBarWindowKind kind) { return offers(snapshot, kind); });
  return kinds;
}

std::optional<UsageWindow> resolveMenuWindow(MenuBarWindowKind kind,
                                             const ProviderSnapshot& snapshot) {
  const bool automatic = kind == MenuBarWindowKind::automatic;
  const UsageWindow* found =
      snapshot.window(limitLabel(automatic ? MenuBarWindowKind::fiveHour : kind));
  if (found == nullptr && automatic) {
    found = snapshot.headlineWindow();
  }
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

MenuBarWindowKind normalizedMenuWindowKind(MenuBarWindowKind kind,
                                           const ProviderSnapshot* snapshot) {
  const bool known = snapshot != nullptr && snapshot->isUsable();
  return !known || offers(*snapshot, kind) ? kind : MenuBarWindowKind::automatic;
}

MenuBarWindowKind menuGaugeWindow(MenuBarWindowKind kind, const ProviderSnapshot& snapshot,
                                  const MenuBarTextPrefs& prefs) {
  if (kind != MenuBarWindowKind::automatic) {
    return kind;
  }
  const auto* const wanted = std::ranges::find_if(knownKinds, [&](MenuBarWindowKind known) {
    return offers(snapshot, known) && prefs.covers(limitLabel(known));
  });
  return wanted != knownKinds.end() ? *wanted : kind;
}

ProviderSnapshot runningWindowsOnly(const ProviderSnapshot& snapshot, Date now) {
  ProviderSnapshot running = snapshot;
  std::erase_if(running.windows, [now](const UsageWindow& window) {
    return window.resetsAt && !(*window.resetsAt > now);
  });
  return running;
}

std::vector<MenuBarTextScope> availableTextScopes(const ProviderSnapshot* snapshot) {
  using enum MenuBarTextScope;
  const bool five = snapshot != nullptr && offers(*snapshot, MenuBarWindowKind::fiveHour);
  const bool week = snapshot != nullptr && offers(*snapshot, MenuBarWindowKind::weekly);
  if (five && week) {
    return {off, fiveHour, weekly, both};
  }
  if (five) {
    return {off, fiveHour};
  }
  return {off, week ? weekly : both};
}

std::string_view textScopeTitle(MenuBarTextScope scope,
                                std::span<const MenuBarTextScope> offered) noexcept {
  return offered.size() == 2 && scope != MenuBarTextScope::off ? "On" : title(scope);
}

MenuBarTextScope displayedTextScope(MenuBarTextScope scope,
                                    std::span<const MenuBarTextScope> offered) noexcept {
  const bool keep = scope == MenuBarTextScope::off || offered.empty() ||
                    std::ranges::find(offered, scope) != offered.end();
  return keep ? scope : offered.back();
}

MenuBarTextPrefs effectivePrefs(const MenuBarTextPrefs& prefs, const ProviderSnapshot* snapshot) {
  if (snapshot == nullptr || availableTextScopes(snapshot).size() != 2) {
    return prefs;
  }
  const auto all = [](MenuBarTextScope scope) {
    return scope == MenuBarTextScope::off ? scope : MenuBarTextScope::both;
  };
  return {.percent = all(prefs.percent), .reset = all(prefs.reset), .labels = prefs.labels};
}

MenuSlot resolveMenuSlot(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                         ProviderAccent accent, Date now) {
  if (auto withheld = withheldSlot(snapshot, accent)) {
    return *std::move(withheld);
  }
  ReadingTexts texts{.name = std::string(displayName(snapshot.provider)),
                     .age = readingAge(secondsBetween(snapshot.capturedAt, now))};
  texts.status = statusPhrase(snapshot.health, texts.age);
  if (snapshot.health.kind() == Health::Kind::reconnect) {
    texts.suffix = ", " + snapshot.health.reason();
  }

  const MenuBarWindowKind kind = normalizedMenuWindowKind(window, &snapshot);
  if (const auto running = resolveMenuWindow(kind, runningWindowsOnly(snapshot, now))) {
    return windowSlot(*running, {.mode = gaugeMode(snapshot, now), .accent = accent}, texts);
  }
  const auto past = resolveMenuWindow(kind, snapshot);
  if (past && past->resetsAt && *past->resetsAt <= now) {
    MenuSlot slot = noGaugeSlot(accent, texts.name + ": " + past->label +
                                            " window reset, no new reading yet" + texts.suffix);
    slot.windowLabel = past->label;
    return slot;
  }
  const auto headline = snapshot.headlinePercent();
  if (!headline) {
    return noGaugeSlot(accent, texts.name + ": no reading");
  }
  return otherWindowSlot(*headline, limitLabel(kind), accent, texts);
}

std::optional<MenuSlot> menuInnerSlot(const MenuSlot& outer, const ProviderSnapshot& snapshot,
                                      ProviderAccent accent, Date now) {
  if (!outer.windowLabel) {
    return std::nullopt;
  }
  const auto* const other = std::ranges::find_if(knownKinds, [&](MenuBarWindowKind kind) {
    return offers(snapshot, kind) && *outer.windowLabel != limitLabel(kind);
  });
  if (other == knownKinds.end()) {
    return std::nullopt;
  }
  MenuSlot slot = resolveMenuSlot(snapshot, *other, accent, now);
  return slot.windowLabel == limitLabel(*other) ? std::optional(std::move(slot)) : std::nullopt;
}

MenuGauge resolveMenuGauge(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                           const MenuBarTextPrefs& prefs, MenuBarStyle style, ProviderAccent accent,
                           RingColorMode colors, Date now) {
  MenuGauge gauge{.prefs = effectivePrefs(prefs, &snapshot)};
  gauge.outer =
      resolveMenuSlot(snapshot, menuGaugeWindow(window, snapshot, gauge.prefs), accent, now);
  // A pill draws one window: the other is resolved for its text, or in place of a gauge not drawn.
  if (style == MenuBarStyle::rings || !gauge.outer.rendersGauge ||
      otherTextWanted(gauge.outer, gauge.prefs)) {
    gauge.inner = menuInnerSlot(gauge.outer, snapshot, accent, now);
  }
  if (colors == RingColorMode::byWindow) {
    tint(gauge.outer, accent);
    if (gauge.inner) {
      tint(*gauge.inner, accent);
    }
  }
  return gauge;
}

ProviderAccent slotAccent(RingColorMode colors, ProviderAccent accent,
                          std::optional<std::string_view> label) noexcept {
  if (colors == RingColorMode::byUsage) {
    return accent;
  }
  if (label == limitLabel(MenuBarWindowKind::fiveHour)) {
    return ProviderAccent::teal;
  }
  return label == limitLabel(MenuBarWindowKind::weekly) ? ProviderAccent::purple
                                                        : ProviderAccent::automatic;
}

std::optional<std::string_view> menuSlotColorWord(const GaugeBar& bar) noexcept {
  if (bar.mode == GaugeBar::Mode::stale) {
    return "grey";
  }
  if (bar.mode == GaugeBar::Mode::hollow) {
    return std::nullopt;
  }
  if (bar.percent >= redFromPercent) {
    return "red";
  }
  return bar.accent != ProviderAccent::automatic ? std::optional(rawValue(bar.accent))
                                                 : std::nullopt;
}

MenuBarSegment menuBarSegment(const MenuGauge& gauge, MenuBarStyle style, Date now) {
  const SlotTexts outer = printedTexts(gauge.outer, gauge.prefs, now);
  MenuBarSegment segment{.bar = gauge.outer.bar,
                         .token = outer.token,
                         .reset = outer.reset,
                         .rendersBar = gauge.outer.rendersGauge};
  if (gauge.prefs.labels && outer.any()) {
    segment.label = menuWindowShortLabel(gauge.outer.windowLabel);
  }
  if (gauge.inner) {
    SlotTexts inner = printedTexts(*gauge.inner, gauge.prefs, now);
    // In a ring nothing else tells that a lone value is not the outer window's.
    if (inner.any() && (gauge.prefs.labels || (style == MenuBarStyle::rings && !outer.any()))) {
      segment.innerLabel = menuWindowShortLabel(gauge.inner->windowLabel);
    }
    segment.inner = gauge.inner->bar;
    segment.rendersInner = gauge.inner->rendersGauge;
    segment.innerToken = std::move(inner.token);
    segment.innerReset = std::move(inner.reset);
  }
  return segment;
}

std::vector<MenuBarSegment> menuBarSegments(std::span<const MenuGauge> gauges, MenuBarStyle style,
                                            Date now) {
  std::vector<MenuBarSegment> segments;
  segments.reserve(gauges.size());
  for (const MenuGauge& gauge : gauges) {
    segments.push_back(menuBarSegment(gauge, style, now));
  }
  return segments;
}

bool isDrawn(const MenuGauge& gauge) noexcept {
  const auto shows = [](const MenuSlot& slot) { return slot.rendersGauge || slot.windowLabel; };
  return shows(gauge.outer) || (gauge.inner && shows(*gauge.inner));
}

std::string segmentText(const MenuBarSegment& segment) {
  std::string text;
  for (const auto* part : {&segment.label, &segment.token, &segment.reset, &segment.innerLabel,
                           &segment.innerToken, &segment.innerReset}) {
    if (*part) {
      text += (text.empty() ? "" : " ") + **part;
    }
  }
  return text;
}

MenuSegmentLines menuSegmentLines(const MenuGauge& gauge, const MenuBarSegment& segment, Date now,
                                  const LocalTimeText& localTime) {
  MenuSegmentLines lines;
  const auto add = [&](const MenuSlot& slot, bool printsReset) {
    const auto reset = printsReset ? windowResetText(slot.resetsAt, now, localTime) : std::nullopt;
    const std::string ending = reset ? ", " + *reset : "";
    lines.tooltip.push_back(slot.tooltip + ending);
    lines.spoken.push_back(slot.spoken + ending);
  };
  add(gauge.outer, segment.reset.has_value());
  if (gauge.inner) {
    add(*gauge.inner, segment.innerReset.has_value());
  }
  return lines;
}

std::optional<std::string> menuResetToken(std::optional<Date> resetsAt, Date now) {
  if (!resetsAt || !(*resetsAt > now)) {
    return std::nullopt;
  }
  const std::int64_t minutes =
      std::max<std::int64_t>(1, whole(secondsUntil(*resetsAt, now), minute));
  if (minutes < minutesPerHour) {
    return std::to_string(minutes) + "m";
  }
  if (minutes < minutesPerDay) {
    return std::to_string(minutes / minutesPerHour) + "h" + twoDigits(minutes % minutesPerHour) +
           "m";
  }
  const std::string days = std::to_string(minutes / minutesPerDay) + "d";
  // From ten days on the hours say nothing more.
  return minutes < 10 * minutesPerDay ? days + twoDigits(minutes / minutesPerHour % 24) + "h"
                                      : days;
}

std::optional<std::string> windowResetText(std::optional<Date> resetsAt, Date now,
                                           const LocalTimeText& localTime) {
  if (!resetsAt) {
    return std::nullopt;
  }
  const double remaining = secondsUntil(*resetsAt, now);
  if (!(remaining > 0)) {
    return "window reset, no new reading yet";
  }
  const std::int64_t minutes = whole(remaining, minute);
  if (remaining < hour) {
    return "resets in " + std::to_string(std::max<std::int64_t>(1, minutes)) + "m";
  }
  if (remaining < day) {
    return "resets in " + std::to_string(minutes / minutesPerHour) + "h " +
           std::to_string(minutes % minutesPerHour) + "m";
  }
  return "resets " + localTime.weekdayAndTime(std::min(*resetsAt, distantFuture));
}

std::optional<std::string> menuWindowShortLabel(std::optional<std::string_view> label) {
  if (label == limitLabel(MenuBarWindowKind::fiveHour)) {
    return "5h";
  }
  return label == limitLabel(MenuBarWindowKind::weekly) ? std::optional<std::string>("wk")
                                                        : std::nullopt;
}

std::string shortAge(double seconds) {
  if (seconds >= day) {
    return std::to_string(std::min<std::int64_t>(whole(seconds, day), 99)) + "d";
  }
  if (seconds >= hour) {
    return std::to_string(whole(seconds, hour)) + "h";
  }
  return std::to_string(std::max<std::int64_t>(1, whole(seconds, minute))) + "m";
}

MenuBarEmptyState menuBarEmptyStateText(bool anyProviderPresent) noexcept {
  if (!anyProviderPresent) {
    return {.tooltip = "Marigold: no data yet", .spoken = "Marigold, no data yet"};
  }
  return {.tooltip = "Marigold: no providers shown in the menu bar. Enable one in the popover.",
          .spoken = "Marigold, no providers shown in the menu bar. Open Marigold to enable one."};
}

}  // namespace marigold
