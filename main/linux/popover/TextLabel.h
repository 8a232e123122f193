#pragma once

#include <string>

#include <QtWidgets/QLabel>

#include "linux/popover/Look.h"

namespace marigold {

/// A native label in a variant of the interface font.
class TextLabel final : public QLabel {
 public:
  enum class Ink : std::uint8_t { primary, secondary, neutralBadge, warningBadge };
  enum class Breaking : std::uint8_t {
    none,
    elided,   ///< rather shortened than that others have less room; then tells all in a tooltip
    wrapped,  ///< over several lines, and can be selected
  };
  struct Style {
    double size = 1;
    QFont::Weight weight = QFont::Normal;
    Ink ink = Ink::primary;
    Breaking breaking = Breaking::none;
  };

  TextLabel(Style style, const Look& look, QWidget& parent);

  void setStyle(Style style);
  /// Shows `text`, or is hidden when there is none. What is selected stays so in the same text.
  void showText(const std::string& text);
  /// Takes the colour of the look as it is now.
  void recolor();
  /// The base line's distance from the top, without margins.
  [[nodiscard]] int baseline() const;

  [[nodiscard]] QSize minimumSizeHint() const override;
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void align();
  [[nodiscard]] bool isBadge() const;
  [[nodiscard]] bool isShortened() const;

  const Look& look_;
  Style style_;
  std::string text_;
};

}  // namespace marigold
