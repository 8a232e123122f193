#include "linux/popover/TextLabel.h"

#include <QtCore/QEvent>
#include <QtGui/QPainter>
#include <QtGui/QTextOption>
#include <QtWidgets/QStyle>

#include "linux/item/PlainText.h"
#include "linux/system/QtPainter.h"

namespace marigold {

namespace {

constexpr qsizetype longestWord = 24;

// A label breaks lines between words only; in a word as long as no word is, it may do so anywhere.
QString withBreaks(const QString& text) {
  QString result;
  qsizetype letters = 0;
  for (const QChar character : text) {
    letters = character.isSpace() ? 0 : letters + 1;
    if (letters > longestWord && !character.isLowSurrogate() && !character.isMark()) {
      result += QChar(0x200B);
    }
    result += character;
  }
  return result;
}

}  // namespace

TextLabel::TextLabel(Style style, const Look& look, QWidget& parent)
    : QLabel(&parent), look_(look), style_(style) {
  setTextFormat(Qt::PlainText);
  if (style.breaking == Breaking::wrapped) {
    setWordWrap(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
  }
  setStyle(style);
  align();
}

void TextLabel::setStyle(Style style) {
  style_ = style;
  if (const QFont font = interfaceFont(style.size, style.weight); font != this->font()) {
    setFont(font);
  }
  if (isBadge()) {
    const int side = scaled(7);
    const int top = scaled(1);
    setContentsMargins(side, top, side, top);
  }
  recolor();
}

void TextLabel::showText(const std::string& text) {
  text_ = text;
  const QString whole = QString::fromStdString(text);
  setText(wordWrap() ? withBreaks(whole) : whole);
  setAccessibleName(this->text() == whole ? QString() : whole);
  setVisible(!text.empty());
  setToolTip(isShortened() ? plainToolTip(text_) : QString());
}

void TextLabel::recolor() {
  const PopoverColors& colors = look_.colors();
  const auto ink = [&]() -> const Color& {
    switch (style_.ink) {
      case Ink::primary:
        return colors.text;
      case Ink::secondary:
        return colors.secondary;
      case Ink::neutralBadge:
        return colors.neutralBadgeText;
      case Ink::warningBadge:
        break;
    }
    return colors.warningBadgeText;
  };
  QPalette palette = look_.palette();
  palette.setColor(QPalette::WindowText, toQt(ink()));
  palette.setColor(QPalette::Text, toQt(ink()));
  setPalette(palette);
}

int TextLabel::baseline() const {
  return contentsMargins().top() + fontMetrics().ascent();
}

QSize TextLabel::minimumSizeHint() const {
  const QSize least = QLabel::minimumSizeHint();
  return style_.breaking == Breaking::elided ? QSize(0, least.height()) : least;
}

QSize TextLabel::sizeHint() const {
  return style_.breaking == Breaking::wrapped ? QLabel::sizeHint() : QLabel::minimumSizeHint();
}

void TextLabel::paintEvent(QPaintEvent* event) {
  if (isBadge()) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(toQt(style_.ink == Ink::warningBadge ? look_.colors().warningBadge
                                                          : look_.colors().neutralBadge));
    painter.drawRoundedRect(rect(), height() / 2.0, height() / 2.0);
  }
  if (!isShortened()) {
    QLabel::paintEvent(event);
    return;
  }
  QPainter painter(this);
  painter.setPen(palette().color(foregroundRole()));
  QTextOption option(QStyle::visualAlignment(layoutDirection(), alignment()));
  option.setWrapMode(QTextOption::NoWrap);
  option.setTextDirection(text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
  const QRect inside = contentsRect();
  painter.drawText(inside, fontMetrics().elidedText(text(), Qt::ElideRight, inside.width()),
                   option);
}

void TextLabel::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  setToolTip(isShortened() ? plainToolTip(text_) : QString());
}

void TextLabel::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  if (event->type() == QEvent::LayoutDirectionChange) {
    align();
  }
}

// As everything around it is laid out, whichever way the text itself runs.
void TextLabel::align() {
  setAlignment(Qt::AlignAbsolute | Qt::AlignTop |
               (isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft));
}

bool TextLabel::isBadge() const {
  return style_.ink == Ink::neutralBadge || style_.ink == Ink::warningBadge;
}

bool TextLabel::isShortened() const {
  return style_.breaking == Breaking::elided && width() < QLabel::minimumSizeHint().width();
}

}  // namespace marigold
