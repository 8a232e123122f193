#include "bar/MenuBarSlots.h"

#include <algorithm>
#include <utility>

#include "bar/MenuBarWindows.h"
#include "bar/Palette.h"

namespace marigold {

namespace {

/// A slot that draws no gauge and prints no percentage.
MenuSlot noGaugeSlot(ProviderAccent accent, const std::string& tooltip, std::string spoken) {
  return {.bar = {.accent = accent},
          .tooltip = tooltip,
          .tooltipWithoutAge = tooltip,
          .spoken = std::move(spoken)};
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

/// What a reading is worth, up to the words for how old it is.
std::string statusLead(const Health& health, bool isCurrent) {
  switch (health.kind()) {
    case Health::Kind::ok:
      return isCurrent ? "updated " : "";
    case Health::Kind::reconnect:
      return health.reason() + ", data ";
    case Health::Kind::rateLimited:
      return "throttled, data ";
    case Health::Kind::serverError:
      return "server error, data ";
    case Health::Kind::stale:
    case Health::Kind::notInstalled:
    case Health::Kind::turnedOff:
      break;
  }
  return "data ";
}

/// What every text about a reading is made of.
struct ReadingTexts {
  std::string name;    ///< of the provider
  std::string suffix;  ///< the advice of a reading that needs the user, with its comma
  ReadingAge age;
  std::string lead;  ///< what the reading is worth, up to the words for its age
};

/// Sets the texts of a slot about a reading: what is said before the age, as hover text and spoken,
/// then how old the reading is, then `ending`.
void setTexts(MenuSlot& slot, const std::string& tooltip, const std::string& spoken,
              const ReadingAge& age, const std::string& ending = {}) {
  slot.age = age;
  slot.tooltip = tooltip + age.phrase + ending;
  slot.tooltipWithoutAge = tooltip + ending;
  slot.spoken = spoken + age.phrase + ending;
}

MenuSlot windowSlot(const UsageWindow& window, GaugeBar bar, const ReadingTexts& texts) {
  const std::string percent = std::to_string(shownPercent(window.percent)) + "%";
  bar.percent = window.percent;
  MenuSlot slot{.bar = bar, .rendersGauge = true, .windowLabel = window.label};
  if (bar.mode == GaugeBar::Mode::hollow) {
    const std::string last = " last reading " + window.label + " " + percent;
    slot.token = shortAge(texts.age.seconds);
    setTexts(slot, texts.name + ":" + last + " used, ", texts.name + last + ", ", texts.age,
             texts.suffix);
    return slot;
  }
  const std::string used = " " + window.label + (texts.age.isCurrent ? " " : " was ") + percent;
  slot.token = percent;
  slot.resetsAt = window.resetsAt;
  setTexts(slot, texts.name + ":" + used + " used, " + texts.lead,
           texts.name + used + ", " + texts.lead, texts.age);
  return slot;
}

/// The provider has windows, but not the one asked for: an empty gauge and the headline in words.
MenuSlot otherWindowSlot(double headline, std::string_view label, ProviderAccent accent,
                         const ReadingTexts& texts) {
  const std::string text = std::string(texts.age.isCurrent ? " " : " was ") +
                           std::to_string(shownPercent(headline)) + "% used (no " +
                           std::string(label.empty() ? "that" : label) + " limit), " + texts.lead;
  MenuSlot slot{.bar = {.accent = accent}, .rendersGauge = true};
  setTexts(slot, texts.name + ":" + text, texts.name + text, texts.age);
  return slot;
}

/// Colours a slot by its window and names the colour.
void tint(MenuSlot& slot, ProviderAccent accent) {
  slot.bar.accent = slotAccent(RingColorMode::byWindow, accent, slot.windowLabel);
  if (const auto word = menuSlotColorWord(slot.bar)) {
    slot.tooltip.append(", ").append(*word);
    slot.tooltipWithoutAge.append(", ").append(*word);
  }
}

/// Whether a text is wanted of a known window that `outer` does not show.
bool otherTextWanted(const MenuSlot& outer, const MenuBarTextPrefs& prefs) noexcept {
  return std::ranges::any_of(knownMenuWindowKinds, [&](MenuBarWindowKind kind) {
    return outer.windowLabel != limitLabel(kind) && prefs.covers(limitLabel(kind));
  });
}

}  // namespace

MenuSlot resolveMenuSlot(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                         ProviderAccent accent, Date now) {
  if (auto withheld = withheldSlot(snapshot, accent)) {
    return *std::move(withheld);
  }
  ReadingTexts texts{.name = std::string(displayName(snapshot.provider)),
                     .age = readingAge(secondsBetween(snapshot.capturedAt, now))};
  texts.lead = statusLead(snapshot.health, texts.age.isCurrent);
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
  const auto* const other = std::ranges::find_if(knownMenuWindowKinds, [&](MenuBarWindowKind kind) {
    return snapshot.window(limitLabel(kind)) != nullptr && *outer.windowLabel != limitLabel(kind);
  });
  if (other == knownMenuWindowKinds.end()) {
    return std::nullopt;
  }
  MenuSlot slot = resolveMenuSlot(snapshot, *other, accent, now);
  return slot.windowLabel == limitLabel(*other) ? std::optional(std::move(slot)) : std::nullopt;
}

MenuGauge resolveMenuGauge(const ProviderSnapshot& snapshot, MenuBarWindowKind window,
                           const MenuBarTextPrefs& prefs, MenuBarStyle style, ProviderAccent accent,
                           RingColorMode colors, Date now) {
  MenuGauge gauge{.prefs = prefs.effective(&snapshot)};
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
  if (bar.percent >= redFrom) {
    return "red";
  }
  return bar.accent != ProviderAccent::automatic ? std::optional(rawValue(bar.accent))
                                                 : std::nullopt;
}

}  // namespace marigold
