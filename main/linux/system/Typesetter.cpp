#include "linux/system/Typesetter.h"

#include <algorithm>
#include <utility>

#include <QtCore/QCoreApplication>
#include <QtGui/QFontMetricsF>
#include <QtGui/QGlyphRun>
#include <QtGui/QGuiApplication>
#include <QtGui/QTextLayout>

#include "base/AsciiText.h"

namespace marigold {

namespace {

using Face = Typesetter::Face;
using Glyphs = Typesetter::Glyphs;
using LaidOut = Typesetter::LaidOut;

constexpr std::size_t mostKept = 256;

QFont::Weight toQt(FontStyle::Weight weight) {
  switch (weight) {
    case FontStyle::Weight::regular:
      return QFont::Normal;
    case FontStyle::Weight::medium:
      return QFont::Medium;
    case FontStyle::Weight::semibold:
      break;
  }
  return QFont::DemiBold;
}

LaidOut layOutPlainly(const QFont& font, std::string_view text) {
  LaidOut result;
  QTextLayout layout(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())), font);
  layout.beginLayout();
  const QTextLine line = layout.createLine();
  layout.endLayout();
  if (!line.isValid()) {
    return result;
  }
  result.width = line.horizontalAdvance();
  for (const QGlyphRun& run : line.glyphRuns()) {
    Glyphs glyphs{.font = run.rawFont(), .indexes = run.glyphIndexes(), .places = run.positions()};
    for (QPointF& place : glyphs.places) {
      place.ry() -= line.ascent();
    }
    result.glyphs.push_back(std::move(glyphs));
  }
  return result;
}

// The toolkit's fonts cannot be asked for digits of equal width, so each is set in the middle of
// a cell as wide as the widest.
LaidOut withEqualDigits(const Face& face, std::string_view text) {
  LaidOut result;
  const auto append = [&result](const LaidOut& piece, double indent) {
    for (Glyphs glyphs : piece.glyphs) {
      for (QPointF& place : glyphs.places) {
        place.rx() += result.width + indent;
      }
      result.glyphs.push_back(std::move(glyphs));
    }
  };
  while (!text.empty()) {
    if (isDigit(text.front())) {
      const LaidOut& digit = face.digits.at(static_cast<std::size_t>(text.front() - '0'));
      append(digit, (face.digitWidth - digit.width) / 2);
      result.width += face.digitWidth;
      text.remove_prefix(1);
    } else {
      const auto length = std::min(text.find_first_of(asciiDigits), text.size());
      const LaidOut piece = layOutPlainly(face.font, text.substr(0, length));
      append(piece, 0);
      result.width += piece.width;
      text.remove_prefix(length);
    }
  }
  return result;
}

}  // namespace

Typesetter& Typesetter::shared() {
  static Typesetter instance;
  return instance;
}

const Typesetter::Face& Typesetter::face(FontStyle::Weight weight) {
  followInterfaceFont();
  Face& face = faces_.at(static_cast<std::size_t>(weight));
  if (face.digitWidth == 0) {
    fill(face, weight);
  }
  return face;
}

const Typesetter::LaidOut& Typesetter::layOut(std::string_view text, const FontStyle& style) {
  const Face& used = face(style.weight);
  std::string key;
  key += static_cast<char>(style.weight);
  key += style.monospacedDigits ? 'm' : 'p';
  key += text;
  if (const auto known = texts_.find(key); known != texts_.end()) {
    return known->second;
  }
  if (texts_.size() >= mostKept) {
    texts_.clear();
  }
  return texts_
      .emplace(std::move(key), style.monospacedDigits ? withEqualDigits(used, text)
                                                      : layOutPlainly(used.font, text))
      .first->second;
}

QRawFont Typesetter::sized(const QRawFont& font, double pixels) {
  const auto known = std::ranges::find_if(
      sized_, [&](const Sized& each) { return each.pixels == pixels && each.from == font; });
  if (known != sized_.end()) {
    return known->font;
  }
  if (sized_.size() >= mostKept) {
    sized_.clear();
  }
  QRawFont result = font;
  result.setPixelSize(pixels);
  sized_.push_back({.from = font, .pixels = pixels, .font = result});
  return result;
}

// Fonts must not outlive the application, whose part they are.
void Typesetter::forget() {
  shared() = Typesetter();
}

void Typesetter::followInterfaceFont() {
  if (QString family = QGuiApplication::font().family(); family != family_) {
    if (family_.isEmpty()) {
      qAddPostRoutine(forget);
    }
    family_ = std::move(family);
    faces_ = {};
    texts_.clear();
    sized_.clear();
  }
}

void Typesetter::fill(Face& face, FontStyle::Weight weight) const {
  face.font = QFont(family_);
  face.font.setPixelSize(layoutPixels);
  face.font.setWeight(toQt(weight));
  // Stems keep their place along the line, which is what the scaled places ask for, and are sharp
  // across it. Coloured fringes would be wrong on a transparent ground.
  face.font.setHintingPreference(QFont::PreferVerticalHinting);
  face.font.setStyleStrategy(QFont::NoSubpixelAntialias);
  face.sample = QRawFont::fromFont(face.font);
  face.capHeight = QFontMetricsF(face.font).capHeight();
  for (std::size_t digit = 0; digit < face.digits.size(); ++digit) {
    const char character = static_cast<char>('0' + digit);
    face.digits.at(digit) = layOutPlainly(face.font, std::string_view(&character, 1));
    face.digitWidth = std::max(face.digitWidth, face.digits.at(digit).width);
  }
}

}  // namespace marigold
