// SMAppService's main application, os_log (strings that are not marked public are hidden, as when
// nobody debugs) and notifications' names that GNUstep lacks.
#include "macos/gnustep/FakeSystem.h"

#include <cstdarg>
#include <cstdio>

#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>
#import <os/log.h>

#pragma clang diagnostic ignored "-Wincomplete-implementation"

#define NAME(constant) extern "C" NSNotificationName const constant = @ #constant
NAME(NSWorkspaceScreensDidWakeNotification);
NAME(NSWorkspaceActiveSpaceDidChangeNotification);
NAME(NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification);

#define ABOUT(constant, key) extern "C" NSAboutPanelOptionKey const constant = @key
ABOUT(NSAboutPanelOptionApplicationName, "ApplicationName");
ABOUT(NSAboutPanelOptionApplicationVersion, "ApplicationRelease");
ABOUT(NSAboutPanelOptionVersion, "Version");
ABOUT(NSAboutPanelOptionCredits, "Credits");
NAME(NSSystemClockDidChangeNotification);
extern "C" NSString* const SMAppServiceErrorDomain = @"SMAppServiceErrorDomain";

@implementation SMAppService
+ (SMAppService*)mainAppService {
  static SMAppService* const service = [[SMAppService alloc] init];
  return service;
}
- (SMAppServiceStatus)status {
  return (SMAppServiceStatus)fake::serviceStatus;
}
- (BOOL)registerAndReturnError:(NSError**)error {
  ++fake::registrations;
  if (fake::serviceError == 0) {
    fake::serviceStatus = SMAppServiceStatusEnabled;
  } else if (error != nullptr) {
    *error = [NSError errorWithDomain:SMAppServiceErrorDomain code:fake::serviceError userInfo:nil];
  }
  return fake::serviceError == 0;
}
+ (void)openSystemSettingsLoginItems {
  ++fake::settingsOpened;
}
- (BOOL)unregisterAndReturnError:(NSError**)error {
  if (fake::serviceError != 0) {
    *error = [NSError errorWithDomain:SMAppServiceErrorDomain code:fake::serviceError userInfo:nil];
    return NO;
  }
  fake::serviceStatus = SMAppServiceStatusNotRegistered;
  return YES;
}
@end

@implementation OS_os_log {
 @public
  std::string _name;
}
@end

extern "C" {
os_log_t os_log_create(const char* subsystem, const char* category) {
  OS_os_log* const log = [[OS_os_log alloc] init];
  log->_name = std::string(subsystem) + "/" + category;
  return (os_log_t)log;
}
bool os_log_type_enabled(os_log_t, os_log_type_t) {
  return true;
}
void _os_log_checked(os_log_t log, os_log_type_t type, const char* format, ...) {
  std::string text = ((OS_os_log*)log)->_name + ": ";
  va_list arguments;
  va_start(arguments, format);
  for (const char* at = format; *at != 0; ++at) {
    const std::string_view rest(at);
    if (rest.starts_with("%{public}s")) {
      text += va_arg(arguments, const char*);
      at += 9;
    } else if (rest.starts_with("%s")) {
      (void)va_arg(arguments, const char*);
      text += "<private>";
      ++at;
    } else {
      text += *at;
    }
  }
  va_end(arguments);
  (void)std::fputs((text + "\n").c_str(), stderr);
  fake::logged.emplace_back(type, text);
}
}
