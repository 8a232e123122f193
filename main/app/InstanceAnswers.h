#pragma once

#include <string>
#include <string_view>

#include "UsageStore.h"
#include "app/AppDelegate.h"
#include "app/StatusReport.h"
#include "popover/DesktopTexts.h"
#include "ports/ApplicationControl.h"
#include "ports/InstanceDoor.h"
#include "ports/LocalTimeText.h"

namespace marigold {

/// What is asked of the running program by others of its user.
namespace instanceRequest {
inline constexpr std::string_view open = "open";
inline constexpr std::string_view quit = "quit";
inline constexpr std::string_view status = "status ";  ///< and the raw value of a StatusForm
}  // namespace instanceRequest

/// Answers to "open": the popover is open, or there is no display to open it on.
inline constexpr std::string_view openedAnswer = "open\n";
inline constexpr std::string_view noDisplayAnswer = "no display\n";

/// Answers what comes in at the instance's door.
class InstanceAnswers {
 public:
  /// The references must outlive this.
  struct Services {
    const UsageStore& store;
    AppDelegate& delegate;
    ApplicationControl& application;
    EventLoop& loop;
    const LocalTimeText& localTime;
    InstanceDoor& door;
    DesktopTexts texts;
  };

  explicit InstanceAnswers(const Services& services);
  InstanceAnswers(const InstanceAnswers&) = delete;
  InstanceAnswers& operator=(const InstanceAnswers&) = delete;
  ~InstanceAnswers();

 private:
  [[nodiscard]] std::string answer(std::string_view request);
  [[nodiscard]] StatusReport report() const;

  Services s_;
};

}  // namespace marigold
