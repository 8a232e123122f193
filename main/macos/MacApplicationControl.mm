#include "macos/MacApplicationControl.h"

#import <AppKit/AppKit.h>

#include "base/ProcessEnd.h"
#include "macos/AppMenu.h"
#include "macos/MacText.h"

namespace marigold {

void MacApplicationControl::installMainMenu() {
  NSApp.mainMenu = AppMenu::makeMainMenu();
}

void MacApplicationControl::activate() {
  [NSApp activateIgnoringOtherApps:YES];
}

void MacApplicationControl::showAbout(const AboutPanel& about) {
  NSMutableParagraphStyle* const centred = [[NSMutableParagraphStyle alloc] init];
  centred.alignment = NSTextAlignmentCenter;
  NSAttributedString* const credits = [[NSAttributedString alloc]
      initWithString:toMac(about.credits)
          attributes:@{
            NSFontAttributeName : [NSFont systemFontOfSize:NSFont.smallSystemFontSize],
            NSForegroundColorAttributeName : NSColor.labelColor,
            NSParagraphStyleAttributeName : centred
          }];
  activate();
  [NSApp orderFrontStandardAboutPanelWithOptions:@{
    NSAboutPanelOptionApplicationName : toMac(about.name),
    NSAboutPanelOptionApplicationVersion : toMac(about.version),
    NSAboutPanelOptionVersion : @"",
    NSAboutPanelOptionCredits : credits
  }];
}

void MacApplicationControl::quit() {
  // Not at once: terminating never returns, and what asked for it would end under its own feet.
  [NSApp performSelectorOnMainThread:@selector(terminate:)
                          withObject:nil
                       waitUntilDone:NO
                               modes:@[
                                 NSDefaultRunLoopMode, NSEventTrackingRunLoopMode,
                                 NSModalPanelRunLoopMode
                               ]];
}

void MacApplicationControl::leaveRegardless(Seconds after) {
  leaveAfter(after);
}

}  // namespace marigold
