#include "macos/MacAppearance.h"

#import <AppKit/AppKit.h>

#include "macos/MacStatusBar.h"

namespace marigold {

MacAppearance::MacAppearance()
    : options_(NSWorkspace.sharedWorkspace.notificationCenter,
               NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification, [this] { changed(); }),
      windows_(NSApp, @"effectiveAppearance", [this] { changed(); }) {}

AppearanceSettings MacAppearance::settings() const {
  NSWorkspace* const workspace = NSWorkspace.sharedWorkspace;
  return {.increaseContrast = workspace.accessibilityDisplayShouldIncreaseContrast != NO,
          .reduceMotion = workspace.accessibilityDisplayShouldReduceMotion != NO,
          .darkWindows = isDark(NSApp.effectiveAppearance)};
}

}  // namespace marigold
