#include "macos/MacApplication.h"

#include <functional>
#include <string>

#include <unistd.h>

#include "MarigoldApp.h"
#include "app/SystemRandomSource.h"
#include "macos/EndingSignals.h"
#include "macos/FSEventsSource.h"
#include "macos/MacAppearance.h"
#include "macos/MacApplicationControl.h"
#include "macos/MacAttention.h"
#include "macos/MacDefaults.h"
#include "macos/MacEventLoop.h"
#include "macos/MacLocalTimeText.h"
#include "macos/MacLog.h"
#include "macos/MacLogin.h"
#include "macos/MacLoginItem.h"
#include "macos/MacPainter.h"
#include "macos/MacPopover.h"
#include "macos/MacStatusBar.h"
#include "macos/MacSurroundings.h"
#include "macos/MacTransport.h"
#include "macos/SparkleUpdater.h"

/// Told by the system of the application's launch and end.
@interface MGApplicationDelegate : NSObject <NSApplicationDelegate>
@property(nonatomic) std::function<void()> launched;
@property(nonatomic) std::function<void()> ending;
@end

@implementation MGApplicationDelegate
- (void)applicationDidFinishLaunching:(NSNotification*)note {
  (void)note;
  _launched();
}
- (void)applicationWillTerminate:(NSNotification*)note {
  (void)note;
  _ending();
}
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)application {
  (void)application;
  return YES;
}
@end

namespace marigold {

// In the order they are made; they die in the reverse.
class MacApplication::Parts {
 public:
  Parts() {
    defaults_.follow(loop_, eventStreams_, surroundings_.configuration);
    app_.launch();
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;
  ~Parts() {
    login_.stop();
    app_.terminate();
  }

 private:
  const Surroundings surroundings_ = macSurroundings();
  MacEventLoop loop_;
  MacLog log_{surroundings_.bundleIdentifier};
  FSEventsSource eventStreams_{surroundings_.bundleIdentifier + ".fsevents"};
  MacDefaults defaults_;
  MacAttention attention_;
  SystemRandomSource random_;
  MacTransport transport_;
  MacLogin login_{surroundings_};
  MacStatusBar statusBar_;
  MacPopover popover_{statusBar_};
  MacAppearance appearance_;
  MacApplicationControl application_;
  MacLoginItem loginItem_;
  const std::unique_ptr<UpdaterController> updater_ = sparkleUpdater();
  const MacLocalTimeText localTime_;
  const MacTextMeasurer textMeasurer_;
  MarigoldApp app_{{.surroundings = surroundings_,
                    .loop = loop_,
                    .log = log_,
                    .defaults = defaults_,
                    .eventStreams = eventStreams_,
                    .attention = attention_,
                    .random = random_,
                    .transport = transport_,
                    .readClaudeLogin = [this] { return login_.read(); },
                    .statusBar = statusBar_,
                    .popover = popover_,
                    .appearance = appearance_,
                    .application = application_,
                    .loginItem = loginItem_,
                    .updater = *updater_,
                    .localTime = localTime_,
                    .textMeasurer = textMeasurer_,
                    .claudeLoginPlace = "the Keychain",
                    .processId = ::getpid()}};
  const EndingSignals signals_{[this] { loop_.post([this] { application_.quit(); }); }};
};

MacApplication::MacApplication() {
  MGApplicationDelegate* const delegate = [[MGApplicationDelegate alloc] init];
  delegate.launched = [this] { parts_ = std::make_unique<Parts>(); };
  delegate.ending = [this] { parts_.reset(); };
  delegate_ = delegate;
  NSApp.delegate = delegate_;
}

MacApplication::~MacApplication() {
  NSApp.delegate = nil;
}

}  // namespace marigold
