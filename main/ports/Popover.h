#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/Pinned.h"

namespace marigold {

/// One window of a card.
struct CardRow {
  std::string label;     ///< "5h"
  std::string value;     ///< "42%"
  std::string subLabel;  ///< when the window resets; may be empty

  bool operator==(const CardRow&) const = default;
};

/// What the popover shows of one provider.
struct ProviderCard {
  std::string title;
  std::string plan;  ///< may be empty
  std::vector<CardRow> rows;
  std::string message;  ///< why there are no rows, or a note under them; may be empty

  bool operator==(const ProviderCard&) const = default;
};

/// The window with the providers' cards that opens at the status item. The desktop closes it on
/// Escape, on losing the focus and on a click outside, for which it watches while it is open. Lives
/// on the main loop's thread. This base stands in where there are no windows.
class Popover : public Pinned {
 public:
  /// Called after the popover closed, whoever closed it.
  std::function<void()> onClosed;

  /// What is shown, also while it is open.
  virtual void setCards(const std::vector<ProviderCard>& /*cards*/) {}
  /// Opens it at the status item and gives it the keyboard.
  virtual void open() {}
  virtual void close() {}
  [[nodiscard]] virtual bool isShown() const { return false; }
};

}  // namespace marigold
