#pragma once

#import <AppKit/AppKit.h>

namespace marigold {

/// The application's main menu. It shows only while one of our windows has the keyboard, but its
/// key equivalents are how texts there are copied and pasted.
struct AppMenu {
  [[nodiscard]] static NSMenu* makeMainMenu();
};

}  // namespace marigold
