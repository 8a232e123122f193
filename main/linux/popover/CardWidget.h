#pragma once

#include <vector>

#include <QtWidgets/QWidget>

#include "ports/Popover.h"

QT_BEGIN_NAMESPACE
class QColor;
class QGridLayout;
QT_END_NAMESPACE

namespace marigold {

/// The text colour of `widget`, weakened to `opacity`: for edges and secondary texts.
[[nodiscard]] QColor faintText(const QWidget& widget, float opacity);

/// One provider's card, with all texts in native labels.
class CardWidget final : public QWidget {
 public:
  explicit CardWidget(QWidget& parent);

  /// Shows `card`; labels that stay keep what the user selected in them.
  void show(const ProviderCard& card);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  class TextLabel;
  struct Row {
    TextLabel* label;
    TextLabel* value;
    TextLabel* subLabel;
  };

  Row addRow();

  TextLabel* title_;
  TextLabel* plan_;
  QGridLayout* grid_;
  TextLabel* message_;
  std::vector<Row> rows_;
};

}  // namespace marigold
