#pragma once

#include <functional>

#include <QtWidgets/QWidget>

#include "linux/popover/Look.h"
#include "ports/PopoverContent.h"

namespace marigold {

/// What is used in a row of the settings: a native control, or several.
class SettingsControl : public QWidget {
 public:
  using Use = std::function<void(int choice)>;

  using QWidget::QWidget;

  /// Shows what `row` has, which has the same kind of control as before.
  virtual void take(const SettingsRow& row) = 0;
  /// What a click on the row's text does.
  virtual void useByText() {}
  /// As wide as the row, with the row's title for its own.
  [[nodiscard]] virtual bool fillsRow() const { return false; }
  /// How much of its end is only there to be clicked at, in pixels.
  [[nodiscard]] virtual int emptyEnd() const { return 0; }
};

[[nodiscard]] SettingsControl* makeSettingsControl(const SettingsRow& row, const Look& look,
                                                   QWidget& parent,
                                                   const SettingsControl::Use& use);

}  // namespace marigold
