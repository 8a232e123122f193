#include "PopoverWindow.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

#include <QtCore/QEvent>
#include <QtCore/QTimer>
#include <QtGui/QCursor>
#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QGridLayout>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QScrollArea>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QVBoxLayout>
#include <QtWidgets/QWidget>

#include "Palette.h"
#include "ScreenPlaces.h"
#include "X11.h"

namespace marigold {

namespace {

constexpr int padding = 12;
constexpr int rowGap = 6;
constexpr int widthInLetters = 50;
/// How long a click takes at most to reach this program after the button was released.
constexpr std::chrono::milliseconds clickOnItsWay{400};
constexpr std::chrono::seconds buttonHeld{10};

QColor faint(const QWidget& widget, float opacity) {
  QColor color = widget.palette().color(QPalette::WindowText);
  color.setAlphaF(opacity);
  return color;
}

/// A native label in a variant of the interface font, in weaker colour if it is secondary.
class TextLabel final : public QLabel {
 public:
  struct Style {
    double size = 1;
    QFont::Weight weight = QFont::Normal;
    bool secondary = false;
  };

  TextLabel(Style style, QWidget& parent) : QLabel(&parent), style_(style) {
    setTextFormat(Qt::PlainText);
    adapt();
  }

  /// Shows `text`, or is hidden when there is none.
  void showText(const std::string& text) {
    setText(QString::fromStdString(text));
    setVisible(!text.empty());
  }

 protected:
  void changeEvent(QEvent* event) override {
    QLabel::changeEvent(event);
    // One's own change arrives here as well, and changes nothing.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
      adapt();
    }
  }

 private:
  void adapt() {
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
      palette.setColor(QPalette::WindowText, faint(*parentWidget(), 0.7F));
      if (palette != this->palette()) {
        setPalette(palette);
      }
    }
  }

  Style style_;
};

class Card final : public QWidget {
 public:
  explicit Card(QWidget& parent)
      : QWidget(&parent),
        title_(new TextLabel({.size = 1.15, .weight = QFont::DemiBold}, *this)),
        plan_(new TextLabel({.secondary = true}, *this)),
        rows_(new QGridLayout),
        message_(new TextLabel({.secondary = true}, *this)) {
    auto* const header = new QHBoxLayout;
    header->addWidget(title_, 1);
    header->addWidget(plan_);
    rows_->setColumnStretch(0, 1);
    rows_->setVerticalSpacing(2);
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* const all = new QVBoxLayout(this);
    all->setContentsMargins(padding + 2, padding, padding + 2, padding);
    all->setSpacing(6);
    all->addLayout(header);
    all->addLayout(rows_);
    all->addWidget(message_);
  }

  void show(const ProviderCard& card) {
    setAccessibleName(QString::fromStdString(card.title));
    title_->showText(card.title);
    plan_->showText(card.plan);
    for (std::size_t i = 0; i < card.rows.size(); ++i) {
      if (i == labels_.size()) {
        labels_.push_back(addRow());
      }
      labels_[i].label->showText(card.rows[i].label);
      labels_[i].value->showText(card.rows[i].value);
      labels_[i].subLabel->showText(card.rows[i].subLabel);
    }
    while (labels_.size() > card.rows.size()) {
      for (const TextLabel* const label :
           {labels_.back().label, labels_.back().value, labels_.back().subLabel}) {
        delete label;
      }
      labels_.pop_back();
      rows_->setRowMinimumHeight(std::max(3 * static_cast<int>(labels_.size()) - 1, 0), 0);
    }
    message_->showText(card.message);
    layout()->activate();
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(palette().base());
    painter.setPen(faint(*this, 0.12F));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5),
                            MarigoldTheme::cardRadius, MarigoldTheme::cardRadius);
  }

 private:
  struct Row {
    TextLabel* label;
    TextLabel* value;
    TextLabel* subLabel;
  };

  Row addRow() {
    const Row row{.label = new TextLabel({}, *this),
                  .value = new TextLabel({.weight = QFont::DemiBold}, *this),
                  .subLabel = new TextLabel({.size = 0.9, .secondary = true}, *this)};
    const int line = 3 * static_cast<int>(labels_.size());
    rows_->addWidget(row.label, line, 0);
    rows_->addWidget(row.value, line, 1, Qt::AlignRight);
    rows_->addWidget(row.subLabel, line + 1, 0, 1, 2);
    message_->raise();  // to the end of what assistive technology reads, too
    if (line > 0) {
      rows_->setRowMinimumHeight(line - 1, rowGap);
    }
    return row;
  }

  TextLabel* title_;
  TextLabel* plan_;
  QGridLayout* rows_;
  TextLabel* message_;
  std::vector<Row> labels_;
};

}  // namespace

class PopoverWindow::Window final : public QWidget {
 public:
  explicit Window(PopoverWindow& popover)
      : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
        popover_(popover),
        scroll_(new QScrollArea(this)),
        content_(new QWidget) {
    setWindowTitle(QStringLiteral("Marigold"));
    setAttribute(Qt::WA_QuitOnClose, false);
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll_->setWidgetResizable(true);
    auto* const cards = new QVBoxLayout(content_);
    cards->setContentsMargins(padding, padding, padding, padding);
    cards->setSpacing(padding - 2);
    scroll_->setWidget(content_);
    auto* const frame = new QVBoxLayout(this);
    frame->setContentsMargins(1, 1, 1, 1);
    frame->addWidget(scroll_);
    closedByClick_.setSingleShot(true);
    connect(&closedByClick_, &QTimer::timeout, this, [this] { buttons_.reset(); });
  }

  void setCards(const std::vector<ProviderCard>& cards) {
    while (cards_.size() > cards.size()) {
      delete cards_.back();
      cards_.pop_back();
    }
    for (std::size_t i = 0; i < cards.size(); ++i) {
      if (i == cards_.size()) {
        cards_.push_back(new Card(*content_));
        content_->layout()->addWidget(cards_.back());
        cards_.back()->setVisible(true);
      }
      cards_[i]->show(cards[i]);
    }
    if (isVisible()) {
      fit();
    }
  }

  void open(std::optional<Point> at) {
    if (closedByClick_.isActive()) {
      return;
    }
    at_ = at;
    fit();
    scroll_->verticalScrollBar()->setValue(0);
    activateWhenPainted_ = true;
    show();
    raise();
    update();
    // Made once an opening: the end of one watch would end another's, too.
    if (!buttons_) {
      buttons_ = std::make_unique<X11Buttons>([this](bool down) { buttonMoved(down); });
    }
  }

  void dismiss() {
    if (isVisible()) {
      hide();
      if (!closedByClick_.isActive()) {
        buttons_.reset();
      }
      if (popover_.onClosed) {
        popover_.onClosed();
      }
    }
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setPen(faint(*this, 0.25F));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
    // Not before: a window manager compares when the user last did something, here and in the
    // window that has the focus. What the toolkit knows of that is news only since this window
    // appeared.
    if (std::exchange(activateWhenPainted_, false)) {
      QMetaObject::invokeMethod(this, [this] { activateWindow(); }, Qt::QueuedConnection);
    }
  }

  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() == Qt::Key_Escape) {
      dismiss();
    } else {
      QWidget::keyPressEvent(event);
    }
  }

  void closeEvent(QCloseEvent* event) override {
    event->ignore();
    dismiss();
  }

  void changeEvent(QEvent* event) override {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange) {
      // Looked at later: the focus may only pass through another window.
      QMetaObject::invokeMethod(
          this,
          [this] {
            if (isVisible() && !isActiveWindow() && hadFocus_ && !menuIsOpen()) {
              dismissByClick(clickOnItsWay);
            }
            hadFocus_ = isActiveWindow();
          },
          Qt::QueuedConnection);
    }
  }

 private:
  static bool menuIsOpen() { return QApplication::activePopupWidget() != nullptr; }

  void buttonMoved(bool down) {
    if (!down) {
      if (closedByClick_.isActive()) {
        closedByClick_.start(clickOnItsWay);
      }
    } else if (isVisible() ? !geometry().contains(QCursor::pos()) && !menuIsOpen()
                           : closedByClick_.isActive()) {
      dismissByClick(buttonHeld);
    }
  }

  void dismissByClick(std::chrono::milliseconds clickComesWithin) {
    closedByClick_.start(clickComesWithin);
    dismiss();
  }

  // As large as the cards, as far as the screen goes, at the place that suits the size.
  void fit() {
    QLayout& cards = *content_->layout();
    cards.activate();
    const int most = roomNear(at_).height();
    int width = fontMetrics().averageCharWidth() * widthInLetters;
    const int height =
        2 + (cards.hasHeightForWidth() ? cards.heightForWidth(width) : cards.sizeHint().height());
    if (height > most) {
      width += scroll_->verticalScrollBar()->sizeHint().width();
    }
    setFixedSize(width + 2, std::min(height, most));
    move(placeNear(at_, size()));
  }

  PopoverWindow& popover_;
  QScrollArea* scroll_;
  QWidget* content_;
  std::vector<Card*> cards_;
  std::optional<Point> at_;
  bool activateWhenPainted_ = false;
  bool hadFocus_ = false;
  std::unique_ptr<X11Buttons> buttons_;
  QTimer closedByClick_;  ///< runs until the click that closed the window must have been told
};

PopoverWindow::PopoverWindow() : window_(std::make_unique<Window>(*this)) {}

PopoverWindow::~PopoverWindow() = default;

void PopoverWindow::setCards(const std::vector<ProviderCard>& cards) {
  window_->setCards(cards);
}

void PopoverWindow::open(std::optional<Point> at) {
  window_->open(at);
}

void PopoverWindow::close() {
  window_->dismiss();
}

bool PopoverWindow::isShown() const {
  return window_->isVisible();
}

}  // namespace marigold
