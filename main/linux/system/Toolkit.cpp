#include "linux/system/Toolkit.h"

#include <QtWidgets/QApplication>
#include <fontconfig/fontconfig.h>

#include "linux/system/BusLink.h"
#include "linux/system/DisplayProbe.h"
#include "linux/system/Probe.h"

namespace marigold {

Toolkit::Toolkit(std::span<char*> arguments, const Environment& environment, Log& log,
                 const std::function<void()>& meanwhile)
    : arguments_(arguments.begin(), arguments.end()) {
  Trial bus([&] { return opensBus(sessionBusAddress(environment)); });
  auto platforms = usablePlatforms(environment, log, [&] {
    meanwhile();
    FcInit();  // the fonts that the application asks for
  });
  hasSessionBus_ = sessionBusAnswers(bus);
  hasDisplay_ = platforms.has_value();
  if (hasDisplay_) {
    // As an argument, not in the environment: that would reach the programs we start.
    option_ = "-platform";
    platforms_ = *std::move(platforms);
    arguments_.insert(arguments_.end(), {option_.data(), platforms_.data()});
  }
  count_ = static_cast<int>(arguments_.size());
  arguments_.push_back(nullptr);
  if (hasDisplay_) {
    application_ = std::make_unique<QApplication>(count_, arguments_.data());
    QApplication::setQuitOnLastWindowClosed(false);
  } else {
    application_ = std::make_unique<QCoreApplication>(count_, arguments_.data());
    FcFini();
  }
}

Toolkit::~Toolkit() = default;

}  // namespace marigold
