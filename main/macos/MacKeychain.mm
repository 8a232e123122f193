#include "macos/MacKeychain.h"

#include <algorithm>
#include <array>
#include <utility>

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include "macos/MacText.h"

#pragma clang diagnostic ignored "-Wdeprecated-declarations"

namespace marigold {

namespace {

// What a function that copies gave out, released at the end of its life.
template <class Ref>
class Owned {
 public:
  Owned() = default;
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() {
    if (ref_ != nullptr) {
      CFRelease(ref_);
    }
  }
  [[nodiscard]] Ref* out() { return &ref_; }
  [[nodiscard]] Ref get() const { return ref_; }

 private:
  Ref ref_ = nullptr;
};

SecKeychainItemRef reference(const KeychainItem& item) {
  return static_cast<SecKeychainItemRef>(const_cast<void*>(item.get()));
}

// Nothing for what is not a keychain item.
KeychainItem held(id value) {
  const CFTypeRef ref = (__bridge CFTypeRef)value;
  if (ref == nullptr || CFGetTypeID(ref) != SecKeychainItemGetTypeID()) {
    return {};
  }
  return {CFRetain(ref), [](const void* kept) { CFRelease(kept); }};
}

std::optional<std::string> text(id value) {
  return [value isKindOfClass:NSString.class] ? std::optional(fromMac(value)) : std::nullopt;
}

OSStatus copyKeychain(const KeychainItem& item, Owned<SecKeychainRef>& keychain) {
  const OSStatus status = SecKeychainItemCopyKeychain(reference(item), keychain.out());
  const bool found = status != errSecSuccess || keychain.get() != nullptr;
  return found ? status : OSStatus{errSecNoSuchKeychain};
}

std::vector<std::string> applicationData(NSArray* applications) {
  std::vector<std::string> all;
  for (const id each in applications) {
    CFDataRef copied = nullptr;
    const OSStatus status =
        SecTrustedApplicationCopyData((__bridge SecTrustedApplicationRef)each, &copied);
    NSData* const data = CFBridgingRelease(copied);
    std::string& bytes = all.emplace_back();
    if (status == errSecSuccess && data.length > 0) {
      bytes.assign(static_cast<const char*>(data.bytes), data.length);
    }
  }
  return all;
}

std::optional<KeychainRule::Contents> contents(SecACLRef acl) {
  CFArrayRef trusted = nullptr;
  CFStringRef description = nullptr;
  SecKeychainPromptSelector prompt = 0;
  const OSStatus status = SecACLCopyContents(acl, &trusted, &description, &prompt);
  NSArray* const applications = CFBridgingRelease(trusted);
  const id described = CFBridgingRelease(description);
  if (status != errSecSuccess) {
    return std::nullopt;
  }
  KeychainRule::Contents result{
      .applications = {}, .description = text(described), .promptSelector = prompt};
  if (applications != nil) {
    result.applications = applicationData(applications);
  }
  return result;
}

KeychainRule rule(SecACLRef acl) {
  NSArray* const governed = CFBridgingRelease(SecACLCopyAuthorizations(acl));
  const auto governs = [&](CFStringRef authorization) -> bool {
    return [governed containsObject:(__bridge id)authorization];
  };
  return {.decrypt = governs(kSecACLAuthorizationDecrypt),
          .partitionID = governs(kSecACLAuthorizationPartitionID),
          .contents = contents(acl)};
}

}  // namespace

void MacKeychain::setUserInteractionAllowed(bool allowed) {
  (void)SecKeychainSetUserInteractionAllowed(static_cast<Boolean>(allowed));
}

std::expected<std::vector<KeychainMatch>, KeychainStatus> MacKeychain::search(
    std::string_view service) {
  @autoreleasepool {
    NSDictionary* const query = @{
      (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
      (__bridge id)kSecAttrService : toMac(service),
      (__bridge id)kSecMatchLimit : (__bridge id)kSecMatchLimitAll,
      (__bridge id)kSecReturnAttributes : @YES,
      (__bridge id)kSecReturnRef : @YES,
    };
    CFTypeRef copied = nullptr;
    const OSStatus status = SecItemCopyMatching((__bridge CFDictionaryRef)query, &copied);
    const id found = CFBridgingRelease(copied);
    if (status != errSecSuccess) {
      return std::unexpected(status);
    }
    if (![found isKindOfClass:NSArray.class]) {
      return std::unexpected(KeychainStatus{0});
    }
    std::vector<KeychainMatch> matches;
    for (const id each in static_cast<NSArray*>(found)) {
      if (![each isKindOfClass:NSDictionary.class]) {
        return std::unexpected(KeychainStatus{0});
      }
      matches.push_back({.account = text(each[(__bridge id)kSecAttrAccount]),
                         .item = held(each[(__bridge id)kSecValueRef])});
    }
    return matches;
  }
}

std::expected<std::string, KeychainStatus> MacKeychain::pathOfKeychain(const KeychainItem& item) {
  @autoreleasepool {
    Owned<SecKeychainRef> keychain;
    OSStatus status = copyKeychain(item, keychain);
    std::array<char, 1024> path = {};
    UInt32 length = path.size();
    if (status == errSecSuccess) {
      status = SecKeychainGetPath(keychain.get(), &length, path.data());
    }
    if (status != errSecSuccess) {
      return std::unexpected(status);
    }
    return std::string(path.data(), std::min<std::size_t>(length, path.size()));
  }
}

std::expected<std::uint32_t, KeychainStatus> MacKeychain::statusOfKeychain(
    const KeychainItem& item) {
  @autoreleasepool {
    Owned<SecKeychainRef> keychain;
    OSStatus status = copyKeychain(item, keychain);
    SecKeychainStatus bits = 0;
    if (status == errSecSuccess) {
      status = SecKeychainGetStatus(keychain.get(), &bits);
    }
    if (status != errSecSuccess) {
      return std::unexpected(status);
    }
    return bits;
  }
}

std::optional<std::vector<KeychainRule>> MacKeychain::accessRules(const KeychainItem& item) {
  @autoreleasepool {
    Owned<SecAccessRef> access;
    if (SecKeychainItemCopyAccess(reference(item), access.out()) != errSecSuccess ||
        access.get() == nullptr) {
      return std::nullopt;
    }
    CFArrayRef copied = nullptr;
    const OSStatus status = SecAccessCopyACLList(access.get(), &copied);
    NSArray* const list = CFBridgingRelease(copied);
    if (status != errSecSuccess || list == nil) {
      return std::nullopt;
    }
    std::vector<KeychainRule> rules;
    for (const id each in list) {
      rules.push_back(rule((__bridge SecACLRef)each));
    }
    return rules;
  }
}

}  // namespace marigold
