#include "linux/popover/Controls.h"

#include <algorithm>
#include <array>
#include <utility>

#include <QtCore/QVariantAnimation>
#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>
#include <QtGui/QWheelEvent>
#include <QtWidgets/QStyleOption>

#include "bar/Palette.h"
#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

constexpr double leastSide = 28;
constexpr double controlRadius = 7;
constexpr int turnMilliseconds = 900;
/// What a button that is busy has beside its title.
constexpr double busySide = 16;

QSize square() {
  return {scaled(leastSide), scaled(leastSide)};
}

// The box of a framed control within its hit target.
QRectF framed(const QWidget& widget) {
  const double inset = scaledExactly(1);
  return QRectF(widget.rect()).adjusted(0, inset, 0, -inset);
}

void dim(QPainter& painter, const QWidget& widget, const Look& look) {
  if (!widget.isEnabled()) {
    painter.setOpacity(look.colors().disabled);
  }
}

// What the pointer is over shows it.
void paintHover(QPainter& painter, const QAbstractButton& button, const QRectF& box, double radius,
                const Look& look) {
  if (!button.isEnabled() || !(button.isDown() || button.underMouse())) {
    return;
  }
  painter.setPen(Qt::NoPen);
  painter.setBrush(toQt(look.colors().hover));
  painter.drawRoundedRect(box, radius, radius);
  if (button.isDown()) {
    painter.drawRoundedRect(box, radius, radius);
  }
}

}  // namespace

Turn::Turn(const Look& look, QWidget& widget) : look_(look), widget_(widget) {
  widget.installEventFilter(this);
}

void Turn::set(bool turning) {
  turning_ = turning;
  follow();
}

void Turn::apply(QPainter& painter, const QRectF& box) const {
  if (animation_ != nullptr) {
    painter.translate(box.center());
    painter.rotate(animation_->currentValue().toDouble());
    painter.translate(-box.center());
  }
}

bool Turn::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Show || event->type() == QEvent::Hide) {
    follow();
  }
  return QObject::eventFilter(watched, event);
}

void Turn::follow() {
  const bool moves = turning_ && widget_.isVisible() && !look_.theme.reduceMotion;
  if (moves == (animation_ != nullptr)) {
    return;
  }
  if (!moves) {
    delete animation_;
    animation_ = nullptr;
    widget_.update();
    return;
  }
  constexpr double wholeTurn = 360;
  animation_ = new QVariantAnimation(this);
  animation_->setStartValue(0.0);
  animation_->setEndValue(wholeTurn);
  animation_->setDuration(turnMilliseconds);
  animation_->setLoopCount(-1);
  connect(animation_, &QVariantAnimation::valueChanged, &widget_, [this] { widget_.update(); });
  animation_->start();
}

GlyphButton::GlyphButton(Glyph glyph, const Look& look, QWidget& parent)
    : PaintedButton(look, parent), glyph_(glyph), turn_(look, *this) {
  setFixedSize(square());
}

void GlyphButton::setName(const std::string& name) {
  setAccessibleName(QString::fromStdString(name));
  setToolTip(accessibleName());
}

void GlyphButton::setGlyph(Glyph glyph) {
  if (glyph_ != glyph) {
    glyph_ = glyph;
    update();
  }
}

void GlyphButton::setFramed(bool framed) {
  framed_ = framed;
  setFixedWidth(scaled(framed ? leastSide + 4 : leastSide));
}

QSize GlyphButton::sizeHint() const {
  return square();
}

void GlyphButton::paintEvent(QPaintEvent* /*event*/) {
  const double radius = scaledExactly(controlRadius);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  dim(painter, *this, look());
  const QRectF box = framed_ ? framed(*this) : QRectF(rect());
  if (framed_) {
    paintPanel(painter, box, radius, look().colors().control, look().colors().controlEdge);
  }
  paintHover(painter, *this, box, radius, look());
  painter.save();
  turn_.apply(painter, box);
  paintGlyph(painter, glyph_, box,
             toQt(framed_ ? look().colors().controlText : look().colors().secondary),
             isRightToLeft());
  painter.restore();
  paintFocusRing(painter, *this, box, radius, look());
}

TitleButton::TitleButton(const Look& look, QWidget& parent)
    : PaintedButton(look, parent), turn_(look, *this) {
  setFont(interfaceFont(1, QFont::Medium));
}

void TitleButton::setBusy(bool busy) {
  setEnabled(!busy);
  turn_.set(busy);
  if (std::exchange(busy_, busy) != busy) {
    updateGeometry();
    update();
  }
}

QSize TitleButton::sizeHint() const {
  return {fontMetrics().horizontalAdvance(text()) + scaled(24) + (busy_ ? scaled(busySide) : 0),
          scaled(leastSide)};
}

void TitleButton::paintEvent(QPaintEvent* /*event*/) {
  const double radius = scaledExactly(controlRadius);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  dim(painter, *this, look());
  const QRectF box = framed(*this);
  paintPanel(painter, box, radius, look().colors().control, look().colors().controlEdge);
  paintHover(painter, *this, box, radius, look());
  const QColor ink = toQt(look().colors().controlText);
  const int before = busy_ ? scaled(busySide) : 0;
  painter.setPen(ink);
  paintText(painter,
            QStyle::visualRect(layoutDirection(), rect(), rect().adjusted(before, 0, 0, 0)),
            Qt::AlignCenter | Qt::TextSingleLine,
            fontMetrics().elidedText(text(), Qt::ElideRight, width() - before - scaled(12)));
  if (busy_) {
    const QRect place = QStyle::visualRect(layoutDirection(), rect(),
                                           QRect(scaled(8), 0, scaled(busySide), height()));
    painter.save();
    turn_.apply(painter, QRectF(place));
    paintGlyph(painter, Glyph::refresh, QRectF(place), ink);
    painter.restore();
  }
  paintFocusRing(painter, *this, box, radius, look());
}

QSize Switch::sizeHint() const {
  return {scaled(34), scaled(leastSide)};
}

void Switch::paintEvent(QPaintEvent* /*event*/) {
  const PopoverColors& colors = look().colors();
  const double height = scaledExactly(20);
  const double inset = scaledExactly(2);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  dim(painter, *this, look());
  const QRectF box(0, (this->height() - height) / 2, width(), height);
  const bool outlined = colors.barOutline.has_value();
  paintPanel(painter, box, height / 2, isChecked() ? colors.accent : colors.switchOff,
             outlined ? colors.controlEdge : Color{.opacity = 0});
  const double knob = height - 2 * inset;
  const bool atRight = isChecked() != isRightToLeft();
  const QRectF place(atRight ? box.right() - inset - knob : box.left() + inset, box.top() + inset,
                     knob, knob);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0, 0, 0, 40));
  painter.drawEllipse(place.translated(0, scaledExactly(0.75)));
  painter.setBrush(toQt(colors.onAccent));
  painter.drawEllipse(place);
  paintFocusRing(painter, *this, QRectF(rect()), scaledExactly(controlRadius), look());
}

MenuChoice::MenuChoice(const Look& look, QWidget& parent) : QComboBox(&parent), look_(look) {
  setFocusPolicy(Qt::StrongFocus);
  setAttribute(Qt::WA_Hover);
  setFont(interfaceFont());
}

QSize MenuChoice::sizeHint() const {
  return {fontMetrics().horizontalAdvance(currentText()) + scaled(36), scaled(leastSide)};
}

QSize MenuChoice::minimumSizeHint() const {
  return {std::min(sizeHint().width(), scaled(72)), scaled(leastSide)};
}

void MenuChoice::paintEvent(QPaintEvent* /*event*/) {
  const PopoverColors& colors = look_.colors();
  const double radius = scaledExactly(controlRadius);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  dim(painter, *this, look_);
  const QRectF box = framed(*this);
  paintPanel(painter, box, radius, colors.control, colors.controlEdge);
  if (underMouse() && isEnabled()) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(toQt(colors.hover));
    painter.drawRoundedRect(box, radius, radius);
  }
  const QRect inside = rect().adjusted(scaled(10), 0, -scaled(9), 0);
  const QRect end(inside.right() - scaled(10), 0, scaled(10), height());
  const QRect title = inside.adjusted(0, 0, -scaled(14), 0);
  painter.setPen(toQt(colors.controlText));
  paintLine(painter, *this, title,
            fontMetrics().elidedText(currentText(), Qt::ElideRight, title.width()));
  paintGlyph(painter, Glyph::chevronDown, QStyle::visualRect(layoutDirection(), rect(), end),
             toQt(colors.secondary));
  paintFocusRing(painter, *this, box, radius, look_);
}

// Else the popover's own keys would be taken for the start of a title.
void MenuChoice::keyPressEvent(QKeyEvent* event) {
  if ((event->modifiers() & Qt::ControlModifier) != 0) {
    event->ignore();
  } else {
    QComboBox::keyPressEvent(event);
  }
}

// Else what is scrolled by would be changed.
void MenuChoice::wheelEvent(QWheelEvent* event) {
  event->ignore();
}

OptionButton::OptionButton(bool swatch, const Look& look, QWidget& parent)
    : PaintedButton(look, parent), swatch_(swatch) {
  setFont(interfaceFont());
}

void OptionButton::setColor(const std::optional<Color>& color) {
  if (color_ != color) {
    color_ = color;
    update();
  }
}

QSize OptionButton::sizeHint() const {
  return swatch_ ? square()
                 : QSize(fontMetrics().horizontalAdvance(text()) + scaled(20), scaled(leastSide));
}

void OptionButton::paintEvent(QPaintEvent* /*event*/) {
  const PopoverColors& colors = look().colors();
  const double radius = scaledExactly(controlRadius);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  dim(painter, *this, look());
  if (swatch_) {
    paintSwatch(painter);
    return;
  }
  const QRectF box = framed(*this);
  if (isChecked()) {
    paintPanel(painter, box, radius, colors.control, colors.controlEdge);
  }
  paintHover(painter, *this, box, radius, look());
  painter.setPen(toQt(colors.controlText));
  painter.setFont(interfaceFont(1, isChecked() ? QFont::Medium : QFont::Normal));
  paintText(painter, rect(), Qt::AlignCenter | Qt::TextSingleLine, text());
  paintFocusRing(painter, *this, box, radius, look());
}

void OptionButton::paintSwatch(QPainter& painter) const {
  const PopoverColors& colors = look().colors();
  const double radius = scaledExactly(7);
  const QPointF center = QRectF(rect()).center();
  const auto disc = [&](double reach) {
    return QRectF(center.x() - reach, center.y() - reach, 2 * reach, 2 * reach);
  };
  painter.setPen(Qt::NoPen);
  if (color_) {
    painter.setBrush(toQt(*color_));
    painter.drawEllipse(disc(radius));
  } else {
    constexpr int third = 120 * 16;
    constexpr int top = 90 * 16;
    const std::array zones{UsageZone::red, UsageZone::amber, UsageZone::green};
    for (std::size_t i = 0; i < zones.size(); ++i) {
      painter.setBrush(toQt(zones.at(i)));
      painter.drawPie(disc(radius), top + static_cast<int>(i) * third, third);
    }
  }
  painter.setBrush(Qt::NoBrush);
  if (isChecked()) {
    painter.setPen(QPen(toQt(colors.text), scaledExactly(1.5)));
    painter.drawEllipse(disc(radius + scaledExactly(2.75)));
  } else if (underMouse() || colors.barOutline) {
    painter.setPen(QPen(toQt(colors.controlEdge), scaledExactly(1.5)));
    painter.drawEllipse(disc(radius + scaledExactly(2.75)));
  }
  const double reach = radius + scaledExactly(6.5);
  paintFocusRing(painter, *this, disc(reach), reach, look());
}

}  // namespace marigold
