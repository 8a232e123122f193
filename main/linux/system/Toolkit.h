#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "linux/system/LinuxSurroundings.h"
#include "ports/Log.h"

QT_BEGIN_NAMESPACE
class QCoreApplication;
QT_END_NAMESPACE

namespace marigold {

/// The toolkit's application: with windows where a display can be opened, else with a loop alone.
class Toolkit final {
 public:
  /// `arguments` begin with the program's name and must outlive this, as must the process, which
  /// has a single thread. `meanwhile` is called while display and bus are being tried.
  Toolkit(std::span<char*> arguments, const Environment& environment, Log& log,
          const std::function<void()>& meanwhile);
  Toolkit(const Toolkit&) = delete;
  Toolkit& operator=(const Toolkit&) = delete;
  ~Toolkit();

  [[nodiscard]] bool hasDisplay() const noexcept { return hasDisplay_; }
  /// The session bus answers.
  [[nodiscard]] bool hasSessionBus() const noexcept { return hasSessionBus_; }

 private:
  // All that the application refers to as long as it lives.
  std::string platforms_;
  std::string option_;
  std::vector<char*> arguments_;
  int count_ = 0;
  bool hasDisplay_ = false;
  bool hasSessionBus_ = false;
  std::unique_ptr<QCoreApplication> application_;
};

}  // namespace marigold
