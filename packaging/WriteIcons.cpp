// Writes the application's icons below a directory, as an icon theme has them:
// marigold-icons DIRECTORY NAME

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <variant>

#include <QtCore/QString>
#include <QtGui/QImage>

#include "app/AppIcon.h"
#include "linux/system/QtPainter.h"

using namespace marigold;

namespace {

// A drawing as SVG. Of the shapes only those that icons are made of.
class Svg {
 public:
  explicit Svg(const Drawing& drawing) {
    text_ << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << drawing.size.width
          << R"(" height=")" << drawing.size.height << R"(" viewBox="0 0 )" << drawing.size.width
          << ' ' << drawing.size.height << "\">\n";
    for (const DrawOp& op : drawing.ops) {
      std::visit(*this, op.shape);
    }
    text_ << "</svg>\n";
  }

  /// Empty when there was a shape that cannot be written.
  [[nodiscard]] std::string text() const { return complete_ ? text_.str() : ""; }

  void operator()(const FillRoundedRect& rect) {
    complete_ = complete_ && rect.level == 1;
    text_ << R"(<rect x=")" << rect.origin.x << R"(" y=")" << rect.origin.y << R"(" width=")"
          << rect.size.width << R"(" height=")" << rect.size.height << R"(" rx=")"
          << rect.cornerRadius << R"(" fill=")" << code(rect.color) << "\"/>\n";
  }
  template <class Other>
  void operator()(const Other& /*shape*/) {
    complete_ = false;
  }

 private:
  static std::string code(const Color& color) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string written = "#";
    for (const double part : {color.red, color.green, color.blue}) {
      const auto level = static_cast<unsigned>(std::lround(part * 255));
      written += digits.at(level / 16);
      written += digits.at(level % 16);
    }
    return written;
  }

  std::ostringstream text_;
  bool complete_ = true;
};

bool write(const std::filesystem::path& path, const Drawing& drawing) {
  const std::string text = Svg(drawing).text();
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path);
  file << text;
  return !text.empty() && file.flush().good();
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  if (words.size() != 3) {
    std::cerr << "usage: marigold-icons DIRECTORY NAME\n";
    return EXIT_FAILURE;
  }
  const std::filesystem::path theme = words[1];
  const std::string name = words[2];
  const Drawing icon = appIcon(false);
  bool done = write(theme / "scalable/apps" / (name + ".svg"), icon);
  for (const int side : {16, 22, 24, 32, 48, 64, 128, 256}) {
    std::ostringstream place;
    place << side << 'x' << side << "/apps/" << name << ".png";
    const auto path = theme / place.str();
    std::filesystem::create_directories(path.parent_path());
    done = rasterizeSquare(icon, side).save(QString::fromStdString(path), "PNG") && done;
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
