#include "macos/SparkleUpdater.h"

#import <Foundation/Foundation.h>

/// What is used of Sparkle's SPUUpdater.
@protocol MGUpdater <NSObject>
@property(readonly) BOOL canCheckForUpdates;
@end

/// What is used of Sparkle's SPUStandardUpdaterController.
@protocol MGStandardUpdaterController <NSObject>
- (instancetype)initWithStartingUpdater:(BOOL)starting
                        updaterDelegate:(id)updaterDelegate
                     userDriverDelegate:(id)userDriverDelegate;
- (void)checkForUpdates:(id)sender;
@property(readonly) id<MGUpdater> updater;
@end

namespace marigold {

namespace {

class SparkleUpdater final : public UpdaterController {
 public:
  explicit SparkleUpdater(id<MGStandardUpdaterController> controller) : controller_(controller) {}

  [[nodiscard]] bool canCheckForUpdates() const override {
    return controller_.updater.canCheckForUpdates;
  }
  void checkForUpdates() override { [controller_ checkForUpdates:nil]; }

 private:
  id<MGStandardUpdaterController> const controller_;
};

}  // namespace

std::unique_ptr<UpdaterController> sparkleUpdater() {
  NSURL* const place =
      [NSBundle.mainBundle.privateFrameworksURL URLByAppendingPathComponent:@"Sparkle.framework"];
  if (place != nil && [[NSBundle bundleWithPath:place.path] load]) {
    const Class known = NSClassFromString(@"SPUStandardUpdaterController");
    const id<MGStandardUpdaterController> controller = [[known alloc] initWithStartingUpdater:YES
                                                                              updaterDelegate:nil
                                                                           userDriverDelegate:nil];
    if (controller != nil) {
      return std::make_unique<SparkleUpdater>(controller);
    }
  }
  return std::make_unique<UpdaterController>();
}

}  // namespace marigold
