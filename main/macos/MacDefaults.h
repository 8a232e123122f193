#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#import <Foundation/Foundation.h>

#include "base/EventLoop.h"
#include "base/Lifetime.h"
#include "ports/Defaults.h"
#include "ports/EventStream.h"

namespace marigold {

/// The user's defaults of this application.
class MacDefaults final : public Defaults {
 public:
  /// `domain` names the application's own part of `defaults`.
  explicit MacDefaults(NSUserDefaults* defaults = NSUserDefaults.standardUserDefaults,
                       NSString* domain = ownDomain());

  /// The domain of this process, by its bundle or else by its name.
  [[nodiscard]] static NSString* ownDomain();

  [[nodiscard]] DefaultsValue value(std::string_view key) const override;
  void apply(const std::vector<DefaultsChange>& changes) override;

  /// From now on tells, on the thread of `loop`, of what others store. They are noticed by the
  /// domain's file in `directory`: what is observed by key tells nothing of keys with a dot, and
  /// notifications only of this process's own changes. Both must outlive this object.
  void follow(EventLoop& loop, EventStreamSource& streams, const std::string& directory);

 private:
  [[nodiscard]] NSMutableDictionary<NSString*, id>* stored() const;
  void look();

  NSUserDefaults* const defaults_;
  NSString* const domain_;
  NSMutableDictionary<NSString*, id>* known_;  ///< what was stored, as far as it is told
  Lifetime lifetime_;
  std::unique_ptr<EventStream> stream_;
};

}  // namespace marigold
