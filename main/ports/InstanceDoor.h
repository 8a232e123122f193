#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/Pinned.h"

namespace marigold {

/// Where the user's other processes reach the one instance of the program. Lives on the main loop's
/// thread. This base stands in where nobody does.
class InstanceDoor : public Pinned {
 public:
  /// What a follower is told now, in lines that end with a line feed: everything at first, later
  /// what is news. Empty when nothing is.
  using News = std::function<std::string()>;

  /// Asked for the whole answer to a request, which is one line without its end.
  std::function<std::string(std::string_view request)> onRequest;
  /// Asked what to tell somebody who follows in this form; null when there is no such form.
  std::function<News(std::string_view form)> onFollow;

  /// What the followers are told may have changed.
  virtual void tellFollowers() {}
};

}  // namespace marigold
