#pragma once

#include <string_view>

#include <QtCore/qglobal.h>

#include "base/Drawing.h"

QT_BEGIN_NAMESPACE
class QColor;
class QImage;
QT_END_NAMESPACE

// Drawings on this desktop. Texts are set in the application's interface font, and drawn where and
// as wide as they are measured, at every scale. All need a running QGuiApplication and its thread.

namespace marigold {

[[nodiscard]] QColor toQt(const Color& color);

/// The drawing with `scale` pixels a point, on a transparent ground; null if it has no extent.
[[nodiscard]] QImage rasterize(const Drawing& drawing, double scale);

/// The drawing as large as it fits in the middle of a transparent square of `pixels` a side.
[[nodiscard]] QImage rasterizeSquare(const Drawing& drawing, int pixels);

/// Measures what these draw.
class QtTextMeasurer final : public TextMeasurer {
 public:
  [[nodiscard]] TextExtent measure(std::string_view text, const FontStyle& font) const override;
};

}  // namespace marigold
