#include <array>
#include <cmath>
#include <string>
#include <vector>

#include <QtGui/QFontInfo>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <gtest/gtest.h>

#include "QtPainter.h"
#include "support/ToolkitApplication.h"

namespace marigold {
namespace {

constexpr Color red{.red = 1};
constexpr std::array scales{1.0, 1.25, 1.5, 2.0};

class QtPainterTest : public testing::Test {
 protected:
  static int alpha(const QImage& image, double x, double y, double scale = 1) {
    return qAlpha(image.pixel(static_cast<int>(x * scale), static_cast<int>(y * scale)));
  }
  /// The area that is covered, in points.
  static double ink(const QImage& image, double scale = 1) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        sum += qAlpha(image.pixel(x, y)) / 255.0;
      }
    }
    return sum / (scale * scale);
  }
  /// The smallest rectangle that holds every pixel that is more than a trace.
  static QRect bounds(const QImage& image) {
    QRect found;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        if (qAlpha(image.pixel(x, y)) > 40) {
          found |= QRect(x, y, 1, 1);
        }
      }
    }
    return found;
  }
  template <class Shape>
  static Drawing one(Size size, Shape shape) {
    Drawing drawing{.size = size};
    drawing.add(std::move(shape));
    return drawing;
  }
  static Drawing written(const std::string& text, const FontStyle& font, double x = 10,
                         double y = 25) {
    return one({.width = 100, .height = 40},
               Text{.baseline = {.x = x, .y = y}, .text = text, .font = font, .color = red});
  }

  test::ToolkitApplication application;
  QtTextMeasurer measurer;
};

TEST_F(QtPainterTest, ArcsRunClockwiseFromTheTop) {
  for (const double scale : scales) {
    StrokeArc arc{.center = {.x = 8, .y = 8}, .radius = 6, .width = 2, .sweep = 0.25, .color = red};
    const auto drawn = [&] { return rasterize(one({.width = 16, .height = 16}, arc), scale); };
    const QImage quarter = drawn();
    EXPECT_GT(alpha(quarter, 12.3, 3.7, scale), 200) << scale;
    for (const auto& [x, y] : {std::pair{3.7, 3.7}, {3.7, 12.3}, {12.3, 12.3}, {7.0, 2.0}}) {
      EXPECT_EQ(alpha(quarter, x, y, scale), 0) << x << " " << y << " at " << scale;
    }
    arc.roundCaps = true;  // which reach over both ends
    EXPECT_GT(alpha(drawn(), 7.9, 2.0, scale), 150) << scale;
    EXPECT_NEAR(ink(drawn(), scale), ink(quarter, scale) + M_PI, 0.5) << scale;
    arc.roundCaps = false;
    arc.sweep = 1;
    EXPECT_NEAR(ink(drawn(), scale), M_PI * 24, 4) << scale;  // the toolkit's circles have corners
    EXPECT_NEAR(ink(drawn(), scale), 4 * ink(quarter, scale), 2) << scale;
    arc.dashes = {.dash = M_PI * 12 / 16, .gap = M_PI * 12 / 16};  // lengths along the line
    EXPECT_NEAR(ink(drawn(), scale), M_PI * 12, 2) << scale;
  }
}

TEST_F(QtPainterTest, LevelsRiseFromTheBottomWithinTheRoundedShape) {
  for (const double scale : scales) {
    FillRoundedRect pill{
        .origin = {.x = 1, .y = 2}, .size = {.width = 6, .height = 12}, .cornerRadius = 3};
    const auto filled = [&](double level) {
      pill.level = level;
      return rasterize(one({.width = 8, .height = 16}, pill), scale);
    };
    const double whole = 6 * 12 - (4 - M_PI) * 9;
    for (const auto& [level, area] : {std::pair(0.0, 0.0),
                                      {-1, 0},
                                      {0.5, whole / 2},
                                      {0.55, whole / 2 + 0.05 * 72},
                                      {1, whole},
                                      {2, whole}}) {
      EXPECT_NEAR(ink(filled(level), scale), area, 0.7) << level << " at " << scale;
    }
    const QImage low = filled(0.25);  // the round end alone
    EXPECT_EQ(alpha(low, 4, 12.5, scale), 255) << scale;
    EXPECT_EQ(alpha(low, 4, 9, scale), 0) << scale;
    EXPECT_LT(alpha(low, 1.1, 13.7, scale), 40) << scale;
  }
}

TEST_F(QtPainterTest, LayersAreCompositedAsOne) {
  const auto square = [](double x, std::vector<DrawOp> more = {}) {
    more.push_back(
        {FillRoundedRect{.origin = {.x = x}, .size = {.width = 4, .height = 4}, .color = red}});
    return more;
  };
  Layer inner{.origin = {.x = 4, .y = 4}, .scale = 2, .opacity = 0.5, .ops = square(0, square(2))};
  QImage image = rasterize(one({.width = 20, .height = 16}, inner), 1);
  for (const double x : {5.0, 9.0, 15.0}) {  // left, overlap, right
    EXPECT_NEAR(alpha(image, x, 6), 128, 1) << x;
  }
  EXPECT_NEAR(ink(image), 0.5 * 12 * 8, 0.5);
  EXPECT_EQ(alpha(image, 3, 6), 0);
  EXPECT_EQ(alpha(image, 6, 12), 0);

  const Layer outer{.origin = {.x = -4}, .opacity = 0.5, .ops = {{inner}}};
  image = rasterize(one({.width = 20, .height = 16}, outer), 1);
  EXPECT_NEAR(alpha(image, 5, 6), 64, 1);
  EXPECT_NEAR(ink(image), 0.25 * 12 * 8, 0.5);
}

TEST_F(QtPainterTest, PaintsAtThePaintersOriginAndSquaresInTheMiddle) {
  const FillRoundedRect mark{.size = {.width = 4, .height = 2}, .color = red};
  const Drawing drawing = one(mark.size, mark);
  QImage image(10, 10, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  {
    QPainter painter(&image);
    painter.translate(1, 3);
    paint(drawing, painter, 2);
  }
  EXPECT_EQ(bounds(image), QRect(1, 3, 8, 4));
  EXPECT_EQ(bounds(rasterizeSquare(drawing, 22)), QRect(0, 6, 22, 11).adjusted(0, -1, 0, 0));
  EXPECT_EQ(rasterizeSquare(drawing, 22).size(), QSize(22, 22));
  EXPECT_EQ(rasterize(drawing, 1.3).size(), QSize(6, 3));
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
      }
      for (const std::string text : {"H42%", "H2h05m", "H711", "Hwk\u2009\u2013"}) {
        const TextExtent extent = measurer.measure(text, font);
        for (const double scale : scales) {
          const QImage image = rasterize(written(text, font), scale);
          const QRectF ink = bounds(image);
          const double left = std::round(10 * scale);
          const double base = std::round(25 * scale);
          const std::string where = std::string(family) + " " + text + " " +
                                    std::to_string(font.size) + " at " + std::to_string(scale);
          EXPECT_GE(ink.left(), left - 1) << where;
          EXPECT_LE(ink.right(), left + extent.width * scale + 1.2) << where;
          EXPECT_GE(ink.right(), left + (extent.width - 0.2 * font.size) * scale - 1) << where;
          EXPECT_LE(ink.top(), base - extent.capHeight * scale + 1) << where;
          EXPECT_GE(ink.top(), base - extent.ascent * scale) << where;
          EXPECT_LE(ink.bottom(), base + 1) << where;  // a round digit may reach a little below
          EXPECT_EQ(rasterize(written(text, font, 10.4 / scale + 10 - 10 / scale), scale),
                    rasterize(written(text, font, 10), scale))
              << where;
        }
      }
    }
  }
}

TEST_F(QtPainterTest, EveryDigitTakesTheWidthOfTheWidest) {
  QGuiApplication::setFont(QFont("Cantarell"));
  const FontStyle equal{.size = 22, .monospacedDigits = true};
  FontStyle proportional = equal;
  proportional.monospacedDigits = false;
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
