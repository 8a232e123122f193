#pragma once

#include <array>
#include <string>
#include <utility>

#include <QtWidgets/QApplication>

#include "support/Eventually.h"

namespace marigold::test {

/// The toolkit's application, by default without a display.
class ToolkitApplication {
 public:
  explicit ToolkitApplication(std::string platform = "offscreen") : platform_(std::move(platform)) {
    QApplication::setQuitOnLastWindowClosed(false);
  }

 private:
  std::string platform_;
  std::string name_ = "test";
  std::string option_ = "-platform";
  std::array<char*, 4> words_{name_.data(), option_.data(), platform_.data(), nullptr};
  int count_ = 3;
  QApplication application_{count_, words_.data()};
};

}  // namespace marigold::test
