#include "linux/popover/PopoverPanel.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <QtCore/QEvent>
#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QScrollArea>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QStyleOptionSlider>

#include "linux/popover/CardWidget.h"
#include "linux/popover/Controls.h"
#include "linux/popover/SettingsPage.h"
#include "linux/popover/TextLabel.h"
#include "linux/system/QtPainter.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

using Page = PopoverContent::Page;

constexpr double panelWidth = metrics::panelWidth;
constexpr double margin = metrics::margin;
constexpr double headerHeight = metrics::headerHeight;
constexpr double windowRadius = 16;
constexpr double cardGap = metrics::cardGap;
constexpr double belowPage = 3;  // else what scrolls would stand out at the round corners

void collectFocusable(const QWidget& root, std::vector<QWidget*>& found) {
  for (QObject* const child : root.children()) {
    if (auto* const widget = qobject_cast<QWidget*>(child);
        widget != nullptr && !widget->isWindow()) {
      if (widget->focusPolicy() != Qt::NoFocus) {
        found.push_back(widget);
      }
      collectFocusable(*widget, found);
    }
  }
}

}  // namespace

/// A scroll bar that stands in the margin beside the cards, so that nothing moves aside for it.
class PopoverPanel::SlimScrollBar final : public QScrollBar {
 public:
  SlimScrollBar(const QScrollArea& area, const Look& look, QWidget& parent)
      : QScrollBar(Qt::Vertical, &parent), look_(look) {
    hide();
    QScrollBar& real = *area.verticalScrollBar();
    connect(&real, &QScrollBar::rangeChanged, this, [this, &area](int least, int most) {
      setPageStep(area.viewport()->height());
      setRange(least, most);
      setVisible(most > least);
    });
    connect(&real, &QScrollBar::valueChanged, this, &QScrollBar::setValue);
    connect(this, &QScrollBar::valueChanged, &real, &QScrollBar::setValue);
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRectF slider =
        style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarSlider, this);
    const double inset = scaledExactly(2.5);
    const QRectF thumb = slider.adjusted(inset, 0, -inset, 0);
    QColor color = toQt(look_.colors().secondary);
    color.setAlphaF(underMouse() || isSliderDown() ? 0.8F : 0.45F);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(thumb, thumb.width() / 2, thumb.width() / 2);
  }

 private:
  const Look& look_;
};

/// The title, and the buttons beside it.
class PopoverPanel::Header final : public QWidget {
 public:
  Header(const Look& look, PopoverPanel& panel)
      : QWidget(&panel),
        look_(look),
        back_(new GlyphButton(Glyph::back, look, *this)),
        refresh_(new GlyphButton(Glyph::refresh, look, *this)),
        settings_(new GlyphButton(Glyph::settings, look, *this)) {
    setFixedHeight(scaled(headerHeight));
    auto* const layout = new QHBoxLayout(this);
    layout->setContentsMargins(scaled(8), scaled(5), scaled(margin), 0);
    layout->setSpacing(0);
    layout->addWidget(back_);
    layout->addStretch();
    layout->addWidget(refresh_);
    layout->addWidget(settings_);
    connect(back_, &QPushButton::clicked, &panel, [&panel] { panel.showPage(Page::cards); });
    connect(settings_, &QPushButton::clicked, &panel, [&panel] { panel.showPage(Page::settings); });
    connect(refresh_, &QPushButton::clicked, &panel, [&panel] { panel.refresh(); });
  }

  void take(const PopoverContent& content) {
    const bool cards = content.page == Page::cards;
    const bool wasCards = back_->isHidden();
    const QString title =
        QString::fromStdString(cards ? content.header.title : content.settings.title);
    back_->setName(content.header.back);
    refresh_->setName(content.header.refresh);
    settings_->setName(content.header.settings);
    const QWidget* const focused = window()->focusWidget();
    const bool had = focused == back_ || focused == settings_;
    back_->setHidden(cards);
    refresh_->setHidden(!cards);
    settings_->setHidden(!cards);
    if (had && wasCards != cards) {
      (cards ? settings_ : back_)->setFocus(Qt::OtherFocusReason);
    }
    refresh_->setGlyph(content.refresh == PopoverContent::Refresh::done ? Glyph::done
                                                                        : Glyph::refresh);
    refresh_->setTurning(content.refresh == PopoverContent::Refresh::running);
    if (title != title_) {
      title_ = title;
      update();
    }
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const QRect room =
        rect().adjusted(back_->isHidden() ? scaled(16) : scaled(38), scaled(5), -scaled(80), 0);
    QPainter painter(this);
    painter.setFont(interfaceFont(1.08, QFont::DemiBold));
    painter.setPen(toQt(look_.colors().text));
    paintLine(painter, *this, room, title_);
  }

 private:
  const Look& look_;
  GlyphButton* back_;
  GlyphButton* refresh_;
  GlyphButton* settings_;
  QString title_;
};

PopoverPanel::PopoverPanel(QWidget* parent) : QWidget(parent) {
  build();
}

void PopoverPanel::build() {
  auto* const all = new QVBoxLayout(this);
  all->setContentsMargins(0, 0, 0, scaled(belowPage));
  all->setSpacing(0);
  header_ = new Header(look_, *this);
  scroll_ = new QScrollArea(this);
  scroll_->setFrameShape(QFrame::NoFrame);
  scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll_->setWidgetResizable(true);
  scroll_->setFocusPolicy(Qt::NoFocus);
  scroll_->viewport()->setAutoFillBackground(false);
  page_ = new QWidget;
  page_->setMaximumWidth(scaled(panelWidth));  // whatever it would need
  auto* const pages = new QVBoxLayout(page_);
  pages->setContentsMargins(scaled(margin), 0, scaled(margin), scaled(margin - 1));
  cardsPage_ = new QWidget(page_);
  auto* const cards = new QVBoxLayout(cardsPage_);
  cards->setContentsMargins(0, 0, 0, 0);
  cards->setSpacing(scaled(cardGap));
  pages->addWidget(cardsPage_);
  scroll_->setWidget(page_);
  page_->setAutoFillBackground(false);
  page_->installEventFilter(this);
  scrollBar_ = new SlimScrollBar(*scroll_, look_, *this);
  placeScrollBar();
  all->addWidget(header_);
  all->addWidget(scroll_);
  header_->show();
  scroll_->show();
}

void PopoverPanel::take(const PopoverContent& content) {
  const bool repaint = content.theme != look_.theme || content_.cards.empty();
  const bool turnsPage = content.page != content_.page;
  content_ = content;
  look_.theme = content.theme;
  if (repaint) {
    setPalette(look_.palette());
  }
  takeCards();
  if (content.page == Page::settings) {
    if (settings_ == nullptr) {
      settings_ = new SettingsPage(look_, *page_);
      page_->layout()->addWidget(settings_);
    }
    settings_->take(content_.settings);
  }
  cardsPage_->setHidden(content.page != Page::cards);
  if (settings_ != nullptr) {
    settings_->setHidden(content.page != Page::settings);
  }
  header_->take(content_);
  if (repaint) {
    for (QWidget* const widget : findChildren<QWidget*>()) {
      widget->update();
      if (auto* const label = dynamic_cast<TextLabel*>(widget)) {
        label->recolor();
      }
    }
    update();
  }
  if (turnsPage) {
    scroll_->verticalScrollBar()->setValue(0);
  }
  orderFocus();
}

void PopoverPanel::setTranslucent(bool translucent) {
  if (translucent_ != translucent) {
    translucent_ = translucent;
    update();
  }
}

bool PopoverPanel::useKey(const QKeyEvent& event) {
  const QKeyCombination keys = event.keyCombination();
  if (keys == QKeyCombination(Qt::Key_F5) || keys == (Qt::CTRL | Qt::Key_R)) {
    refresh();
  } else if (keys == (Qt::CTRL | Qt::Key_Comma)) {
    showPage(Page::settings);
  } else if (keys == QKeyCombination(Qt::Key_Escape) && content_.page == Page::settings) {
    showPage(Page::cards);
  } else {
    return false;
  }
  return true;
}

QSize PopoverPanel::sizeHint() const {
  page_->layout()->activate();
  const int wide = scaled(panelWidth);
  return {wide, scaled(headerHeight) + page_->layout()->heightForWidth(wide) + scaled(belowPage)};
}

void PopoverPanel::paintEvent(QPaintEvent* /*event*/) {
  const PopoverColors& colors = look_.colors();
  QPainter painter(this);
  paintPanel(painter, QRectF(rect()), translucent_ ? scaledExactly(windowRadius) : 0, colors.ground,
             colors.edge);
}

bool PopoverPanel::event(QEvent* event) {
  if (event->type() == QEvent::ApplicationFontChange) {
    rebuild();
  }
  return QWidget::event(event);
}

bool PopoverPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched == page_ && event->type() == QEvent::LayoutRequest) {
    orderFocus();
    if (onHeightChange) {
      onHeightChange();
    }
  }
  return QWidget::eventFilter(watched, event);
}

void PopoverPanel::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeScrollBar();
}

void PopoverPanel::placeScrollBar() {
  const int top = scaled(headerHeight);
  scrollBar_->setGeometry(QStyle::visualRect(
      layoutDirection(), rect(),
      QRect(width() - scaled(margin), top, scaled(margin), height() - top - scaled(windowRadius))));
}

// All that is measured by the font is made again.
void PopoverPanel::rebuild() {
  cards_.clear();
  settings_ = nullptr;
  delete header_;
  delete scrollBar_;
  delete scroll_;
  delete layout();
  build();
  take(PopoverContent(content_));
}

void PopoverPanel::takeCards() {
  while (cards_.size() > content_.cards.size()) {
    cards_.back()->hide();
    cards_.back()->deleteLater();
    cards_.pop_back();
  }
  for (std::size_t i = 0; i < content_.cards.size(); ++i) {
    if (i == cards_.size()) {
      cards_.push_back(new CardWidget(look_, *cardsPage_));
      cardsPage_->layout()->addWidget(cards_.back());
      cards_.back()->setVisible(true);
    }
    cards_[i]->take(content_.cards[i]);
  }
}

// The keyboard goes the way that the eye does.
void PopoverPanel::orderFocus() {
  std::vector<QWidget*> stations;
  collectFocusable(*header_, stations);
  collectFocusable(*page_, stations);
  for (std::size_t i = 1; i < stations.size(); ++i) {
    if (stations[i - 1]->nextInFocusChain() != stations[i]) {
      QWidget::setTabOrder(stations[i - 1], stations[i]);
    }
  }
}

void PopoverPanel::refresh() const {
  const Handler refresh = content_.refreshNow;
  refresh();
}

void PopoverPanel::showPage(Page page) const {
  const Handler show = content_.showPage;
  show(static_cast<int>(page));
}

}  // namespace marigold
