#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "UsageStore.h"
#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/SelfTest.h"
#include "base/Drawing.h"
#include "base/EventLoop.h"
#include "base/QueuedEventLoop.h"
#include "base/Surroundings.h"
#include "base/Time.h"
#include "claude/ClaudeProvider.h"
#include "popover/DesktopTexts.h"
#include "ports/Appearance.h"
#include "ports/ApplicationControl.h"
#include "ports/Attention.h"
#include "ports/Defaults.h"
#include "ports/EventStream.h"
#include "ports/HTTPTransport.h"
#include "ports/InstanceDoor.h"
#include "ports/LocalTimeText.h"
#include "ports/Log.h"
#include "ports/LoginItem.h"
#include "ports/Popover.h"
#include "ports/PopoverContent.h"
#include "ports/RandomSource.h"
#include "ports/StatusItem.h"
#include "ports/UpdaterController.h"

namespace marigold {

/// What a desktop brings: its places, and an implementation of every port. What is referred to must
/// outlive the application made over it.
struct Desktop {
  Surroundings surroundings;
  QueuedEventLoop& loop;
  Log& log;
  Defaults& defaults;
  EventStreamSource& eventStreams;
  Attention& attention;
  RandomSource& random;
  HTTPTransport& transport;
  ClaudeProvider::KeychainRead readClaudeLogin;  ///< runs on a worker, where it may block
  StatusBar& statusBar;
  Popover& popover;
  Appearance& appearance;
  ApplicationControl& application;
  LoginItem& loginItem;
  UpdaterController& updater;
  const LocalTimeText& localTime;
  const TextMeasurer& textMeasurer;
  DesktopTexts texts = macTexts;
  bool offersBarColors = false;  ///< the desktop may not know whether its bar is dark
  std::string claudeLoginPlace;  ///< where `readClaudeLogin` looks: a path, or in words
  int processId = 0;             ///< for the log
  std::shared_ptr<InstanceDoor> door = std::make_shared<InstanceDoor>();
};

/// What runs a provider's work that may block, one for each. They must outlive the application.
struct Workers {
  Executor& claude;
  Executor& codex;
  Executor& grok;
};

/// The whole application over one desktop: makes every part and ends them in order. Lives on the
/// main loop's thread, once a process.
class MarigoldApp {
 public:
  /// How long an end may take, whatever still blocks: a worker stuck in a read of a dead network
  /// file system must not keep the session from ending.
  static constexpr Seconds longestEnd{0.5};

  /// Reads the preferences and restores the cached readings; nothing runs yet. Each provider has a
  /// thread of its own.
  explicit MarigoldApp(const Desktop& desktop);
  /// The same with `workers` in place of the threads. Their owner ends them.
  MarigoldApp(const Desktop& desktop, const Workers& workers);
  MarigoldApp(const MarigoldApp&) = delete;
  MarigoldApp& operator=(const MarigoldApp&) = delete;
  ~MarigoldApp();

  /// Shows the application, with its popover open if asked for, and starts reading.
  void launch(bool opensPopover = false);
  /// Ends it, once the desktop's event loop has: the store shuts down, the request that is out and
  /// the workers stop, and the loop drops what waits. Has the process leave after `longestEnd`
  /// regardless, so it is the last thing that a process does.
  void terminate();

  /// What it publishes.
  [[nodiscard]] const UsageStore& store() const;

 private:
  class Threads;
  class Parts;

  std::unique_ptr<Threads> threads_;
  std::unique_ptr<Parts> parts_;
};

/// A drawing for a picture file, made once there is something to measure its texts with.
using Picture = std::function<Drawing(const TextMeasurer&)>;
/// How a desktop writes PNG files at a path, without a display; false when it cannot be written.
struct PictureFiles {
  std::function<bool(const Picture& picture, const std::string& path)> save;
  std::function<bool(const PopoverContent& content, const std::string& path)> savePopover;
  DesktopTexts texts = macTexts;
  bool offersBarColors = false;
};

/// Runs the one-shot mode that `command` asks for and gives the exit status of the process; nothing
/// when the application itself is asked for.
[[nodiscard]] std::optional<int> runOneShotMode(const Command& command,
                                                const Surroundings& surroundings, Date now,
                                                const PictureFiles& pictures,
                                                const DesktopChecks& checks, std::ostream& out,
                                                std::ostream& err);

}  // namespace marigold
