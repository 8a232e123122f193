#pragma once

// Where things stand in the popover, on every desktop alike. Lengths are in points of an interface
// font of 13, sizes of texts in parts of it.

namespace marigold::metrics {

inline constexpr double fontSize = 13;
inline constexpr double panelWidth = 332;
inline constexpr double margin = 10;  ///< between the panel's edges and its pages
inline constexpr double headerHeight = 44;
inline constexpr double cardGap = 8;

// Within a card.
inline constexpr double cardSide = 14;
inline constexpr double cardTop = 12;
inline constexpr double cardBottom = 12;
inline constexpr double belowCardTitle = 10;
inline constexpr double cardTitleSize = 1.08;
inline constexpr double planSize = 0.92;
inline constexpr double badgeSize = 0.85;
inline constexpr double blockGap = 10;
inline constexpr double buttonGap = 8;  ///< above a button
inline constexpr double barHeight = 6;
inline constexpr double aboveBar = 5;
inline constexpr double belowBar = 3;
inline constexpr double subLabelSize = 0.9;
inline constexpr double textSize = 0.96;
inline constexpr double captionSize = 0.92;
inline constexpr double aboveSeparated = 9;  ///< between a hairline and its text
inline constexpr double besideTitle = 8;
inline constexpr double besideBadge = 7;  ///< between a badge's text and its ends
inline constexpr double aroundBadge = 2;
inline constexpr double disclosureGap = 4;
inline constexpr double disclosureHeight = 28;  ///< of its title
inline constexpr double paragraphGap = 6;
inline constexpr double belowDisclosure = 7;  ///< while it is closed

// Within the settings.
inline constexpr double sectionGap = 12;
inline constexpr double sectionTitleSize = 0.92;
inline constexpr double besideSectionTitle = 6;
inline constexpr double belowSectionTitle = 5;
inline constexpr double rowSide = 14;
inline constexpr double rowIndent = 14;  ///< of details
inline constexpr double leastRowHeight = 36;
inline constexpr double aboveRowText = 8;
inline constexpr double beforeControl = 10;
inline constexpr double explanationSize = 0.88;

}  // namespace marigold::metrics
