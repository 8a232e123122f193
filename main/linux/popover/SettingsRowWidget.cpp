#include "linux/popover/SettingsRowWidget.h"

#include <algorithm>
#include <variant>

#include <QtCore/QEvent>
#include <QtCore/QPointer>
#include <QtGui/QKeyEvent>
#include <QtGui/QMouseEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include "linux/popover/Controls.h"
#include "linux/popover/Spoken.h"
#include "linux/popover/TextLabel.h"
#include "linux/system/QtPainter.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

constexpr double side = metrics::rowSide;
constexpr double indent = metrics::rowIndent;
constexpr double leastHeight = metrics::leastRowHeight;
constexpr double aboveText = metrics::aboveRowText;
constexpr double beforeControl = metrics::beforeControl;
constexpr double explanationSize = metrics::explanationSize;
/// Beside wider controls there is no explanation.
constexpr double narrowControl = 60;
/// A title gets at least this width, or as much as it needs, before its control goes below it.
constexpr double leastText = 110;

int textHeight(const QFont& font, const std::string& text, int width) {
  const QRect room(0, 0, width, QWIDGETSIZE_MAX);
  return text.empty() ? 0
                      : QFontMetrics(font)
                            .boundingRect(room, Qt::TextWordWrap, QString::fromStdString(text))
                            .height();
}

}  // namespace

/// Stands in the row's place while it is asked whether it was meant.
class SettingsRowWidget::Question final : public QWidget {
 public:
  Question(const Confirmation& asked, const Look& look, SettingsRowWidget& row) : QWidget(&row) {
    speakAs(*this, QAccessible::Grouping);
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(scaled(side), scaled(10), scaled(side), scaled(10));
    layout->setSpacing(scaled(4));
    const auto addText = [&](const std::string& text, TextLabel::Style style) {
      auto* const label = new TextLabel(style, look, *this);
      layout->addWidget(label);
      label->showText(text);
    };
    addText(asked.question, {.weight = QFont::Medium, .breaking = TextLabel::Breaking::wrapped});
    addText(asked.explanation, {.size = explanationSize,
                                .ink = TextLabel::Ink::secondary,
                                .breaking = TextLabel::Breaking::wrapped});
    auto* const buttons = new QHBoxLayout;
    buttons->setContentsMargins(0, scaled(4), 0, 0);
    buttons->setSpacing(scaled(8));
    buttons->addStretch();
    const auto addButton = [&](const std::string& title) {
      auto* const button = new TitleButton(look, *this);
      button->setText(QString::fromStdString(title));
      buttons->addWidget(button);
      return button;
    };
    cancel_ = addButton(asked.cancel);
    TitleButton* const confirm = addButton(asked.confirm);
    layout->addLayout(buttons);
    connect(cancel_, &QPushButton::clicked, &row, [&row] { row.endQuestion(); });
    connect(confirm, &QPushButton::clicked, &row, [&row] {
      row.endQuestion();
      row.use(0);
    });
  }

  void ask() { cancel_->setFocus(Qt::TabFocusReason); }

 private:
  TitleButton* cancel_ = nullptr;
};

SettingsRowWidget::SettingsRowWidget(const SettingsRow& row, int depth, const Look& look,
                                     QWidget& parent)
    : QWidget(&parent),
      look_(look),
      row_(row),
      depth_(depth),
      control_(makeSettingsControl(row, look, *this, [this](int choice) {
        if (std::holds_alternative<SettingsButton>(row_.control)) {
          if (const auto& confirmation = std::get<SettingsButton>(row_.control).confirmation) {
            ask(*confirmation);
            return;
          }
        }
        use(choice);
      })) {
  take(row);
}

void SettingsRowWidget::take(const SettingsRow& row) {
  row_ = row;
  control_->take(row);
  control_->setEnabled(row.enabled);
  if (!row.details.empty() && expander_ == nullptr) {
    auto* const button = new GlyphButton(Glyph::chevronDown, look_, *this);
    speakAsExpander(*button);
    button->setCheckable(true);
    connect(button, &QPushButton::toggled, this, [this, button](bool open) {
      button->setGlyph(open ? Glyph::chevronUp : Glyph::chevronDown);
      if (onOpened) {
        onOpened();
      }
    });
    expander_ = button;
    expander_->stackUnder(control_);
    expander_->show();
  } else if (row.details.empty() && expander_ != nullptr) {
    delete expander_;
    expander_ = nullptr;
  }
  if (expander_ != nullptr) {
    expander_->setAccessibleName(QString::fromStdString(row.detailsTitle));
  }
  updateGeometry();
  place();
  update();
}

bool SettingsRowWidget::suits(const SettingsRow& row) const {
  if (row.control.index() != row_.control.index()) {
    return false;
  }
  if (const auto* const choice = std::get_if<SettingsChoice>(&row.control)) {
    return choice->kind == std::get<SettingsChoice>(row_.control).kind;
  }
  if (const auto* const button = std::get_if<SettingsButton>(&row.control)) {
    return button->title.empty() == std::get<SettingsButton>(row_.control).title.empty();
  }
  return true;
}

void SettingsRowWidget::setSeparated(bool separated) {
  if (separated_ != separated) {
    separated_ = separated;
    update();
  }
}

bool SettingsRowWidget::isOpen() const {
  return expander_ != nullptr && expander_->isChecked();
}

void SettingsRowWidget::setOpen(bool open) {
  if (expander_ != nullptr) {
    expander_->setChecked(open);
  }
}

int SettingsRowWidget::heightForWidth(int width) const {
  return question_ != nullptr ? question_->heightForWidth(width) : arrange(width).height;
}

QSize SettingsRowWidget::sizeHint() const {
  return {scaled(200), heightForWidth(scaled(310))};
}

void SettingsRowWidget::paintEvent(QPaintEvent* /*event*/) {
  const PopoverColors& colors = look_.colors();
  QPainter painter(this);
  if (separated_) {
    painter.fillRect(0, 0, width(), 1, toQt(colors.separator));
  }
  if (question_ != nullptr || control_->fillsRow()) {
    return;
  }
  const Arrangement places = arrange(width());
  const auto write = [&](const QRect& place, const QFont& font, const Color& ink,
                         const std::string& text) {
    painter.setFont(font);
    painter.setPen(toQt(ink));
    paintText(painter, QStyle::visualRect(layoutDirection(), rect(), place),
              static_cast<int>(Qt::TextWordWrap | Qt::AlignTop |
                               QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft)),
              QString::fromStdString(text));
  };
  write(places.title, interfaceFont(), row_.enabled ? colors.text : colors.secondary, row_.title);
  write(places.explanation, interfaceFont(explanationSize), colors.secondary, row_.explanation);
}

void SettingsRowWidget::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  place();
}

void SettingsRowWidget::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !rect().contains(event->position().toPoint()) ||
      question_ != nullptr) {
    return;
  }
  if (expander_ != nullptr) {
    expander_->click();
  } else {
    control_->useByText();
  }
}

void SettingsRowWidget::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && question_ != nullptr) {
    endQuestion();
  } else {
    QWidget::keyPressEvent(event);
  }
}

// What was asked is not asked again as the page comes back.
void SettingsRowWidget::hideEvent(QHideEvent* event) {
  if (question_ != nullptr && !event->spontaneous()) {
    endQuestion();
  }
  QWidget::hideEvent(event);
}

bool SettingsRowWidget::event(QEvent* event) {
  if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::LayoutDirectionChange) {
    updateGeometry();
    place();
  }
  return QWidget::event(event);
}

SettingsRowWidget::Arrangement SettingsRowWidget::arrange(int width) const {
  Arrangement places;
  const QRect row(0, 0, width, scaled(leastHeight));
  if (control_->fillsRow()) {
    places.control = row;
    places.height = row.height();
    return places;
  }
  const QFont font = interfaceFont();
  const int left = scaled(side) + depth_ * scaled(indent);
  const int whole = width - left - scaled(side);
  const bool note = std::holds_alternative<SettingsNote>(row_.control);
  const QSize control = note ? QSize(0, 0) : control_->sizeHint();
  const int expander = expander_ == nullptr ? 0 : expander_->width() + scaled(2);
  const int controls = note ? 0 : control.width() + expander + scaled(beforeControl);
  // Beside a control that is wide, the title stands alone, or not even that.
  const int titleWidth = QFontMetrics(font).horizontalAdvance(QString::fromStdString(row_.title));
  const bool below = whole - controls < std::min(titleWidth, scaled(leastText));
  const bool wideControl = control.width() > scaled(narrowControl);
  const int room = below ? whole : whole - controls;
  const int explanationRoom = wideControl ? whole : room;

  const int titleHeight = textHeight(font, row_.title, room);
  const int explanationHeight =
      textHeight(interfaceFont(explanationSize), row_.explanation, explanationRoom);
  const bool apart = wideControl && !below && explanationHeight > 0;
  const int line = apart ? std::max(titleHeight, control.height()) : titleHeight;
  const int between = explanationHeight > 0 && titleHeight > 0 ? scaled(1) : 0;
  const int text = line + between + explanationHeight;
  const int beside = below ? 0 : control.height();
  places.height = std::max({row.height(), text + scaled(apart ? 6 : aboveText) + scaled(aboveText),
                            beside + 2 * scaled(4)});
  const int top = apart ? scaled(6) : (places.height - text) / 2;
  places.title = QRect(left, top + (line - titleHeight) / 2, room, titleHeight);
  places.explanation = QRect(left, top + line + between, explanationRoom, explanationHeight);
  int middle = apart ? top + line / 2 : places.height / 2;
  if (below) {
    places.height = top + text + scaled(4) + control.height() + scaled(6);
    middle = top + text + scaled(4) + control.height() / 2;
  }
  const int wide = std::min(control.width(), whole);
  places.control = QRect(width - scaled(side) - wide + control_->emptyEnd(),
                         middle - control.height() / 2, wide, control.height());
  if (expander_ != nullptr) {
    places.expander =
        QRect(QPoint(places.control.left() - expander, middle - expander_->height() / 2),
              expander_->size());
  }
  if (note) {
    places.control = QRect(0, 0, width, places.height);
  }
  return places;
}

void SettingsRowWidget::place() {
  if (question_ != nullptr) {
    question_->setGeometry(rect());
    return;
  }
  const Arrangement places = arrange(width());
  control_->setGeometry(QStyle::visualRect(layoutDirection(), rect(), places.control));
  if (expander_ != nullptr) {
    expander_->setGeometry(QStyle::visualRect(layoutDirection(), rect(), places.expander));
  }
}

// What was chosen may not have been taken: the control shows what the content has.
void SettingsRowWidget::use(int choice) {
  const Handler use = row_.use;  // which may end this
  const QPointer<SettingsRowWidget> self(this);
  use(choice);
  if (self != nullptr) {
    control_->take(row_);
  }
}

void SettingsRowWidget::ask(const Confirmation& confirmation) {
  question_ = new Question(confirmation, look_, *this);
  control_->hide();
  question_->show();  // what is hidden has no height
  updateGeometry();
  place();
  question_->ask();
  update();
}

void SettingsRowWidget::endQuestion() {
  question_->hide();
  question_->deleteLater();
  question_ = nullptr;
  control_->show();
  control_->findChild<QPushButton*>()->setFocus(Qt::TabFocusReason);
  updateGeometry();
  place();
  update();
}

}  // namespace marigold
