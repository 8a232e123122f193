#import <Foundation/Foundation.h>

#include "claude/keychain/BinaryPropertyList.h"
#include "claude/keychain/PropertyList.h"
#include "macos/MacText.h"

// Property lists as the system reads them.

namespace marigold {

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) {
  if (bytes.size() > largest || (isBinaryPropertyList(bytes) && !sharesNothing(bytes))) {
    return std::nullopt;
  }
  @autoreleasepool {
    NSPropertyListFormat format = NSPropertyListOpenStepFormat;
    const id root = [NSPropertyListSerialization
        propertyListWithData:[NSData dataWithBytes:bytes.data() length:bytes.size()]
                     options:NSPropertyListImmutable
                      format:&format
                       error:nullptr];
    if (root == nil || format == NSPropertyListOpenStepFormat) {
      return std::nullopt;
    }
    void* const kept = (__bridge_retained void*)root;
    return PropertyList(Root(kept, [](void* held) { CFRelease(held); }));
  }
}

std::optional<std::vector<std::string>> PropertyList::texts(const std::string& key) const {
  @autoreleasepool {
    const id root = (__bridge id)root_.get();
    const id list = [root isKindOfClass:NSDictionary.class] ? root[toMac(key)] : nil;
    if (![list isKindOfClass:NSArray.class]) {
      return std::nullopt;
    }
    std::vector<std::string> texts;
    for (const id each in static_cast<NSArray*>(list)) {
      if (![each isKindOfClass:NSString.class]) {
        return std::nullopt;
      }
      texts.push_back(fromMac(each));
    }
    return texts;
  }
}

}  // namespace marigold
