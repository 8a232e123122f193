#pragma once

#include <string>

#import <Foundation/Foundation.h>

#include "base/Time.h"
#include "ports/LocalTimeText.h"

namespace marigold {

/// Times by the system's formatter. Belongs to the main thread.
class MacLocalTimeText final : public LocalTimeText {
 public:
  /// In `locale`; without one as the user has it set at each call.
  explicit MacLocalTimeText(NSLocale* locale = nil) : locale_(locale) {}

  [[nodiscard]] std::string weekdayAndTime(Date date) const override;

 private:
  NSLocale* const locale_;
  NSDateFormatter* const formatter_ = [[NSDateFormatter alloc] init];
};

}  // namespace marigold
