#pragma once

#include <functional>

#include <QtWidgets/QWidget>

#include "linux/popover/Look.h"
#include "linux/popover/SettingsControl.h"
#include "ports/PopoverContent.h"

QT_BEGIN_NAMESPACE
class QPushButton;
QT_END_NAMESPACE

namespace marigold {

/// One row of the settings. Title and explanation are spoken as its control's.
class SettingsRowWidget final : public QWidget {
 public:
  /// A row of `depth` is that much further in.
  SettingsRowWidget(const SettingsRow& row, int depth, const Look& look, QWidget& parent);

  /// Shows `row`, which has the same kind of control as before.
  void take(const SettingsRow& row);
  [[nodiscard]] const SettingsRow& shown() const { return row_; }
  /// Whether its control is of the kind that `row` needs.
  [[nodiscard]] bool suits(const SettingsRow& row) const;
  /// Whether a hairline parts it from the row above.
  void setSeparated(bool separated);

  /// Of a row with details: whether they are shown, and what is called when that changes.
  [[nodiscard]] bool isOpen() const;
  void setOpen(bool open);
  std::function<void()> onOpened;

  [[nodiscard]] bool hasHeightForWidth() const override { return true; }
  [[nodiscard]] int heightForWidth(int width) const override;
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  bool event(QEvent* event) override;

 private:
  class Question;
  struct Arrangement {
    QRect title;
    QRect explanation;
    QRect expander;
    QRect control;
    int height = 0;
  };

  [[nodiscard]] Arrangement arrange(int width) const;
  void place();
  void use(int choice);
  void ask(const Confirmation& confirmation);
  void endQuestion();

  const Look& look_;
  SettingsRow row_;
  int depth_;
  bool separated_ = false;
  SettingsControl* control_;
  QPushButton* expander_ = nullptr;
  Question* question_ = nullptr;
};

}  // namespace marigold
