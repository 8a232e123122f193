#include "macos/MacDefaults.h"

#include <algorithm>
#include <optional>
#include <variant>

#include "base/Time.h"
#include "macos/MacText.h"

namespace marigold {

namespace {

// How soon after one change of the file the next is told.
constexpr Seconds latency{0.5};

id native(const DefaultsValue& value) {
  if (const auto* flag = std::get_if<bool>(&value)) {
    return *flag ? @YES : @NO;
  }
  const auto* text = std::get_if<std::string>(&value);
  return text != nullptr ? toMac(*text) : nil;
}

}  // namespace

NSString* MacDefaults::ownDomain() {
  NSString* const identifier = NSBundle.mainBundle.bundleIdentifier;
  return identifier != nil ? identifier : NSProcessInfo.processInfo.processName;
}

MacDefaults::MacDefaults(NSUserDefaults* defaults, NSString* domain)
    : defaults_(defaults), domain_(domain), known_(stored()) {}

DefaultsValue MacDefaults::value(std::string_view key) const {
  const id stored = [defaults_ objectForKey:toMac(key)];
  if ([stored isKindOfClass:NSString.class]) {
    return fromMac(stored);
  }
  // A number is no flag, although both are of one class.
  if (stored != nil && CFGetTypeID((__bridge CFTypeRef)stored) == CFBooleanGetTypeID()) {
    return static_cast<bool>([stored boolValue]);
  }
  return {};
}

void MacDefaults::apply(const std::vector<DefaultsChange>& changes) {
  for (const auto& [key, value] : changes) {
    NSString* const name = toMac(key);
    const id stored = native(value);
    if (stored != nil) {
      [defaults_ setObject:stored forKey:name];
      known_[name] = stored;
    } else {
      [defaults_ removeObjectForKey:name];
      [known_ removeObjectForKey:name];
    }
  }
}

void MacDefaults::follow(EventLoop& loop, EventStreamSource& streams,
                         const std::string& directory) {
  const auto look = lifetime_.guard([this] { this->look(); });
  const std::string file = "/" + fromMac(domain_) + ".plist";
  stream_ =
      streams.open(directory, latency, [&loop, look, file](const std::vector<FileEvent>& events) {
        const bool isOurs = std::ranges::any_of(events, [&](const FileEvent& event) {
          return event.path.ends_with(file) || (event.flags & eventFlag::mustScanSubDirs) != 0;
        });
        if (isOurs || events.empty()) {
          loop.post(look);
        }
      });
  loop.post(look);  // for what happened since they were read
}

// What the domain holds.
NSMutableDictionary<NSString*, id>* MacDefaults::stored() const {
  NSDictionary<NSString*, id>* const all = [defaults_ persistentDomainForName:domain_];
  return [NSMutableDictionary dictionaryWithDictionary:all != nil ? all : @{}];
}

void MacDefaults::look() {
  NSMutableDictionary<NSString*, id>* const now = stored();
  if ([now isEqual:known_]) {
    return;
  }
  known_ = now;
  if (onChange) {
    onChange();
  }
}

}  // namespace marigold
