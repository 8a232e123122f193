#include "linux/Face.h"

#include <string>
#include <utility>

#include <QtGui/QGuiApplication>
#include <QtGui/QIcon>
#include <poll.h>
#include <unistd.h>

#include "app/AppIcon.h"
#include "app/TextForm.h"
#include "linux/item/DrawingIcon.h"
#include "linux/item/LinuxStatusItem.h"
#include "linux/popover/PopoverWindow.h"
#include "linux/system/LinuxAppearance.h"
#include "linux/system/QtPainter.h"
#include "model/DiskCache.h"

namespace marigold {

namespace {

class TextOutput {
 public:
  explicit TextOutput(EventLoop& loop) : loop_(loop) {}

  void print(std::string text) {
    waiting_ = std::move(text);
    flush();
  }

 private:
  void flush() {
    pollfd writable{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    // A pipe that is writable takes PIPE_BUF bytes at once, more than a text has.
    if (::poll(&writable, 1, 0) == 0) {
      retry_ = loop_.callAfter(Seconds{1}, [this] { flush(); });
      return;
    }
    retry_.cancel();
    [[maybe_unused]] const ssize_t ignored =
        ::write(STDOUT_FILENO, waiting_.data(), waiting_.size());
  }

  EventLoop& loop_;
  std::string waiting_;
  Timer retry_;
};

}  // namespace

Face textFace(EventLoop& loop) {
  const auto output = std::make_shared<TextOutput>(loop);
  return {.statusBar = std::make_unique<TextStatusBar>(
              [output](std::string text) { output->print(std::move(text)); }),
          .popover = std::make_unique<Popover>(),
          .appearance = std::make_unique<Appearance>(),
          .textMeasurer = std::make_unique<TextMeasurer>()};
}

Face desktopFace(EventLoop& loop, BusLink& sessionBus, Defaults& defaults, bool developmentBuild) {
  // What shells that list windows show of them: the desktop entry's name and icon, or these.
  QGuiApplication::setDesktopFileName(QString::fromUtf8(
      builtInBundleIdentifier().data(), qsizetype(builtInBundleIdentifier().size())));
  QGuiApplication::setApplicationDisplayName(QStringLiteral("Marigold"));
  QGuiApplication::setWindowIcon(drawingIcon(appIcon(developmentBuild)));
  auto appearance = std::make_unique<LinuxAppearance>(sessionBus);
  auto statusBar = std::make_unique<LinuxStatusBar>(loop, sessionBus, defaults, developmentBuild);
  auto popover = std::make_unique<PopoverWindow>(loop, statusBar->itemPlace());
  return {.statusBar = std::move(statusBar),
          .popover = std::move(popover),
          .appearance = std::move(appearance),
          .textMeasurer = std::make_unique<QtTextMeasurer>()};
}

}  // namespace marigold
