#include "linux/system/LinuxSelfChecks.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include <QtGui/QGuiApplication>
#include <QtGui/QImage>
#include <unistd.h>

#include "base/BoundedFile.h"
#include "base/JsonDocument.h"
#include "linux/request/LinuxTransport.h"
#include "linux/system/FileWatch.h"
#include "linux/system/OffscreenToolkit.h"
#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t largestPreferences = 1 << 20;

bool holdsPreferences(const std::string& path) {
  const auto content = readWholeFile(path, largestPreferences);
  return content ? content->empty() || JsonDocument::parseObject(*content)
                 : content.error() == FileFailure::missing;
}

// A file there can be replaced, or what is missing of the directories made.
bool canBeWritten(const fs::path& path) {
  std::error_code error;
  fs::path directory = path.parent_path();
  while (fs::symlink_status(directory, error).type() == fs::file_type::not_found) {
    directory = directory.parent_path();
  }
  return fs::is_directory(directory, error) && ::access(directory.c_str(), W_OK | X_OK) == 0;
}

// Each digit has a picture of its own, which a font without digits does not give.
bool digitsAreDrawn() {
  const OffscreenToolkit<QGuiApplication> toolkit;
  const FontStyle font{.monospacedDigits = true};
  const double width = QtTextMeasurer().measure("0", font).width;
  std::vector<QImage> drawn;
  for (char digit = '0'; digit <= '9'; ++digit) {
    const std::string text(1, digit);
    constexpr double side = 20;
    Drawing picture{.size = {.width = side, .height = side}};
    picture.add(Text{.baseline = {.x = 4, .y = side - 4}, .text = text, .font = font});
    const QImage image = rasterize(picture, 2);
    if (width <= 0 || QtTextMeasurer().measure(text, font).width != width ||
        std::ranges::find(drawn, image) != drawn.end()) {
      return false;
    }
    drawn.push_back(image);
  }
  return true;
}

}  // namespace

std::vector<SelfCheck> linuxSelfChecks(const Surroundings& surroundings) {
  const std::string preferences = linkTarget(surroundings.preferencesFile());
  return {{.name = "marigold-request lies beside the program, safe from others",
           .holds = openRequestProgram(requestProgram()).isOpen()},
          {.name = "the preferences can be read", .holds = holdsPreferences(preferences)},
          {.name = "the preferences can be stored", .holds = canBeWritten(preferences)},
          {.name = "a font draws the digits, all of one width", .holds = digitsAreDrawn()}};
}

}  // namespace marigold
