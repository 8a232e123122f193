#include "linux/popover/CardWidget.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <variant>

#include <QtCore/QEvent>
#include <QtGui/QPainter>
#include <QtGui/QTextOption>
#include <QtWidgets/QApplication>
#include <QtWidgets/QGridLayout>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include "linux/item/PlainText.h"

namespace marigold {

namespace {

constexpr int padding = 12;
constexpr int rowGap = 6;

}  // namespace

QColor faintText(const QWidget& widget, float opacity) {
  QColor color = widget.palette().color(QPalette::WindowText);
  color.setAlphaF(opacity);
  return color;
}

/// A native label in a variant of the interface font, in weaker colour if it is secondary.
class CardWidget::TextLabel final : public QLabel {
 public:
  struct Style {
    double size = 1;
    QFont::Weight weight = QFont::Normal;
    bool secondary = false;
    bool elided = false;  ///< rather shortened than that others have less room
  };

  TextLabel(Style style, QWidget& parent) : QLabel(&parent), style_(style) {
    setTextFormat(Qt::PlainText);
    adapt();
  }

  /// Shows `text`, or is hidden when there is none.
  void showText(const std::string& text) {
    setText(QString::fromStdString(text));
    setVisible(!text.empty());
    tellWhole();
  }

  [[nodiscard]] QSize minimumSizeHint() const override {
    const QSize least = QLabel::minimumSizeHint();
    return style_.elided ? QSize(0, least.height()) : least;
  }

 protected:
  void paintEvent(QPaintEvent* event) override {
    if (!isShortened()) {
      QLabel::paintEvent(event);
      return;
    }
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    QTextOption option(QStyle::visualAlignment(layoutDirection(), alignment()));
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    painter.drawText(contentsRect(), fontMetrics().elidedText(text(), Qt::ElideRight, width()),
                     option);
  }
  void resizeEvent(QResizeEvent* event) override {
    QLabel::resizeEvent(event);
    tellWhole();
  }
  void changeEvent(QEvent* event) override {
    QLabel::changeEvent(event);
    // One's own change arrives here as well, and changes nothing.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange ||
        event->type() == QEvent::LayoutDirectionChange) {
      adapt();
    }
  }

 private:
  void adapt() {
    // As the row is laid out, whichever way the text itself runs.
    setAlignment(Qt::AlignAbsolute | Qt::AlignVCenter |
                 (isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft));
    QFont font = QApplication::font();
    font.setWeight(style_.weight);
    if (font.pointSizeF() > 0) {
      font.setPointSizeF(font.pointSizeF() * style_.size);
    } else {
      font.setPixelSize(qRound(font.pixelSize() * style_.size));
    }
    if (font != this->font()) {
      setFont(font);
    }
    if (style_.secondary) {
      QPalette palette = this->palette();
      palette.setColor(QPalette::WindowText, faintText(*parentWidget(), 0.7F));
      if (palette != this->palette()) {
        setPalette(palette);
      }
    }
  }

  [[nodiscard]] bool isShortened() const {
    return style_.elided && width() < QLabel::minimumSizeHint().width();
  }
  void tellWhole() { setToolTip(isShortened() ? plainToolTip(text().toStdString()) : QString()); }

  Style style_;
};

CardWidget::CardWidget(QWidget& parent)
    : QWidget(&parent),
      title_(new TextLabel({.size = 1.15, .weight = QFont::DemiBold}, *this)),
      plan_(new TextLabel({.secondary = true, .elided = true}, *this)),
      grid_(new QGridLayout),
      message_(new TextLabel({.secondary = true}, *this)) {
  auto* const header = new QHBoxLayout;
  header->addWidget(title_, 1);
  header->addWidget(plan_);
  grid_->setColumnStretch(0, 1);
  grid_->setVerticalSpacing(2);
  message_->setWordWrap(true);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* const all = new QVBoxLayout(this);
  all->setContentsMargins(padding + 2, padding, padding + 2, padding);
  all->setSpacing(6);
  all->addLayout(header);
  all->addLayout(grid_);
  all->addWidget(message_);
}

void CardWidget::show(const ProviderCard& card) {
  setAccessibleName(QString::fromStdString(card.title));
  title_->showText(card.title);
  plan_->showText(card.plan);
  std::size_t count = 0;
  std::string message;
  for (const CardBlock& block : card.blocks) {
    if (const auto* const row = std::get_if<CardRow>(&block)) {
      if (count == rows_.size()) {
        rows_.push_back(addRow());
      }
      rows_[count].label->showText(row->label);
      rows_[count].value->showText(row->value);
      rows_[count].subLabel->showText(row->subLabel);
      ++count;
    } else if (const auto* const text = std::get_if<CardText>(&block)) {
      message = text->text;
    }
  }
  while (rows_.size() > count) {
    for (const TextLabel* const label :
         {rows_.back().label, rows_.back().value, rows_.back().subLabel}) {
      delete label;
    }
    rows_.pop_back();
    grid_->setRowMinimumHeight(std::max(3 * static_cast<int>(rows_.size()) - 1, 0), 0);
  }
  message_->showText(message);
  layout()->activate();
}

void CardWidget::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(palette().base());
  painter.setPen(faintText(*this, 0.12F));
  painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), MarigoldTheme::cardRadius,
                          MarigoldTheme::cardRadius);
}

CardWidget::Row CardWidget::addRow() {
  const Row row{.label = new TextLabel({.elided = true}, *this),
                .value = new TextLabel({.weight = QFont::DemiBold}, *this),
                .subLabel = new TextLabel({.size = 0.9, .secondary = true}, *this)};
  const int line = 3 * static_cast<int>(rows_.size());
  grid_->addWidget(row.label, line, 0);
  grid_->addWidget(row.value, line, 1, Qt::AlignRight);
  grid_->addWidget(row.subLabel, line + 1, 0, 1, 2);
  message_->raise();  // to the end of what assistive technology reads, too
  if (line > 0) {
    grid_->setRowMinimumHeight(line - 1, rowGap);
  }
  return row;
}

}  // namespace marigold
