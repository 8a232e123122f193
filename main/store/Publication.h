#pragma once

#include <cstdint>
#include <optional>

#include "model/ProviderSnapshot.h"

namespace marigold {

/// One answer of a provider's reader.
struct Answer {
  std::uint64_t ask = 0;      ///< the question it answers
  std::uint64_t arrival = 0;  ///< its place among the answers
  ProviderSnapshot snapshot;
  bool takesBack = false;  ///< it replaces a reading captured later, too
};

/// One provider's published reading, and the rules for what may take its place. Questions are
/// numbered as they are asked and answers as they arrive, because an answer may wait for those of
/// other providers before it is offered.
class Publication {
 public:
  enum class Order : std::uint8_t {
    byArrival,  ///< what arrived later replaces what arrived earlier
    byCapture,  ///< besides, a reading captured earlier does not replace one captured later
  };
  explicit Publication(Order order) : order_(order) {}

  [[nodiscard]] const std::optional<ProviderSnapshot>& snapshot() const noexcept {
    return snapshot_;
  }
  /// Nothing was accepted since the reading was last cleared.
  [[nodiscard]] bool isCleared() const noexcept { return isCleared_; }

  /// The number of a question that is being asked.
  [[nodiscard]] std::uint64_t ask() noexcept { return ++asked_; }
  /// The answer `snapshot` to the question `ask`, which arrives now.
  [[nodiscard]] Answer arrive(std::uint64_t ask, ProviderSnapshot snapshot, bool takesBack = false);

  /// Publishes `answer` if it may be published. An answer that is refused keeps no other one out.
  bool offer(Answer answer, Date now);
  /// Publishes `snapshot` whatever stands.
  void put(std::optional<ProviderSnapshot> snapshot) { snapshot_ = std::move(snapshot); }
  void clear();
  /// The answers to all that was asked so far come too late.
  void dropAsked() noexcept { floor_ = asked_; }

 private:
  [[nodiscard]] bool mustKeep(const ProviderSnapshot& fresh, Date now) const;

  Order order_;
  std::optional<ProviderSnapshot> snapshot_;
  bool isCleared_ = false;
  std::uint64_t asked_ = 0;
  std::uint64_t floor_ = 0;  // answers to questions up to this one are refused
  std::uint64_t arrivals_ = 0;
  std::uint64_t accepted_ = 0;  // the arrival of the answer accepted last
};

}  // namespace marigold
