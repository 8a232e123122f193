#pragma once

#include <memory>
#include <vector>

#include <QtWidgets/QPushButton>
#include <QtWidgets/QWidget>

#include "linux/popover/Look.h"
#include "ports/PopoverContent.h"

// What the cards are made of.

namespace marigold {

/// Shows one block of a card, always of one kind.
class BlockWidget : public QWidget {
 public:
  using QWidget::QWidget;

  /// Shows `block`; what stays the same in it is neither painted again nor loses its selection.
  virtual void take(const CardBlock& block) = 0;
  /// Above it, in points, below a block that is not a title.
  [[nodiscard]] virtual double gapAbove() const = 0;
  /// Below it at the end of a card.
  [[nodiscard]] virtual double gapBelow() const { return 12; }
};

[[nodiscard]] BlockWidget* makeBlockWidget(const CardBlock& block, const Look& look,
                                           QWidget& parent);

}  // namespace marigold
