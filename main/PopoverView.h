#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ProviderSnapshot.h"
#include "ports/LocalTimeText.h"

namespace marigold {

/// One window of a card.
struct CardRow {
  std::string label;     ///< "5h"
  std::string value;     ///< "42%"
  std::string subLabel;  ///< when the window resets; may be empty

  bool operator==(const CardRow&) const = default;
};

/// What the popover shows of one provider.
struct ProviderCard {
  std::string title;
  std::string plan;  ///< may be empty
  std::vector<CardRow> rows;
  std::string message;  ///< why there are no rows, or a note under them; may be empty

  bool operator==(const ProviderCard&) const = default;
};

/// When a window resets, under its bar: "in 2h 5m", "Tue 3:05 PM"; nothing unless that is to come.
[[nodiscard]] std::optional<std::string> windowResetSubLabel(std::optional<Date> resetsAt, Date now,
                                                             const LocalTimeText& localTime);

/// The card of a provider; a null snapshot is one that is not known yet.
[[nodiscard]] ProviderCard providerCard(ProviderID provider, const ProviderSnapshot* snapshot,
                                        Date now, const LocalTimeText& localTime);

}  // namespace marigold
