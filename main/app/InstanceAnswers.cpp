#include "app/InstanceAnswers.h"

#include <memory>

#include "app/StatusItemPicture.h"

namespace marigold {

InstanceAnswers::InstanceAnswers(const Services& services) : s_(services) {
  s_.door.onRequest = [this](std::string_view request) { return answer(request); };
  s_.door.onFollow = [this](std::string_view form) -> InstanceDoor::News {
    const auto known = fromRawValue<StatusForm>(form);
    if (!known) {
      return nullptr;
    }
    return [this, news = std::make_shared<StatusNews>(*known)] { return news->next(report()); };
  };
  s_.delegate.onRedrawn = [this] { s_.door.tellFollowers(); };
}

InstanceAnswers::~InstanceAnswers() {
  s_.delegate.onRedrawn = nullptr;
  s_.door.onRequest = nullptr;
  s_.door.onFollow = nullptr;
}

std::string InstanceAnswers::answer(std::string_view request) {
  if (request == instanceRequest::open) {
    return std::string(s_.delegate.openOnRequest() ? openedAnswer : noDisplayAnswer);
  }
  if (request == instanceRequest::quit) {
    s_.application.quit();
    return {};
  }
  if (request.starts_with(instanceRequest::status)) {
    request.remove_prefix(instanceRequest::status.size());
    if (const auto form = fromRawValue<StatusForm>(request)) {
      return statusText(report(), *form);
    }
  }
  return {};
}

StatusReport InstanceAnswers::report() const {
  return statusReport(publishedReadings(s_.store, s_.store.visibleProviders(), s_.texts),
                      s_.store.preferences(), s_.loop.date(), s_.localTime);
}

}  // namespace marigold
