#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <QtCore/QList>
#include <QtCore/QPointF>
#include <QtCore/QString>
#include <QtGui/QFont>
#include <QtGui/QRawFont>

#include "base/Drawing.h"

namespace marigold {

/// What texts in the interface font look like, kept once they were asked for.
///
/// A text is laid out once, at one large size, and its glyphs' places are scaled from there. Laid
/// out at each size anew, rounding would make it wider at one scale than at another.
class Typesetter final {
 public:
  /// The size of a layout, in pixels.
  static constexpr int layoutPixels = 256;

  /// Glyphs of one font with their places from the start of the base line, in layout pixels.
  struct Glyphs {
    QRawFont font;
    QList<quint32> indexes;
    QList<QPointF> places;
  };

  /// A text that is laid out, in layout pixels.
  struct LaidOut {
    std::vector<Glyphs> glyphs;
    double width = 0;
  };

  /// One weight of the interface font.
  struct Face {
    QFont font;
    QRawFont sample;
    double capHeight = 0;
    std::array<LaidOut, 10> digits;
    double digitWidth = 0;  ///< of the widest
  };

  /// The process's only one, as are the toolkit's own fonts. Needs a running QGuiApplication.
  [[nodiscard]] static Typesetter& shared();

  // What is given out holds until the next call.

  [[nodiscard]] const Face& face(FontStyle::Weight weight);
  [[nodiscard]] const LaidOut& layOut(std::string_view text, const FontStyle& style);
  /// A font of a layout in the size that is drawn.
  [[nodiscard]] QRawFont sized(const QRawFont& font, double pixels);

 private:
  struct Sized {
    QRawFont from;
    double pixels = 0;
    QRawFont font;
  };

  Typesetter() = default;
  static void forget();
  void followInterfaceFont();
  void fill(Face& face, FontStyle::Weight weight) const;

  QString family_;
  std::array<Face, 3> faces_;
  std::unordered_map<std::string, LaidOut> texts_;
  std::vector<Sized> sized_;
};

}  // namespace marigold
