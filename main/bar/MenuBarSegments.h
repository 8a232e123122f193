#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bar/MenuBarSlots.h"
#include "ports/LocalTimeText.h"

// What is drawn, printed and told of a provider's gauge.

namespace marigold {

/// The gauges and exact short texts drawn for one provider.
struct MenuBarSegment {
  GaugeBar bar;
  std::optional<std::string> token;
  std::optional<GaugeBar> inner;
  std::optional<std::string> innerToken;
  std::optional<std::string> reset;
  std::optional<std::string> innerReset;
  std::optional<std::string> label;
  std::optional<std::string> innerLabel;
  // A bar that its slot does not render is kept, for a drain, but not drawn.
  bool rendersBar = true;
  bool rendersInner = true;

  bool operator==(const MenuBarSegment&) const = default;
};

/// Lines of text, one per slot.
struct MenuSegmentLines {
  std::vector<std::string> tooltip;
  std::vector<std::string> tooltipWithoutAges;
  std::vector<std::string> spoken;
};

[[nodiscard]] MenuBarSegment menuBarSegment(const MenuGauge& gauge, MenuBarStyle style, Date now);
[[nodiscard]] std::vector<MenuBarSegment> menuBarSegments(std::span<const MenuGauge> gauges,
                                                          MenuBarStyle style, Date now);
/// Whether a provider has a place in the mark: some slot has a window or renders a gauge. One that
/// is off, not installed or never read keeps its tooltip only.
[[nodiscard]] bool isDrawn(const MenuGauge& gauge) noexcept;
/// The printed texts in the order the mark draws them, separated by spaces; may be empty.
[[nodiscard]] std::string segmentText(const MenuBarSegment& segment);
/// The lines of the outer and of the inner slot, each with its reset where `segment` prints it.
[[nodiscard]] MenuSegmentLines menuSegmentLines(const MenuGauge& gauge,
                                                const MenuBarSegment& segment, Date now,
                                                const LocalTimeText& localTime);

}  // namespace marigold
