#include "popover/PopoverTheme.h"

#include <algorithm>
#include <cstdint>

namespace marigold {

namespace {

constexpr Color rgb(std::uint32_t value) noexcept {
  const auto component = [value](unsigned shift) {
    return static_cast<double>((value >> shift) & 0xFFU) / 0xFF;
  };
  return {.red = component(16), .green = component(8), .blue = component(0)};
}

constexpr Color black(double opacity) noexcept {
  return {.opacity = opacity};
}

constexpr Color white(double opacity) noexcept {
  return {.red = 1, .green = 1, .blue = 1, .opacity = opacity};
}

constexpr PopoverColors light{
    .ground = rgb(0xF2F2F4),
    .edge = black(0.12),
    .card = white(1),
    .cardEdge = black(0.08),
    .separator = black(0.08),
    .text = rgb(0x1C1D1F),
    .secondary = rgb(0x5F6368),
    .track = black(0.10),
    .barOutline = {},
    .neutralBadge = rgb(0xE9EAEC),
    .neutralBadgeText = rgb(0x4A4E54),
    .warningBadge = rgb(0xFDEBC8),
    .warningBadgeText = rgb(0x7A4B00),
    .control = white(1),
    .controlEdge = black(0.18),
    .controlText = rgb(0x1C1D1F),
    .switchOff = black(0.14),
    .accent = rgb(0x2563C9),
    .onAccent = white(1),
    .hover = black(0.05),
    .focusRing = rgb(0x2563C9),
};

constexpr PopoverColors dark{
    .ground = rgb(0x26272A),
    .edge = white(0.12),
    .card = rgb(0x323438),
    .cardEdge = white(0.08),
    .separator = white(0.08),
    .text = rgb(0xF2F3F5),
    .secondary = rgb(0xA9ADB3),
    .track = white(0.14),
    .barOutline = {},
    .neutralBadge = rgb(0x46494E),
    .neutralBadgeText = rgb(0xD0D3D8),
    .warningBadge = rgb(0x4D3F22),
    .warningBadgeText = rgb(0xF3C969),
    .control = rgb(0x44474D),
    .controlEdge = white(0.16),
    .controlText = rgb(0xF2F3F5),
    .switchOff = white(0.20),
    .accent = rgb(0x3A70D4),
    .onAccent = white(1),
    .hover = white(0.06),
    .focusRing = rgb(0x7FB0FF),
};

// Lesser texts at their strongest, edges that show, and bars that do not rest on their colour
// alone.
constexpr PopoverColors withContrast(PopoverColors colors, Color ink, Color secondary) noexcept {
  Color edge = ink;
  edge.opacity = 0.5;
  colors.neutralBadgeText = colors.warningBadgeText = ink;
  colors.secondary = secondary;
  colors.edge = colors.cardEdge = colors.separator = colors.controlEdge = edge;
  colors.barOutline = secondary;
  colors.disabled = 0.7;
  return colors;
}

constexpr PopoverColors lightWithContrast = withContrast(light, black(1), rgb(0x2E3135));
constexpr PopoverColors darkWithContrast = withContrast(dark, white(1), rgb(0xE0E2E6));

}  // namespace

const PopoverColors& popoverColors(const MarigoldTheme& theme) noexcept {
  const bool contrast = theme.contrast == MarigoldTheme::Contrast::increased;
  if (theme.scheme == MarigoldTheme::Scheme::dark) {
    return contrast ? darkWithContrast : dark;
  }
  return contrast ? lightWithContrast : light;
}

double barFillLength(double percent, double length) noexcept {
  constexpr double least = 3;
  constexpr double leastRest = 1;
  if (!(percent > 0)) {
    return 0;
  }
  if (percent >= 100) {
    return length;
  }
  return std::max(least, std::min(length * percent / 100, length - leastRest));
}

}  // namespace marigold
