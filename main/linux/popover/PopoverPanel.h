#pragma once

#include <functional>
#include <vector>

#include <QtWidgets/QWidget>

#include "linux/popover/Look.h"
#include "ports/PopoverContent.h"

QT_BEGIN_NAMESPACE
class QKeyEvent;
class QScrollArea;
QT_END_NAMESPACE

namespace marigold {

class CardWidget;
class GlyphButton;
class SettingsPage;

/// All that is in the popover's window: a header, and below it the cards or the settings, which
/// scroll where there is not room enough. Is as wide as it wants to be, at any height.
class PopoverPanel final : public QWidget {
 public:
  explicit PopoverPanel(QWidget* parent = nullptr);

  /// Shows `content`. Widgets stay as far as what they show does.
  void take(const PopoverContent& content);
  /// Whether its corners may be round, since what is behind them shows through.
  void setTranslucent(bool translucent);
  /// Does what a key that no control has used stands for: to refresh, to the settings and back.
  /// Whether it did.
  bool useKey(const QKeyEvent& event);

  /// The height at which nothing scrolls.
  [[nodiscard]] QSize sizeHint() const override;

  /// Called after the height that is wanted may have become another.
  std::function<void()> onHeightChange;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool event(QEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  class Header;
  class SlimScrollBar;

  void build();
  void rebuild();
  void takeCards();
  void orderFocus();
  void placeScrollBar();
  void refresh() const;
  void showPage(PopoverContent::Page page) const;

  Look look_;
  PopoverContent content_;
  bool translucent_ = false;
  Header* header_ = nullptr;
  QScrollArea* scroll_ = nullptr;
  SlimScrollBar* scrollBar_ = nullptr;
  QWidget* page_ = nullptr;
  QWidget* cardsPage_ = nullptr;
  std::vector<CardWidget*> cards_;
  SettingsPage* settings_ = nullptr;  ///< once they were asked for
};

}  // namespace marigold
