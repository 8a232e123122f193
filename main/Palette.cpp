#include "Palette.h"

namespace marigold {

namespace {

constexpr Color gray(double level, double opacity) noexcept {
  return {.red = level, .green = level, .blue = level, .opacity = opacity};
}

}  // namespace

Color usageZone::color(double percent) noexcept {
  if (percent >= redFrom) {
    return red;
  }
  return percent >= amberFrom ? amber : green;
}

ZoneRGB ZoneRGB::color(double percent) noexcept {
  const Color zone = usageZone::color(percent);
  return {.red = zone.red, .green = zone.green, .blue = zone.blue};
}

std::optional<AccentRGB> rgb(ProviderAccent accent, bool darkMenuBar) noexcept {
  const auto either = [darkMenuBar](AccentRGB dark, AccentRGB light) {
    return darkMenuBar ? dark : light;
  };
  switch (accent) {
    case ProviderAccent::automatic:
      return std::nullopt;
    case ProviderAccent::teal:
      return either({.r = 0.20, .g = 0.66, .b = 0.72}, {.r = 0.07, .g = 0.47, .b = 0.53});
    case ProviderAccent::blue:
      return either({.r = 0.30, .g = 0.56, .b = 0.90}, {.r = 0.16, .g = 0.40, .b = 0.80});
    case ProviderAccent::indigo:
      return either({.r = 0.45, .g = 0.45, .b = 0.85}, {.r = 0.34, .g = 0.32, .b = 0.80});
    case ProviderAccent::purple:
      return either({.r = 0.66, .g = 0.42, .b = 0.85}, {.r = 0.54, .g = 0.26, .b = 0.74});
    case ProviderAccent::pink:
      return either({.r = 0.90, .g = 0.42, .b = 0.62}, {.r = 0.78, .g = 0.18, .b = 0.46});
    case ProviderAccent::orange:
      return either({.r = 0.95, .g = 0.56, .b = 0.24}, {.r = 0.76, .g = 0.37, .b = 0.02});
    case ProviderAccent::slate:
      return either({.r = 0.50, .g = 0.56, .b = 0.62}, {.r = 0.36, .g = 0.42, .b = 0.48});
  }
  return std::nullopt;
}

Color menuBarBarFill(ProviderAccent accent, double percent, bool darkMenuBar) noexcept {
  const auto own = rgb(accent, darkMenuBar);
  if (percent >= redFrom || !own) {
    return usageZone::color(percent);
  }
  return {.red = own->r, .green = own->g, .blue = own->b};
}

Color ringTrack(bool darkMenuBar, bool highContrast) noexcept {
  if (darkMenuBar) {
    return gray(1, highContrast ? 0.45 : 0.22);
  }
  return gray(0, highContrast ? 0.32 : 0.14);
}

// The opacity of label colours on the desktop this was first drawn for; contrast makes it whole.
Color menuBarLabelColor(bool darkMenuBar, bool highContrast) noexcept {
  return gray(darkMenuBar ? 1 : 0, highContrast ? 1 : 0.85);
}

}  // namespace marigold
