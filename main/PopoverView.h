#pragma once

#include <optional>
#include <string>

#include "model/ProviderSnapshot.h"
#include "ports/LocalTimeText.h"
#include "ports/Popover.h"

namespace marigold {

/// When a window resets, under its bar: "in 2h 5m", "Tue 3:05 PM"; nothing unless that is to come.
[[nodiscard]] std::optional<std::string> windowResetSubLabel(std::optional<Date> resetsAt, Date now,
                                                             const LocalTimeText& localTime);

/// The card of a provider; a null snapshot is one that is not known yet.
[[nodiscard]] ProviderCard providerCard(ProviderID provider, const ProviderSnapshot* snapshot,
                                        Date now, const LocalTimeText& localTime);

}  // namespace marigold
