#include "bar/MenuBarSegments.h"

#include <utility>

namespace marigold {

namespace {

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
    lines.tooltipWithoutAges.push_back(slot.tooltipWithoutAge + ending);
    lines.spoken.push_back(slot.spoken + ending);
  };
  add(gauge.outer, segment.reset.has_value());
  if (gauge.inner) {
    add(*gauge.inner, segment.innerReset.has_value());
  }
  return lines;
}

}  // namespace marigold
