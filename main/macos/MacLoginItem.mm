#include "macos/MacLoginItem.h"

#import <ServiceManagement/ServiceManagement.h>

#include "macos/MacText.h"

namespace marigold {

namespace {

std::expected<void, std::string> outcome(bool done, NSError* error) {
  if (!done) {
    return std::unexpected(fromMac(error.localizedDescription));
  }
  return {};
}

}  // namespace

LoginItem::Status MacLoginItem::status() const {
  switch (SMAppService.mainAppService.status) {
    case SMAppServiceStatusEnabled:
      return Status::enabled;
    case SMAppServiceStatusRequiresApproval:
      return Status::requiresApproval;
    case SMAppServiceStatusNotRegistered:
    case SMAppServiceStatusNotFound:
      break;
  }
  return Status::notRegistered;
}

std::expected<void, std::string> MacLoginItem::registerProgram() {
  NSError* error = nil;
  const bool done = [SMAppService.mainAppService registerAndReturnError:&error];
  return outcome(done, error);
}

std::expected<void, std::string> MacLoginItem::unregisterProgram() {
  NSError* error = nil;
  const bool done = [SMAppService.mainAppService unregisterAndReturnError:&error];
  return outcome(done, error);
}

void MacLoginItem::openSystemSettings() {
  [SMAppService openSystemSettingsLoginItems];
}

}  // namespace marigold
