#include "app/AppIcon.h"

#include <array>
#include <cmath>
#include <numbers>
#include <utility>

#include "GaugeView.h"

namespace marigold {

namespace {

constexpr double side = 64;
constexpr Point middle{.x = side / 2, .y = side / 2};

// Petals of one size around the middle, and what they leave open between them.
struct Whorl {
  int petals = 0;
  double distance = 0;  // of a petal's center from the middle
  double radius = 0;    // of a petal, without the rim that sets it off from those behind
  double turn = 0;      // of the first petal, in petals
  Color rim;
  Color color;
};

constexpr double rimWidth = 0.8;
constexpr Color heart{.red = 1, .green = 0.89, .blue = 0.55};
constexpr double heartRadius = 3;

// From the outside in, each lighter and over the gaps of the one behind.
constexpr std::array whorls{
    Whorl{.petals = 12,
          .distance = 24,
          .radius = 7.1,
          .turn = 0,
          .rim = {.red = 0.72, .green = 0.27, .blue = 0.03},
          .color = {.red = 0.86, .green = 0.37, .blue = 0.05}},
    Whorl{.petals = 10,
          .distance = 17.2,
          .radius = 6.2,
          .turn = 0.5,
          .rim = {.red = 0.75, .green = 0.3, .blue = 0.03},
          .color = {.red = 0.93, .green = 0.49, .blue = 0.08}},
    Whorl{.petals = 8,
          .distance = 11,
          .radius = 5,
          .turn = 0,
          .rim = {.red = 0.83, .green = 0.39, .blue = 0.04},
          .color = {.red = 0.98, .green = 0.63, .blue = 0.14}},
    Whorl{.petals = 6,
          .distance = 5.4,
          .radius = 3.6,
          .turn = 0.5,
          .rim = {.red = 0.92, .green = 0.52, .blue = 0.08},
          .color = {.red = 1, .green = 0.77, .blue = 0.28}},
};

void addDisc(Drawing& drawing, Point center, double radius, Color color) {
  drawing.add(FillRoundedRect{.origin = {.x = center.x - radius, .y = center.y - radius},
                              .size = {.width = 2 * radius, .height = 2 * radius},
                              .cornerRadius = radius,
                              .color = color});
}

// The petals as discs, so much larger than they are.
void addPetals(Drawing& drawing, const Whorl& whorl, double larger, Color color) {
  for (int petal = 0; petal < whorl.petals; ++petal) {
    const double angle = 2 * std::numbers::pi * (petal + whorl.turn) / whorl.petals;
    addDisc(drawing,
            {.x = middle.x + whorl.distance * std::sin(angle),
             .y = middle.y - whorl.distance * std::cos(angle)},
            whorl.radius + larger, color);
  }
}

}  // namespace

Drawing appIcon(bool devMarker) {
  Drawing drawing{.size = {.width = side, .height = side}};
  for (const Whorl& whorl : whorls) {
    addPetals(drawing, whorl, rimWidth, whorl.rim);
    addPetals(drawing, whorl, 0, whorl.color);
    addDisc(drawing, middle, whorl.distance, whorl.color);
  }
  addDisc(drawing, middle, heartRadius, heart);
  if (devMarker) {
    Drawing marker;
    MenuBarDevMarker::draw(marker, {});
    drawing.add(Layer{.scale = side / MenuBarMetrics::glyph, .ops = std::move(marker.ops)});
  }
  return drawing;
}

}  // namespace marigold
