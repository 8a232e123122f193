// Writes the application's icon in the sizes that iconutil makes an .icns of:
// marigold-iconset DIRECTORY [dev]

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <span>
#include <string>
#include <string_view>

#include "app/AppIcon.h"
#include "macos/MacPictures.h"

using namespace marigold;

namespace {

constexpr double pixelsPerPoint = 2;  // of pictures

// The icon on a square of so many points, with the margin that icons have on a Mac's shelf.
Drawing icon(double side, bool devMarker) {
  constexpr double margin = 0.06;  // of the side
  const Drawing whole = appIcon(devMarker);
  const double scale = side * (1 - 2 * margin) / whole.size.width;
  Drawing drawing{.size = {.width = side, .height = side}, .ops = {}};
  drawing.add(
      Layer{.origin = {.x = side * margin, .y = side * margin}, .scale = scale, .ops = whole.ops});
  return drawing;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  if (words.size() < 2) {
    std::cerr << "usage: marigold-iconset DIRECTORY [dev]\n";
    return EXIT_FAILURE;
  }
  const bool devMarker = words.size() > 2 && std::string_view(words[2]) == "dev";
  const std::filesystem::path directory = words[1];
  std::filesystem::create_directories(directory);
  const PictureFiles pictures = macPictures();
  for (const int points : {16, 32, 128, 256, 512}) {
    for (const int scale : {1, 2}) {
      const std::string side = std::to_string(points);
      const auto file =
          directory / ("icon_" + side + "x" + side + (scale == 2 ? "@2x.png" : ".png"));
      const auto drawn = [&](const TextMeasurer& /*measurer*/) {
        return icon(points * scale / pixelsPerPoint, devMarker);
      };
      if (!pictures.save(drawn, file.string())) {
        std::cerr << "marigold-iconset: cannot write " << file << '\n';
        return EXIT_FAILURE;
      }
    }
  }
  return EXIT_SUCCESS;
}
