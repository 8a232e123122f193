#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "macos/MacText.h"
#include "macos/gnustep/Program.h"

// The pictures that both desktops' programs draw of the same values, beside each other.

namespace marigold {
namespace {

struct Pixel {
  int red, green, blue;
};

class Image {
 public:
  explicit Image(const std::string& path)
      : bitmap_([NSBitmapImageRep imageRepWithData:[NSData dataWithContentsOfFile:toMac(path)]]),
        data_(bitmap_.bitmapData),
        stride_(bitmap_.bytesPerRow) {}

  [[nodiscard]] int width() const { return static_cast<int>(bitmap_.pixelsWide); }
  [[nodiscard]] int height() const { return static_cast<int>(bitmap_.pixelsHigh); }
  [[nodiscard]] Pixel at(int x, int y) const {
    constexpr int samples = 4;
    const std::uint8_t* const pixel = data_ + y * stride_ + x * samples;
    return {pixel[0], pixel[1], pixel[2]};
  }

 private:
  NSBitmapImageRep* const bitmap_;
  const std::uint8_t* const data_;
  const NSInteger stride_;
};

bool near(const Pixel& one, const Pixel& other, int tolerance) {
  return std::abs(one.red - other.red) <= tolerance &&
         std::abs(one.green - other.green) <= tolerance &&
         std::abs(one.blue - other.blue) <= tolerance;
}

/// The picture of one mode, by each program.
struct Pair {
  explicit Pair(const std::string& mode) {
    for (const std::string program : {MARIGOLD_PROGRAM, MARIGOLD_QT_PROGRAM}) {
      const std::string path = directory.path() + "/picture.png";
      test::Program drawing({program, "--" + mode, path});
      EXPECT_EQ(drawing.status(120), 0) << program << drawing.output();
      images.emplace_back(path);
      std::filesystem::remove(path);
    }
  }
  test::TemporaryDirectory directory;
  std::vector<Image> images;
};

/// A bar of one colour.
struct Bar {
  int left, right, height, color;
};

std::vector<Bar> bars(const Image& image) {
  // Of the usage zones, and the same where a reading is no longer the latest.
  constexpr std::array<Pixel, 3> zones{Pixel{71, 199, 140}, {247, 186, 46}, {235, 87, 74}};
  std::vector<Bar> found;
  std::array<bool, zones.size()> isOpen{};
  for (int y = 0; y < image.height(); ++y) {
    for (int zone = 0; zone < 3; ++zone) {
      const auto which = static_cast<std::size_t>(zone);
      int left = -1;
      int right = -1;
      for (int x = 0; x < image.width(); ++x) {
        if (near(image.at(x, y), zones[which], 12)) {
          left = left < 0 ? x : left;
          right = x;
        }
      }
      if (right - left > 10) {
        if (!std::exchange(isOpen[which], true)) {
          found.push_back({left, right, 0, zone});
        }
        const auto mine = std::ranges::find(found.rbegin(), found.rend(), zone, &Bar::color);
        mine->left = std::min(mine->left, left);
        mine->right = std::max(mine->right, right);
        ++mine->height;
      } else {
        isOpen[which] = false;
      }
    }
  }
  return found;
}

TEST(MacPictures, ShowTheCardsThatQtShows) {
  for (const std::string mode :
       {"shot", "shot-settings", "shot-off", "shot-reconnect", "shot-held"}) {
    const Pair pair(mode);
    const Image& mac = pair.images[0];
    const Image& qt = pair.images[1];
    EXPECT_EQ(mac.width(), qt.width()) << mode;
    EXPECT_NEAR(mac.height(), qt.height(), 0.1 * qt.height()) << mode << ": texts are near";
    for (int x = 40; x < mac.width() - 40; x += 40) {
      EXPECT_TRUE(near(mac.at(x, 4), qt.at(x, 4), 2)) << mode << ": the ground";
    }
    if (mode == "shot-settings") {
      continue;  // it has controls, which are each toolkit's own
    }
    const std::vector<Bar> here = bars(mac);
    const std::vector<Bar> there = bars(qt);
    ASSERT_EQ(here.size(), there.size()) << mode;
    for (std::size_t i = 0; i < here.size(); ++i) {
      EXPECT_EQ(here[i].color, there[i].color) << mode << i;
      EXPECT_NEAR(here[i].left, there[i].left, 2) << mode << i;
      EXPECT_NEAR(here[i].right, there[i].right, 2) << mode << i;
      EXPECT_NEAR(here[i].height, there[i].height, 2) << mode << i;
    }
  }
}

TEST(MacPictures, ShowTheMarkThatQtShows) {
  const Pair pair("shot-menubar");
  const Image& mac = pair.images[0];
  const Image& qt = pair.images[1];
  ASSERT_EQ(mac.width(), qt.width());
  ASSERT_EQ(mac.height(), qt.height());
  // Gauges without texts stand in columns of their own: pixel by pixel but for their edges.
  const auto differing = [&](int left, int right, int tolerance) {
    int count = 0;
    for (int y = 0; y < mac.height(); ++y) {
      for (int x = left; x < right; ++x) {
        count += near(mac.at(x, y), qt.at(x, y), tolerance) ? 0 : 1;
      }
    }
    return count / static_cast<double>((right - left) * mac.height());
  };
  for (const int left : {715, 1515}) {
    EXPECT_LT(differing(left, left + 60, 60), 0.02) << left;
  }
  for (const int left : {325, 1125}) {  // the first gauge of each row
    EXPECT_LT(differing(left, left + 40, 60), 0.02) << left;
  }
  // Each row's texts begin where Qt's do and are about as wide.
  const int row = 56;
  for (int y = 20; y + row < mac.height(); y += row) {
    std::array<int, 2> ends{};
    for (std::size_t i = 0; i < 2; ++i) {
      const Image& image = pair.images[i];
      const Pixel ground = image.at(2, 2);
      for (int x = 0; x < 700; ++x) {
        for (int line = y; line < y + 50; ++line) {
          ends[i] = near(image.at(x, line), ground, 60) ? ends[i] : x;
        }
      }
    }
    EXPECT_NEAR(ends[0], ends[1], 0.1 * ends[1]) << y;
  }
}

}  // namespace
}  // namespace marigold
