#pragma once

#include <array>
#include <optional>
#include <string>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

namespace marigold {

/// The toolkit's application, QGuiApplication or QApplication, without a display. While there is
/// one the process must have no other.
template <class Application>
class OffscreenToolkit final {
 public:
  OffscreenToolkit() {
    // The toolkit looks for a file there, and without one would make a directory that stays.
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
      runtime_.emplace(QDir::tempPath() + QStringLiteral("/marigold-XXXXXX"));
      qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime_->path()));
    }
    application_.emplace(count_, words_.data());
  }
  OffscreenToolkit(const OffscreenToolkit&) = delete;
  OffscreenToolkit& operator=(const OffscreenToolkit&) = delete;
  ~OffscreenToolkit() = default;

 private:
  std::array<std::string, 3> texts_{"marigold", "-platform", "offscreen"};
  std::array<char*, 4> words_{texts_[0].data(), texts_[1].data(), texts_[2].data(), nullptr};
  int count_ = static_cast<int>(texts_.size());
  std::optional<QTemporaryDir> runtime_;
  std::optional<Application> application_;
};

}  // namespace marigold
