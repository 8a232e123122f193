#pragma once

#include <memory>

#import <AppKit/AppKit.h>

namespace marigold {

/// The application over the Mac's own interfaces, from its launch to its end, as the delegate of
/// the shared application.
class MacApplication final {
 public:
  MacApplication();
  MacApplication(const MacApplication&) = delete;
  MacApplication& operator=(const MacApplication&) = delete;
  ~MacApplication();

 private:
  class Parts;

  std::unique_ptr<Parts> parts_;
  id<NSApplicationDelegate> delegate_;
};

}  // namespace marigold
