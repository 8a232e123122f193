#include "linux/popover/CardBlocks.h"

#include <algorithm>
#include <string>
#include <variant>

#include <QtGui/QPainter>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include "linux/item/PlainText.h"
#include "linux/popover/Controls.h"
#include "linux/popover/Spoken.h"
#include "linux/popover/TextLabel.h"
#include "linux/system/QtPainter.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

constexpr double barHeight = metrics::barHeight;
constexpr double aboveBar = metrics::aboveBar;
constexpr double belowBar = metrics::belowBar;

/// A text whose digits all take the same width, so that it stands still while it counts.
class DigitText {
 public:
  DigitText(const QFont& font, QString text) : font_(font), metrics_(font), text_(std::move(text)) {
    for (char digit = '0'; digit <= '9'; ++digit) {
      cell_ = std::max(cell_, metrics_.horizontalAdvance(QLatin1Char(digit)));
    }
  }

  [[nodiscard]] double width() const {
    double width = 0;
    for (const QChar character : text_) {
      width += advance(character);
    }
    return width;
  }

  void paint(QPainter& painter, QPointF baseline) const {
    painter.setFont(font_);
    for (const QChar character : text_) {
      const double room = advance(character);
      painter.drawText(baseline + QPointF((room - metrics_.horizontalAdvance(character)) / 2, 0),
                       QString(character));
      baseline.rx() += room;
    }
  }

 private:
  [[nodiscard]] double advance(QChar character) const {
    return character.isDigit() ? cell_ : metrics_.horizontalAdvance(character);
  }

  QFont font_;
  QFontMetricsF metrics_;
  QString text_;
  double cell_ = 0;
};

/// A window: one object to paint and to speak.
class RowBlock final : public BlockWidget {
 public:
  RowBlock(const Look& look, QWidget& parent)
      : BlockWidget(&parent),
        look_(look),
        font_(interfaceFont()),
        valueFont_(interfaceFont(1, QFont::DemiBold)),
        subFont_(interfaceFont(metrics::subLabelSize)) {
    speakAs(*this, QAccessible::StaticText);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  }

  void take(const CardBlock& block) override {
    const auto& row = std::get<CardRow>(block);
    if (row == row_) {
      return;
    }
    if (row.subLabel.empty() != row_.subLabel.empty()) {
      updateGeometry();
    }
    row_ = row;
    setAccessibleName(QString::fromStdString(row.spoken));
    tellWhole();
    update();
  }

  [[nodiscard]] double gapAbove() const override { return metrics::blockGap; }

  [[nodiscard]] QSize sizeHint() const override {
    const int subLabel =
        row_.subLabel.empty() ? 0 : scaled(belowBar) + QFontMetrics(subFont_).height();
    return {scaled(100), barTop() + scaled(barHeight) + subLabel};
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const PopoverColors& colors = look_.colors();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool mirrored = isRightToLeft();
    const int baseline = std::max(QFontMetrics(font_).ascent(), QFontMetrics(valueFont_).ascent());
    const DigitText value(valueFont_, QString::fromStdString(row_.value));
    painter.setPen(toQt(colors.text));
    value.paint(painter, QPointF(mirrored ? 0 : width() - value.width(), baseline));
    paintText(painter, QString::fromStdString(row_.label), font_, baseline, labelRoom());
    paintBar(painter, QRectF(0, barTop(), width(), scaled(barHeight)));
    painter.setPen(toQt(colors.secondary));
    paintText(painter, QString::fromStdString(row_.subLabel), subFont_,
              barTop() + scaled(barHeight + belowBar) + QFontMetrics(subFont_).ascent(), width());
  }

  void resizeEvent(QResizeEvent* event) override {
    BlockWidget::resizeEvent(event);
    tellWhole();
  }

 private:
  [[nodiscard]] int barTop() const {
    return std::max(QFontMetrics(font_).height(), QFontMetrics(valueFont_).height()) +
           scaled(aboveBar);
  }

  [[nodiscard]] int labelRoom() const {
    const DigitText value(valueFont_, QString::fromStdString(row_.value));
    return width() - qCeil(value.width()) - scaled(8);
  }

  // At the start of the line, shortened to `room`.
  void paintText(QPainter& painter, const QString& text, const QFont& font, int baseline,
                 int room) const {
    const QFontMetrics metrics(font);
    const QString shown = metrics.elidedText(text, Qt::ElideRight, room);
    painter.setFont(font);
    painter.setLayoutDirection(text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    painter.drawText(isRightToLeft() ? width() - metrics.horizontalAdvance(shown) : 0, baseline,
                     shown);
  }

  void paintBar(QPainter& painter, const QRectF& whole) const {
    const PopoverColors& colors = look_.colors();
    const double radius = whole.height() / 2;
    painter.setPen(Qt::NoPen);
    painter.setBrush(toQt(colors.track));
    painter.drawRoundedRect(whole, radius, radius);
    const double unit = scaledExactly(1);
    const double length = unit * barFillLength(row_.bar.percent, whole.width() / unit);
    if (row_.bar.fill && length > 0) {
      QRectF filled = whole;
      if (isRightToLeft()) {
        filled.setLeft(whole.right() - length);
      } else {
        filled.setWidth(length);
      }
      const double end = std::min(radius, length / 2);
      painter.setBrush(toQt(*row_.bar.fill));
      painter.drawRoundedRect(filled, end, radius);
    }
    if (colors.barOutline) {
      painter.setBrush(Qt::NoBrush);
      painter.setPen(QPen(toQt(*colors.barOutline), 1));
      painter.drawRoundedRect(whole.adjusted(0.5, 0.5, -0.5, -0.5), radius - 0.5, radius - 0.5);
    }
  }

  void tellWhole() {
    const bool whole =
        QFontMetrics(font_).horizontalAdvance(QString::fromStdString(row_.label)) <= labelRoom();
    setToolTip(whole ? QString() : plainToolTip(row_.label));
  }

  const Look& look_;
  QFont font_;
  QFont valueFont_;
  QFont subFont_;
  CardRow row_;
};

/// Why there is no reading, a note, or what is below.
class TextBlock final : public BlockWidget {
 public:
  TextBlock(const CardText& text, const Look& look, QWidget& parent)
      : BlockWidget(&parent), look_(look), label_(new TextLabel(style(text), look, *this)) {
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label_);
  }

  void take(const CardBlock& block) override {
    const auto& text = std::get<CardText>(block);
    if (text.tone != tone_) {
      tone_ = text.tone;
      label_->setStyle(style(text));
    }
    if (text.separated != separated_) {
      separated_ = text.separated;
      layout()->setContentsMargins(0, separated_ ? scaled(metrics::aboveSeparated) : 0, 0, 0);
      update();
    }
    label_->showText(text.text);
  }

  [[nodiscard]] double gapAbove() const override { return metrics::blockGap; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    if (separated_) {
      QPainter(this).fillRect(0, 0, width(), 1, toQt(look_.colors().separator));
    }
  }

 private:
  static TextLabel::Style style(const CardText& text) {
    return {.size = text.tone == CardText::Tone::caption ? metrics::captionSize : metrics::textSize,
            .ink = text.tone == CardText::Tone::primary ? TextLabel::Ink::primary
                                                        : TextLabel::Ink::secondary,
            .breaking = TextLabel::Breaking::wrapped};
  }

  const Look& look_;
  TextLabel* label_;
  CardText::Tone tone_ = CardText::Tone::primary;
  bool separated_ = false;
};

class ButtonBlock final : public BlockWidget {
 public:
  ButtonBlock(const Look& look, QWidget& parent)
      : BlockWidget(&parent), button_(new TitleButton(look, *this)) {
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(button_);
    layout->addStretch();
    connect(button_, &QPushButton::clicked, this, [this] {
      const Handler press = press_;  // which may end this
      press();
    });
  }

  void take(const CardBlock& block) override {
    const auto& button = std::get<CardButton>(block);
    press_ = button.press;
    button_->setText(QString::fromStdString(button.title));
    button_->setBusy(button.busy);
  }

  [[nodiscard]] double gapAbove() const override { return metrics::buttonGap; }

 private:
  TitleButton* button_;
  Handler press_;
};

/// The title of texts that are behind it.
class DisclosureButton final : public PaintedButton<QPushButton> {
 public:
  DisclosureButton(const Look& look, QWidget& parent) : PaintedButton(look, parent) {
    speakAsExpander(*this);
    setCheckable(true);
    setFont(interfaceFont(0.92));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  }

  [[nodiscard]] QSize sizeHint() const override {
    return {scaled(16) + fontMetrics().horizontalAdvance(text()), scaled(28)};
  }
  [[nodiscard]] QSize minimumSizeHint() const override { return {0, scaled(28)}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    const QColor ink =
        toQt(underMouse() || isDown() ? look().colors().text : look().colors().secondary);
    const auto placed = [this](const QRect& box) {
      return QStyle::visualRect(layoutDirection(), rect(), box);
    };
    paintGlyph(painter, isChecked() ? Glyph::chevronDown : Glyph::chevronForward,
               placed({0, 0, scaled(10), height()}), ink, isRightToLeft());
    const QRect room = rect().adjusted(scaled(14), 0, 0, 0);
    painter.setPen(ink);
    paintLine(painter, *this, room, fontMetrics().elidedText(text(), Qt::ElideRight, room.width()));
    const double inset = scaledExactly(2);
    paintFocusRing(painter, *this, QRectF(rect()).adjusted(0, inset, 0, -inset), scaledExactly(5),
                   look());
  }
};

class DisclosureBlock final : public BlockWidget {
 public:
  DisclosureBlock(const Look& look, QWidget& parent)
      : BlockWidget(&parent), look_(look), button_(new DisclosureButton(look, *this)) {
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(scaled(metrics::paragraphGap));
    layout->addWidget(button_);
    connect(button_, &QPushButton::toggled, this, [this] { open(); });
  }

  void take(const CardBlock& block) override {
    shown_ = std::get<CardDisclosure>(block);
    button_->setText(QString::fromStdString(shown_.title));
    button_->setAccessibleName(button_->text());
    open();
  }

  [[nodiscard]] double gapAbove() const override { return metrics::disclosureGap; }
  [[nodiscard]] double gapBelow() const override {
    return button_->isChecked() ? metrics::cardBottom : metrics::belowDisclosure;
  }

 private:
  // Labels are made only once they are asked for.
  void open() {
    const std::size_t count = button_->isChecked() ? shown_.paragraphs.size() : 0;
    while (paragraphs_.size() > count) {
      delete paragraphs_.back();
      paragraphs_.pop_back();
    }
    for (std::size_t i = 0; i < count; ++i) {
      if (i == paragraphs_.size()) {
        paragraphs_.push_back(new TextLabel({.size = 0.92,
                                             .ink = TextLabel::Ink::secondary,
                                             .breaking = TextLabel::Breaking::wrapped},
                                            look_, *this));
        layout()->addWidget(paragraphs_.back());
      }
      paragraphs_[i]->showText(shown_.paragraphs[i]);
    }
    updateGeometry();
  }

  const Look& look_;
  DisclosureButton* button_;
  CardDisclosure shown_;
  std::vector<TextLabel*> paragraphs_;
};

}  // namespace

BlockWidget* makeBlockWidget(const CardBlock& block, const Look& look, QWidget& parent) {
  BlockWidget* widget = nullptr;
  if (std::holds_alternative<CardRow>(block)) {
    widget = new RowBlock(look, parent);
  } else if (const auto* const text = std::get_if<CardText>(&block)) {
    widget = new TextBlock(*text, look, parent);
  } else if (std::holds_alternative<CardButton>(block)) {
    widget = new ButtonBlock(look, parent);
  } else {
    widget = new DisclosureBlock(look, parent);
  }
  widget->take(block);
  return widget;
}

}  // namespace marigold
