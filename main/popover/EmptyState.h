#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/ProviderSnapshot.h"

// What a card says about a provider without a current reading.

namespace marigold {

/// Why a card shows no bars.
struct EmptyStateKind {
  enum class Kind : std::uint8_t {
    retrying,   ///< Claude asks for a new login and is read again by itself; `text` is the reason
    latched,    ///< the same, but it is read again only when the user asks
    reason,     ///< another provider's reason
    note,       ///< the provider's own note
    failure,    ///< a Claude failure line
    turnedOff,  ///< the user turned the provider off
    checking,   ///< Claude has not been read yet
    noLimits,   ///< the provider answered but has no active limits
    noData,     ///< nothing is known yet
  };
  Kind kind = Kind::noData;
  std::string text;  ///< of the first five kinds

  bool operator==(const EmptyStateKind&) const = default;
};

[[nodiscard]] EmptyStateKind emptyStateKind(ProviderID provider,
                                            const std::optional<Health>& health,
                                            bool claudeReadLatched, bool claudeYetFetched,
                                            const std::optional<std::string>& note);

/// There is a message that says why.
[[nodiscard]] bool emptyStateShowsMessage(const EmptyStateKind& kind) noexcept;
/// There is anything below the card's header; `hasRetained` tells that an older reading is kept.
[[nodiscard]] bool emptyStateEmitsBody(const EmptyStateKind& kind, bool hasRetained) noexcept;
/// The older reading is shown first, then the message.
[[nodiscard]] bool cardLeadsWithReading(const EmptyStateKind& kind, bool hasRetained) noexcept;
/// The message in full; empty where there is none.
[[nodiscard]] std::string_view emptyStateMessage(const EmptyStateKind& kind);

/// Said above an older reading.
inline constexpr std::string_view retainedReadingLabel = "Last reading before this";

/// The small badge on a card, if any.
[[nodiscard]] std::optional<std::string_view> healthBadgeLabel(const std::optional<Health>& health,
                                                               const EmptyStateKind& kind);
/// The card shows the health instead of windows.
[[nodiscard]] bool healthOwnsCard(const std::optional<Health>& health) noexcept;

}  // namespace marigold
