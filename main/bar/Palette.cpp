#include "bar/Palette.h"

namespace marigold {

namespace {

constexpr Color gray(double level, double opacity) noexcept {
  return {.red = level, .green = level, .blue = level, .opacity = opacity};
}

// A grey as far from black as from white, by the contrast ratio of the web's guidelines: 4.5 to 1.
constexpr double onEither = 0.46;

}  // namespace

Color UsageZone::color(double percent) noexcept {
  if (percent >= redFrom) {
    return red;
  }
  return percent >= amberFrom ? amber : green;
}

ZoneRGB ZoneRGB::color(double percent) noexcept {
  const Color zone = UsageZone::color(percent);
  return {.red = zone.red, .green = zone.green, .blue = zone.blue};
}

std::optional<AccentRGB> rgb(ProviderAccent accent, DarkMenuBar darkMenuBar) noexcept {
  const auto either = [darkMenuBar](AccentRGB dark, AccentRGB light) {
    return darkMenuBar == DarkMenuBar::no ? light : dark;
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

DarkMenuBar effectiveDarkMenuBar(BarColors chosen, DarkMenuBar known) noexcept {
  if (chosen == BarColors::automatic) {
    return known;
  }
  return chosen == BarColors::dark ? DarkMenuBar::yes : DarkMenuBar::no;
}

Color menuBarBarFill(ProviderAccent accent, double percent, DarkMenuBar darkMenuBar) noexcept {
  const auto own = rgb(accent, darkMenuBar);
  if (percent >= redFrom || !own) {
    return UsageZone::color(percent);
  }
  return {.red = own->r, .green = own->g, .blue = own->b};
}

Color ringTrack(DarkMenuBar darkMenuBar, bool highContrast) noexcept {
  switch (darkMenuBar) {
    case DarkMenuBar::yes:
      return gray(1, highContrast ? 0.45 : 0.22);
    case DarkMenuBar::no:
      return gray(0, highContrast ? 0.32 : 0.14);
    case DarkMenuBar::unknown:
      break;
  }
  return gray(onEither, highContrast ? 0.7 : 0.45);
}

// The opacity of label colours on the desktop this was first drawn for; contrast makes it whole, as
// does a colour that is neither black nor white.
Color menuBarLabelColor(DarkMenuBar darkMenuBar, bool highContrast) noexcept {
  if (darkMenuBar == DarkMenuBar::unknown) {
    return gray(onEither, 1);
  }
  return gray(darkMenuBar == DarkMenuBar::yes ? 1 : 0, highContrast ? 1 : 0.85);
}

}  // namespace marigold
