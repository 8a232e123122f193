#pragma once

#include <array>
#include <string>

#include <QtCore/QTimer>
#include <QtWidgets/QApplication>

namespace marigold::test {

/// Turns the toolkit's loop until `holds` does, for some seconds at most; whether it then does.
template <class Condition>
bool eventually(Condition holds, double seconds = 20) {
  QTimer limit;
  limit.setSingleShot(true);
  limit.start(static_cast<int>(seconds * 1000));
  // Looked at after every event and, for what another program does, now and then.
  QTimer look;
  look.start(10);
  bool held = holds();
  while (!held && limit.isActive()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    held = holds();
  }
  return held;
}

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
