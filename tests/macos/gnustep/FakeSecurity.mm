// Security.h's keychain as far as MacKeychain uses it: items and rules out of a table. Searches by
// service only; secrets, changes and more than one keychain are not kept.
#include "macos/gnustep/FakeSecurity.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include "macos/MacText.h"

#pragma clang diagnostic ignored "-Wdeprecated-declarations"

// One class for each kind of reference, told apart by CFGetTypeID, which is the class here.
#define KIND(name, member)     \
  @interface name : NSObject { \
   @public                     \
    member;                    \
  }                            \
  @end                         \
  @implementation name         \
  -(instancetype)init {        \
    ++fake::living;            \
    return [super init];       \
  }                            \
  -(void)dealloc {             \
    --fake::living;            \
  }                            \
  @end
KIND(MGFakeItem, const fake::Item* item)
KIND(MGFakeKeychain, int unused)
KIND(MGFakeAccess, const fake::Item* item)
KIND(MGFakeACL, const fake::ACL* acl)
KIND(MGFakeApplication, std::string path)

using marigold::toMac;

static bool refuses(const fake::Item& item) {
  if (item.readingRulesAsks && fake::interactionAllowed) {
    ++fake::prompts;
  }
  return item.readingRulesAsks && !fake::interactionAllowed;
}
static NSString* authorization(const std::string& name) {
  return toMac("ACLAuthorization" + name);
}

extern "C" {
#define CONSTANT(name, text) extern const CFStringRef name = CFSTR(text)
CONSTANT(kSecClass, "class");
CONSTANT(kSecClassGenericPassword, "genp");
CONSTANT(kSecAttrService, "svce");
CONSTANT(kSecAttrAccount, "acct");
CONSTANT(kSecMatchLimit, "m_Limit");
CONSTANT(kSecMatchLimitAll, "m_LimitAll");
CONSTANT(kSecReturnAttributes, "r_Attributes");
CONSTANT(kSecReturnRef, "r_Ref");
CONSTANT(kSecValueRef, "v_Ref");
CONSTANT(kSecACLAuthorizationDecrypt, "ACLAuthorizationDecrypt");
CONSTANT(kSecACLAuthorizationPartitionID, "ACLAuthorizationPartitionID");

CFTypeID SecKeychainItemGetTypeID(void) {
  return (CFTypeID)(__bridge void*)MGFakeItem.class;
}

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result) {
  NSDictionary* const asked = (__bridge NSDictionary*)query;
  if (![asked[@"class"] isEqual:@"genp"] || ![asked[@"m_Limit"] isEqual:@"m_LimitAll"] ||
      ![asked[@"r_Attributes"] boolValue] || ![asked[@"r_Ref"] boolValue]) {
    return errSecParam;  // not offered
  }
  if (fake::keychain.searchStatus != errSecSuccess) {
    return fake::keychain.searchStatus;
  }
  NSMutableArray* const found = [NSMutableArray array];
  for (const fake::Item& each : fake::keychain.items) {
    if (![asked[@"svce"] isEqual:toMac(each.service)]) {
      continue;
    }
    MGFakeItem* const item = [[MGFakeItem alloc] init];
    item->item = &each;
    NSMutableDictionary* const attributes = [NSMutableDictionary dictionary];
    attributes[@"svce"] = toMac(each.service);
    if (each.account) {
      attributes[@"acct"] = toMac(*each.account);
    }
    if (each.reference != fake::Reference::none) {
      attributes[@"v_Ref"] = each.reference == fake::Reference::item ? (id)item : @"another";
    }
    [found addObject:attributes];
  }
  if (found.count == 0) {
    return errSecItemNotFound;
  }
  *result = CFBridgingRetain(fake::keychain.listless ? found[0] : (id)found);
  return errSecSuccess;
}
OSStatus SecKeychainSetUserInteractionAllowed(Boolean state) {
  fake::interactionAllowed = state;
  return errSecSuccess;
}
OSStatus SecKeychainItemCopyKeychain(SecKeychainItemRef, SecKeychainRef* keychain) {
  if (fake::keychain.keychainStatus != errSecSuccess) {
    return fake::keychain.keychainStatus;
  }
  *keychain = fake::keychain.isThere
                  ? (SecKeychainRef)CFBridgingRetain([[MGFakeKeychain alloc] init])
                  : nullptr;
  return errSecSuccess;
}
OSStatus SecKeychainGetPath(SecKeychainRef, UInt32* length, char* path) {
  if (*length < fake::keychain.path.size() + 1) {
    return errSecBufferTooSmall;
  }
  *length = (UInt32)fake::keychain.path.copy(path, std::string::npos);  // and without its end
  return errSecSuccess;
}
OSStatus SecKeychainGetStatus(SecKeychainRef, SecKeychainStatus* status) {
  *status = fake::keychain.status;
  return fake::keychain.statusStatus;
}
OSStatus SecKeychainItemCopyAccess(SecKeychainItemRef ref, SecAccessRef* access) {
  MGFakeItem* const item = (__bridge MGFakeItem*)ref;
  if (refuses(*item->item)) {
    return errSecInteractionNotAllowed;
  }
  MGFakeAccess* const result = [[MGFakeAccess alloc] init];
  result->item = item->item;
  *access = (SecAccessRef)CFBridgingRetain(result);
  return errSecSuccess;
}
OSStatus SecAccessCopyACLList(SecAccessRef access, CFArrayRef* list) {
  const fake::Item& item = *((__bridge MGFakeAccess*)access)->item;
  if (item.listStatus != errSecSuccess) {
    return item.listStatus;
  }
  NSMutableArray* const all = [NSMutableArray array];
  for (const fake::ACL& each : item.acls) {
    MGFakeACL* const acl = [[MGFakeACL alloc] init];
    acl->acl = &each;
    [all addObject:acl];
  }
  *list = (CFArrayRef)CFBridgingRetain(all);
  return errSecSuccess;
}
CFArrayRef SecACLCopyAuthorizations(SecACLRef acl) {
  NSMutableArray* const all = [NSMutableArray array];
  for (const std::string& each : ((__bridge MGFakeACL*)acl)->acl->authorizations) {
    [all addObject:authorization(each)];
  }
  return (CFArrayRef)CFBridgingRetain(all);
}
OSStatus SecACLCopyContents(SecACLRef ref, CFArrayRef* applications, CFStringRef* description,
                            SecKeychainPromptSelector* prompt) {
  const fake::ACL& acl = *((__bridge MGFakeACL*)ref)->acl;
  if (acl.contentsStatus != errSecSuccess) {
    return acl.contentsStatus;
  }
  *applications = nullptr;
  if (acl.applications) {
    NSMutableArray* const all = [NSMutableArray array];
    for (const std::string& each : *acl.applications) {
      MGFakeApplication* const application = [[MGFakeApplication alloc] init];
      application->path = each;
      [all addObject:application];
    }
    *applications = (CFArrayRef)CFBridgingRetain(all);
  }
  *description = (CFStringRef)CFBridgingRetain(toMac(acl.description));
  *prompt = acl.prompt;
  return errSecSuccess;
}
OSStatus SecTrustedApplicationCopyData(SecTrustedApplicationRef ref, CFDataRef* data) {
  const std::string& path = ((__bridge MGFakeApplication*)ref)->path;
  if (path == fake::unreadable) {
    return errSecInternalComponent;
  }
  *data = (CFDataRef)CFBridgingRetain([NSData dataWithBytes:path.c_str()
                                                     length:path.size() + 1]);  // with its end
  return errSecSuccess;
}
}
