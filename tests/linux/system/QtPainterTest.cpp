#include <cmath>

#include <QtGui/QFontInfo>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <gtest/gtest.h>

#include "linux/system/QtPainter.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

constexpr Color red{.red = 1};
constexpr std::array scales{1.0, 1.25, 1.5, 2.0};

class QtPainterTest : public testing::Test {
 protected:
  static int alpha(const QImage& image, Point at, double scale = 1) {
    return qAlpha(image.pixel(static_cast<int>(at.x * scale), static_cast<int>(at.y * scale)));
  }
  /// The area that is covered, in points.
  static double ink(const QImage& image, double scale = 1) {
    double sum = 0;
    for (int i = 0; i < image.width() * image.height(); ++i) {
      sum += qAlpha(image.pixel(i % image.width(), i / image.width())) / 255.0;
    }
    return sum / (scale * scale);
  }
  /// The smallest rectangle that holds every pixel that is more than a trace.
  static QRect bounds(const QImage& image) {
    QRect found;
    for (int i = 0; i < image.width() * image.height(); ++i) {
      const QPoint at(i % image.width(), i / image.width());
      found |= qAlpha(image.pixel(at)) > 40 ? QRect(at, QSize(1, 1)) : QRect();
    }
    return found;
  }
  template <class Shape>
  static Drawing one(Size size, Shape shape) {
    return {.size = size, .ops = {{std::move(shape)}}};
  }
  static Drawing written(const std::string& text, const FontStyle& font, double x = 10,
                         double y = 25) {
    return one({100, 40}, Text{{x, y}, text, font, red});
  }

  test::ToolkitApplication application;
  QtTextMeasurer measurer;
};

TEST_F(QtPainterTest, ShapesCoverTheirAreaAtEveryScale) {
  const auto arc = [](double sweep, bool roundCaps = false, Dashes dashes = {}) {
    return DrawOp{StrokeArc{{8, 8}, 6, 2, sweep, red, roundCaps, dashes}};
  };
  const auto pill = [](double level) {
    return DrawOp{FillRoundedRect{{5, 2}, {6, 12}, 3, red, level}};
  };
  const DrawOp frame{StrokeRoundedRect{{4, 4}, {8, 8}, 2, 2, red, {}}};
  const DrawOp loop{StrokeLoop{{{4, 4}, {12, 4}, {12, 12}, {4, 12}}, 2, red}};
  constexpr double ring = M_PI * 24;
  constexpr double full = 6 * 12 - (4 - M_PI) * 9;
  struct Case {
    DrawOp op;
    double ink;
    std::vector<Point> opaque;
    std::vector<Point> clear;
  };
  const std::vector<Case> cases{
      {arc(1), ring - 2, {{2.2, 8}, {8, 13.8}}, {{8, 8}}},
      {arc(0.25), ring / 4, {{12.3, 3.7}}, {{3.7, 3.7}, {3.7, 12.3}, {12.3, 12.3}, {7, 2}}},
      {arc(0.25, true), ring / 4 + M_PI, {{7.7, 2.2}, {14, 8.4}}, {{3.7, 12.3}}},
      {DrawOp{StrokeArc{{8, 8}, 6, 2, 0.25, red, false, {}, 0.25}},
       ring / 4,
       {{12.3, 12.3}},
       {{12.3, 3.7}, {3.7, 12.3}}},
      {arc(1, false, {M_PI * 12 / 16, M_PI * 12 / 16}), ring / 2 + 1, {}, {}},
      {arc(0), 0, {}, {{8, 2}}},
      {pill(0), 0, {}, {}},
      {pill(-1), 0, {}, {}},
      {pill(0.5), full / 2, {{8, 12}}, {{8, 7}}},
      {pill(0.55), full / 2 + 0.05 * 72, {}, {}},
      {pill(0.25), 14, {{8, 12.5}}, {{8, 9}, {5.2, 13.8}}},
      {pill(2), full, {{8, 3}}, {}},
      {frame, 56, {{8, 4.5}, {11.5, 8}}, {{8, 8}, {3.2, 3.2}}},
      {loop, 63, {{8, 4.5}, {4, 8}}, {{8, 8}}}};
  for (const double scale : scales) {
    for (const Case& each : cases) {
      const QImage image = rasterize({.size = {16, 16}, .ops = {each.op}}, scale);
      const auto where = std::to_string(&each - cases.data()) + " at " + std::to_string(scale);
      EXPECT_NEAR(ink(image, scale), each.ink, 1.6) << where;
      for (const Point& at : each.opaque) {
        EXPECT_GT(alpha(image, at, scale), 200) << where << ": " << at.x << "," << at.y;
      }
      for (const Point& at : each.clear) {
        EXPECT_LT(alpha(image, at, scale), 40) << where << ": " << at.x << "," << at.y;
      }
    }
  }
}

TEST_F(QtPainterTest, LayersNestAndSquaresAreFilledInTheMiddle) {
  const Layer inner{{4, 4}, 2, {{FillRoundedRect{{2, 0}, {4, 4}}}}};
  EXPECT_EQ(bounds(rasterize(one({20, 16}, inner), 1)), QRect(8, 4, 8, 8));
  const Layer outer{{-1, 1}, 0.5, {{inner}}};
  EXPECT_EQ(bounds(rasterize(one({20, 16}, outer), 1)), QRect(3, 3, 4, 4));

  const Drawing wide = one({4, 2}, FillRoundedRect{{}, {4, 2}});
  EXPECT_EQ(bounds(rasterizeSquare(wide, 22)), QRect(0, 5, 22, 12));
  EXPECT_EQ(rasterizeSquare(wide, 22).size(), QSize(22, 22));
  EXPECT_EQ(rasterize(wide, 1.3).size(), QSize(6, 3));
  EXPECT_EQ(rasterize(wide, 1.25).size(), QSize(5, 3)) << "whole but for rounding";
  EXPECT_TRUE(rasterize({}, 2).isNull());
}

// One font with digits of equal width and one without.
TEST_F(QtPainterTest, TextsTakeTheSpaceTheyAreMeasuredToTake) {
  using enum FontStyle::Weight;
  for (const char* family : {"DejaVu Sans", "Cantarell"}) {
    QGuiApplication::setFont(QFont(family));
    ASSERT_EQ(QFontInfo(QFont(family)).family(), family);
    for (const FontStyle& font :
         {FontStyle{.size = 11, .weight = medium, .monospacedDigits = true},
          FontStyle{.size = 9.5, .weight = semibold}, FontStyle{.size = 13}}) {
      for (const double scale : scales) {  // letters stand sharply on the base line
        const int base = static_cast<int>(std::round(25.3 * scale));
        const QImage image = rasterize(written("HEH", font, 10, 25.3), scale);
        EXPECT_GT(ink(image.copy(0, base - 1, image.width(), 1)), 2) << family << scale;
        EXPECT_EQ(ink(image.copy(0, base, image.width(), 1)), 0) << family << scale;
        for (const std::string text : {"H42%", "H2h05m", "H711", "Hwk\u2009\u2013"}) {
          const TextExtent extent = measurer.measure(text, font);
          const QImage picture = rasterize(written(text, font), scale);
          const QRectF ink = bounds(picture);
          const double left = std::round(10 * scale);
          const double line = std::round(25 * scale);
          const std::string where = std::string(family) + " " + text + " " +
                                    std::to_string(font.size) + " at " + std::to_string(scale);
          EXPECT_GE(ink.left(), left - 1) << where;
          EXPECT_LE(ink.right(), left + extent.width * scale + 1.2) << where;
          EXPECT_GE(ink.right(), left + (extent.width - 0.2 * font.size) * scale - 1) << where;
          EXPECT_NEAR(ink.top(), line - extent.capHeight * scale, 2.5) << where;
          EXPECT_GE(ink.top(), line - extent.ascent * scale) << where;
          EXPECT_LE(ink.bottom(), line + 1) << where;  // a round digit may reach a little below
          EXPECT_EQ(rasterize(written(text, font, 10.4 / scale + 10 - 10 / scale), scale), picture)
              << where;
        }
      }
    }
  }
}

TEST_F(QtPainterTest, EveryDigitTakesTheWidthOfTheWidest) {
  QGuiApplication::setFont(QFont("Cantarell"));
  const FontStyle equal{.size = 22, .monospacedDigits = true};
  const FontStyle proportional{.size = 22};
  ASSERT_LT(measurer.measure("1", proportional).width, measurer.measure("4", proportional).width);
  for (const char digit : std::string("023456789")) {
    const std::string text{digit, digit, 'H'};
    EXPECT_DOUBLE_EQ(measurer.measure(text, equal).width, measurer.measure("11H", equal).width);
    EXPECT_GE(measurer.measure("1", equal).width,
              measurer.measure(std::string(1, digit), proportional).width);
    // What follows stays where it is.
    const int follows = static_cast<int>(10 + measurer.measure("11", equal).width) + 1;
    const QRect rest(follows, 0, 100 - follows, 40);
    EXPECT_EQ(rasterize(written(text, equal), 1).copy(rest),
              rasterize(written("11H", equal), 1).copy(rest))
        << digit;
  }
}

}  // namespace
}  // namespace marigold
