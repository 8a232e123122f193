#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ports/StatusItem.h"

namespace marigold {

/// The status item for a machine without a display: what it would show, as text.
[[nodiscard]] std::string textForm(const StatusItemContent& content);

/// A status bar that prints: each change of the mark is told once, as the lines of its tooltip and,
/// unless it prints nothing, one line with its texts ("mark: 5h 37% | 12%"). An age that moves on
/// is no change, until the words around it change. Lines end with a line feed.
class TextStatusBar final : public StatusBar {
 public:
  explicit TextStatusBar(std::function<void(std::string)> print) : print_(std::move(print)) {}

  [[nodiscard]] std::unique_ptr<StatusItem> makeItem() override;

 private:
  std::function<void(std::string)> print_;
};

}  // namespace marigold
