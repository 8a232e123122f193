#pragma once

#include <string>
#include <string_view>

#import <Foundation/Foundation.h>

namespace marigold {

/// `text` as the system's string; empty when it is not UTF-8.
inline NSString* toMac(std::string_view text) {
  NSString* const made = [[NSString alloc] initWithBytes:text.data()
                                                  length:text.size()
                                                encoding:NSUTF8StringEncoding];
  return made != nil ? made : @"";
}

/// `text` as UTF-8; empty for nil.
inline std::string fromMac(NSString* text) {
  const char* const bytes = text.UTF8String;
  return bytes != nullptr
             ? std::string(bytes, [text lengthOfBytesUsingEncoding:NSUTF8StringEncoding])
             : std::string();
}

}  // namespace marigold
