#pragma once

#include <vector>

#include <QtWidgets/QWidget>

#include "linux/popover/CardBlocks.h"
#include "linux/popover/TextLabel.h"

QT_BEGIN_NAMESPACE
class QVBoxLayout;
QT_END_NAMESPACE

namespace marigold {

/// One provider's card: to assistive technology a group with the provider's name.
class CardWidget final : public QWidget {
 public:
  CardWidget(const Look& look, QWidget& parent);

  /// Shows `card`. Widgets stay for blocks that are the same or at least of the same kind.
  void take(const ProviderCard& card);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool event(QEvent* event) override;

 private:
  struct Block {
    CardBlock shown;
    BlockWidget* widget;
  };

  template <class Suits>
  [[nodiscard]] BlockWidget* takeWidget(Suits suits);
  void stack();
  void placeHeader();

  const Look& look_;
  ProviderCard shown_;
  QFont titleFont_;
  TextLabel* plan_;
  TextLabel* badge_;
  std::vector<Block> blocks_;
  QVBoxLayout* layout_;
};

}  // namespace marigold
