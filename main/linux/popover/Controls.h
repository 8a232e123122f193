#pragma once

#include <optional>
#include <string>
#include <type_traits>

#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QRadioButton>

#include "linux/popover/Look.h"

QT_BEGIN_NAMESPACE
class QVariantAnimation;
QT_END_NAMESPACE

// The popover's controls: native ones, for the keyboard and for assistive technology, that paint
// themselves with the popover's look. None is less than 28 points high.

namespace marigold {

/// A native button that paints itself: the keyboard reaches it, Return presses it if it is one to
/// press, and it is used wherever on it the pointer is.
template <class Native>
class PaintedButton : public Native {
 public:
  PaintedButton(const Look& look, QWidget& parent) : Native(&parent), look_(look) {
    this->setFocusPolicy(Qt::StrongFocus);
    this->setAttribute(Qt::WA_Hover);
    if constexpr (std::is_same_v<Native, QPushButton>) {
      this->setAutoDefault(true);
    }
  }

  [[nodiscard]] QSize minimumSizeHint() const override { return this->sizeHint(); }

 protected:
  [[nodiscard]] const Look& look() const noexcept { return look_; }
  [[nodiscard]] bool hitButton(const QPoint& place) const override {
    return this->rect().contains(place);
  }

 private:
  const Look& look_;
};

/// Turns what a widget paints, for as long as that is shown and motion is welcome.
class Turn final : public QObject {
 public:
  Turn(const Look& look, QWidget& widget);

  void set(bool turning);
  /// Has `painter` paint around the middle of `box` as far as it has turned.
  void apply(QPainter& painter, const QRectF& box) const;

 private:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void follow();

  const Look& look_;
  QWidget& widget_;
  bool turning_ = false;
  QVariantAnimation* animation_ = nullptr;
};

/// A button that is a glyph, 28 points a side.
class GlyphButton final : public PaintedButton<QPushButton> {
 public:
  GlyphButton(Glyph glyph, const Look& look, QWidget& parent);

  /// Spoken, and told in a tooltip.
  void setName(const std::string& name);
  void setGlyph(Glyph glyph);
  /// An edge and a ground of its own.
  void setFramed(bool framed);
  void setTurning(bool turning) { turn_.set(turning); }

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  Glyph glyph_;
  bool framed_ = false;
  Turn turn_;
};

/// A button with a title.
class TitleButton final : public PaintedButton<QPushButton> {
 public:
  TitleButton(const Look& look, QWidget& parent);

  /// Whether what it does is under way, which it shows beside the title; it cannot be used then.
  void setBusy(bool busy);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool busy_ = false;
  Turn turn_;
};

/// A switch. What is on stays on the side where the line ends.
class Switch final : public PaintedButton<QCheckBox> {
 public:
  using PaintedButton::PaintedButton;

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

/// One of several, in a menu that opens at it.
class MenuChoice final : public QComboBox {
 public:
  MenuChoice(const Look& look, QWidget& parent);

  /// Elided where there is less room.
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  const Look& look_;
};

/// One option of several that stand side by side: a segment with a title, or a swatch.
class OptionButton final : public PaintedButton<QRadioButton> {
 public:
  OptionButton(bool swatch, const Look& look, QWidget& parent);

  /// Nothing is painted as the colours of the zones.
  void setColor(const std::optional<Color>& color);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void paintSwatch(QPainter& painter) const;

  bool swatch_;
  std::optional<Color> color_;
};

}  // namespace marigold
