#include "macos/MacLocalTimeText.h"

#include "macos/MacText.h"

namespace marigold {

std::string MacLocalTimeText::weekdayAndTime(Date date) const {
  @autoreleasepool {
    formatter_.locale = locale_ != nil ? locale_ : NSLocale.currentLocale;
    formatter_.timeZone = NSTimeZone.localTimeZone;
    [formatter_ setLocalizedDateFormatFromTemplate:@"EEEjmm"];
    const NSTimeInterval seconds = date.time_since_epoch().count();
    return fromMac([formatter_ stringFromDate:[NSDate dateWithTimeIntervalSince1970:seconds]]);
  }
}

}  // namespace marigold
