#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "bar/MenuBarTexts.h"
#include "model/MenuBarPreferences.h"
#include "model/ProviderSnapshot.h"
#include "ports/LocalTimeText.h"
#include "ports/PopoverContent.h"

namespace marigold {

enum class WindowRowFill : std::uint8_t {
  solid,  ///< the bar is drawn in its zone or accent colour
  dim,    ///< drawn faded
  none,   ///< no coloured fill
};

/// How a window's bar is filled, and the text at the row's end.
struct WindowRowPresentation {
  WindowRowFill fill = WindowRowFill::none;
  std::string value{noReadingToken};

  bool operator==(const WindowRowPresentation&) const = default;
};

/// The row of a window of `snapshot`; null is a window that it does not have. `dim` asks for a
/// faded bar.
[[nodiscard]] WindowRowPresentation windowRowPresentation(const UsageWindow* window,
                                                          const ProviderSnapshot& snapshot,
                                                          bool dim, Date now);
/// When a window resets, under its bar: "in 2h 5m", "Tue 3:05 PM"; nothing unless that is to come.
[[nodiscard]] std::optional<std::string> windowResetSubLabel(std::optional<Date> resetsAt, Date now,
                                                             const LocalTimeText& localTime);

/// What a card depends on besides the reading.
struct CardSetting {
  Date now;
  const LocalTimeText& localTime;
  MarigoldTheme::Scheme scheme = MarigoldTheme::Scheme::light;
  RingColorMode ringColors = RingColorMode::byUsage;
  ProviderAccent accent = ProviderAccent::automatic;
  std::string looksIn;  ///< where the provider's data is sought
  bool claudeReadLatched = false;
  bool claudeYetFetched = true;
  bool claudeRetrying = false;
  Handler retryClaude;
  Handler turnOnClaude;
};

/// The card of a provider, worded as on a Mac; a null snapshot is one that is not known yet.
[[nodiscard]] ProviderCard providerCard(ProviderID provider, const ProviderSnapshot* snapshot,
                                        const CardSetting& setting);
/// What stands in for the cards where every provider is hidden.
[[nodiscard]] ProviderCard nothingVisibleCard(Handler openSettings);

}  // namespace marigold
