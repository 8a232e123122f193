#pragma once

#include <memory>
#include <utility>

namespace marigold {

/// Tells work that may outlive an object whether the object, which holds this as a member, still
/// lives. `this` may be captured together with a `Mark` or in a guarded call; both may pass through
/// any thread, and are asked on the object's own.
class Lifetime {
 public:
  class Mark {
   public:
    [[nodiscard]] bool isOver() const noexcept { return token_.expired(); }

   private:
    friend class Lifetime;
    explicit Mark(std::weak_ptr<const char> token) : token_(std::move(token)) {}
    std::weak_ptr<const char> token_;
  };

  Lifetime() = default;
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;
  ~Lifetime() = default;

  [[nodiscard]] Mark mark() const { return Mark(token_); }

  /// A call of `work`, with whatever arguments it takes, that does nothing once the object is gone.
  template <class Callable>
  [[nodiscard]] auto guard(Callable work) const {
    return [mark = mark(), work = std::move(work)]<class... Arguments>(Arguments&&... arguments) {
      if (!mark.isOver()) {
        work(std::forward<Arguments>(arguments)...);
      }
    };
  }

 private:
  std::shared_ptr<const char> token_ = std::make_shared<const char>();
};

}  // namespace marigold
