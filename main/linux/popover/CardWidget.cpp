#include "linux/popover/CardWidget.h"

#include <algorithm>
#include <utility>

#include <QtCore/QEvent>
#include <QtGui/QPainter>
#include <QtWidgets/QStyle>
#include <QtWidgets/QVBoxLayout>

#include "linux/popover/Spoken.h"
#include "linux/system/QtPainter.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

constexpr double side = metrics::cardSide;
constexpr double top = metrics::cardTop;
constexpr double bottom = metrics::cardBottom;
constexpr double belowTitle = metrics::belowCardTitle;

}  // namespace

CardWidget::CardWidget(const Look& look, QWidget& parent)
    : QWidget(&parent),
      look_(look),
      titleFont_(interfaceFont(metrics::cardTitleSize, QFont::DemiBold)),
      plan_(new TextLabel({.size = metrics::planSize,
                           .ink = TextLabel::Ink::secondary,
                           .breaking = TextLabel::Breaking::elided},
                          look, *this)),
      badge_(new TextLabel({.size = metrics::badgeSize, .ink = TextLabel::Ink::neutralBadge}, look,
                           *this)),
      layout_(new QVBoxLayout(this)) {
  speakAs(*this, QAccessible::Grouping);
  layout_->setSpacing(0);
  plan_->hide();
  badge_->hide();
}

void CardWidget::take(const ProviderCard& card) {
  const bool first = layout_->isEmpty();
  if (first || card.title != shown_.title) {
    setAccessibleName(QString::fromStdString(card.title));
    update();
  }
  plan_->showText(card.plan);
  const CardBadge badge = card.badge.value_or(CardBadge());
  badge_->setStyle({.size = metrics::badgeSize,
                    .ink = badge.tone == CardBadge::Tone::warning ? TextLabel::Ink::warningBadge
                                                                  : TextLabel::Ink::neutralBadge});
  badge_->showText(badge.text);
  shown_ = card;

  // The widgets that have shown the same, then those that have shown the like, then new ones.
  std::vector<Block> blocks;
  blocks.reserve(card.blocks.size());
  for (const CardBlock& block : card.blocks) {
    blocks.push_back({.shown = block, .widget = takeWidget([&](const CardBlock& shown) {
                                        return shown == block;
                                      })});
  }
  for (Block& block : blocks) {
    if (block.widget == nullptr) {
      block.widget =
          takeWidget([&](const CardBlock& shown) { return shown.index() == block.shown.index(); });
    }
    if (block.widget == nullptr) {
      block.widget = makeBlockWidget(block.shown, look_, *this);
    }
  }
  for (const Block& left : blocks_) {
    if (left.widget != nullptr) {
      left.widget->hide();
      left.widget->deleteLater();  // it may be what is being used
    }
  }
  blocks_ = std::move(blocks);
  for (const Block& block : blocks_) {
    block.widget->take(block.shown);
  }
  stack();
  placeHeader();
}

void CardWidget::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintPanel(painter, QRectF(rect()), scaledExactly(MarigoldTheme::cardRadius), look_.colors().card,
             look_.colors().cardEdge);
  const QFontMetrics metrics(titleFont_);
  const int room =
      width() - 2 * scaled(side) - (badge_->isHidden() ? 0 : badge_->width() + scaled(8));
  const QString title =
      metrics.elidedText(QString::fromStdString(shown_.title), Qt::ElideRight, room);
  painter.setFont(titleFont_);
  painter.setLayoutDirection(title.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
  painter.setPen(toQt(look_.colors().text));
  painter.drawText(
      isRightToLeft() ? width() - scaled(side) - metrics.horizontalAdvance(title) : scaled(side),
      scaled(top) + metrics.ascent(), title);
}

void CardWidget::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeHeader();
}

bool CardWidget::event(QEvent* event) {
  if (event->type() == QEvent::LayoutRequest) {
    stack();
  } else if (event->type() == QEvent::LayoutDirectionChange) {
    placeHeader();
  }
  return QWidget::event(event);
}

template <class Suits>
BlockWidget* CardWidget::takeWidget(Suits suits) {
  const auto found = std::ranges::find_if(
      blocks_, [&](const Block& each) { return each.widget != nullptr && suits(each.shown); });
  return found == blocks_.end() ? nullptr : std::exchange(found->widget, nullptr);
}

// The blocks below each other, for assistive technology and the keyboard, too.
void CardWidget::stack() {
  const QMargins margins(scaled(side), scaled(top) + QFontMetrics(titleFont_).height(),
                         scaled(side),
                         scaled(blocks_.empty() ? bottom : blocks_.back().widget->gapBelow()));
  if (margins != layout_->contentsMargins()) {
    layout_->setContentsMargins(margins);
  }
  const auto inPlace = [this] {
    if (layout_->count() != 2 * static_cast<int>(blocks_.size())) {
      return false;
    }
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      if (layout_->itemAt(2 * static_cast<int>(i) + 1)->widget() != blocks_[i].widget) {
        return false;
      }
    }
    return true;
  };
  if (inPlace()) {
    return;
  }
  while (QLayoutItem* const item = layout_->takeAt(0)) {
    delete item;
  }
  QWidget* before = badge_;
  for (const Block& block : blocks_) {
    const double gap = before == badge_ ? std::min(belowTitle, block.widget->gapAbove())
                                        : block.widget->gapAbove();
    layout_->addSpacing(scaled(gap));
    layout_->addWidget(block.widget);
    block.widget->raise();
    block.widget->setVisible(true);
    before = block.widget;
  }
}

// Plan and badge stand on the title's base line; the plan gives way.
void CardWidget::placeHeader() {
  const QFontMetrics metrics(titleFont_);
  const int baseline = scaled(top) + metrics.ascent();
  const auto place = [&](TextLabel* label, int left, int width) {
    label->setGeometry(QStyle::visualRect(
        layoutDirection(), rect(),
        QRect(left, baseline - label->baseline(), width, label->sizeHint().height())));
  };
  int end = width() - scaled(side);
  if (!badge_->isHidden()) {
    const int wide = std::min(badge_->sizeHint().width(), width() / 2);
    place(badge_, end - wide, wide);
    end -= wide + scaled(8);
  }
  const int left =
      scaled(side) + metrics.horizontalAdvance(QString::fromStdString(shown_.title)) + scaled(8);
  place(plan_, left, std::clamp(plan_->sizeHint().width(), 0, std::max(end - left, 0)));
}

}  // namespace marigold
