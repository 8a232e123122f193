#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/Drawing.h"

// What the popover shows, as values. A desktop shows texts in native labels and controls as native
// widgets, and takes a new value over by changing only what differs. Everything is worded already.

namespace marigold {

/// What using a control does. Called with the choice made: 1 or 0 of a switch, the index of an
/// option, the member of `Move`; 0 of a button. May replace the content that it is part of. Any two
/// are equal, for what a control does follows from what it is.
class Handler {
 public:
  Handler() = default;
  explicit Handler(std::function<void(int)> run) : run_(std::move(run)) {}

  void operator()(int choice = 0) const {
    if (run_) {
      run_(choice);
    }
  }
  bool operator==(const Handler& /*other*/) const noexcept { return true; }

 private:
  std::function<void(int)> run_;
};

// The cards.

/// A window's bar, six points high on the card's whole width.
struct CardBar {
  double percent = 0;         ///< 0 to 100; only 100 fills it
  std::optional<Color> fill;  ///< nothing: the track alone

  bool operator==(const CardBar&) const = default;
};

/// One window of a provider.
struct CardRow {
  std::string label;     ///< "5h"
  std::string value;     ///< "42%"
  std::string subLabel;  ///< when the window resets; may be empty
  CardBar bar;
  std::string spoken;  ///< the row as one text, for assistive technologies

  bool operator==(const CardRow&) const = default;
};

struct CardText {
  enum class Tone : std::uint8_t {
    primary,    ///< what keeps the reading away
    secondary,  ///< notes, explanations and what is as it should be
    caption,    ///< what the rows below are
  };
  std::string text;
  Tone tone = Tone::primary;
  bool separated = false;  ///< a hairline parts it from what is above

  bool operator==(const CardText&) const = default;
};

struct CardButton {
  std::string title;
  bool busy = false;  ///< what it does is under way: it cannot be used, and shows so
  Handler press;

  bool operator==(const CardButton&) const = default;
};

/// Texts that are closed at first, behind their title.
struct CardDisclosure {
  std::string title;
  std::vector<std::string> paragraphs;

  bool operator==(const CardDisclosure&) const = default;
};

using CardBlock = std::variant<CardText, CardRow, CardButton, CardDisclosure>;

struct CardBadge {
  enum class Tone : std::uint8_t { neutral, warning };
  std::string text;
  Tone tone = Tone::neutral;

  bool operator==(const CardBadge&) const = default;
};

/// What the popover shows of one provider.
struct ProviderCard {
  std::string key;    ///< tells cards apart from one content to the next: the provider's raw value
  std::string title;  ///< may be empty
  std::string plan;   ///< may be empty
  std::optional<CardBadge> badge;
  std::vector<CardBlock> blocks;  ///< from top to bottom

  bool operator==(const ProviderCard&) const = default;
};

// The settings.

struct SettingsSwitch {
  bool on = false;

  bool operator==(const SettingsSwitch&) const = default;
};

struct SettingsOption {
  std::string title;
  std::optional<Color> color;  ///< of a colour choice; nothing there means colours by usage

  bool operator==(const SettingsOption&) const = default;
};

/// One of several.
struct SettingsChoice {
  enum class Kind : std::uint8_t { menu, segments, colors };
  Kind kind = Kind::menu;
  std::vector<SettingsOption> options;
  int selected = 0;

  bool operator==(const SettingsChoice&) const = default;
};

/// A place up or down in the order.
struct SettingsMoves {
  enum class Move : std::uint8_t { up, down };
  bool canMoveUp = false;
  bool canMoveDown = false;
  std::string up = "Move up";  ///< what the buttons are called
  std::string down = "Move down";

  bool operator==(const SettingsMoves&) const = default;
};

/// What is asked before a button does what it says.
struct Confirmation {
  std::string question;
  std::string explanation;
  std::string confirm;  ///< the button that goes on
  std::string cancel;

  bool operator==(const Confirmation&) const = default;
};

struct SettingsButton {
  std::string title;  ///< empty: the row itself is the button
  std::optional<Confirmation> confirmation;
  bool leadsOn = false;  ///< to a window of its own

  bool operator==(const SettingsButton&) const = default;
};

/// Nothing to use: the row is a text.
struct SettingsNote {
  bool operator==(const SettingsNote&) const = default;
};

struct SettingsRow {
  std::string key;  ///< tells rows apart from one form to the next: "claude.window"
  std::string title;
  std::string explanation;  ///< below the title; may be empty
  std::variant<SettingsSwitch, SettingsChoice, SettingsMoves, SettingsButton, SettingsNote> control;
  bool enabled = true;
  std::vector<SettingsRow>
      details;               ///< more about the same, closed at first but for the first such
  std::string detailsTitle;  ///< what opens and closes them is called
  Handler use;

  bool operator==(const SettingsRow&) const = default;
};

struct SettingsSection {
  std::string title;
  std::vector<SettingsRow> rows;

  bool operator==(const SettingsSection&) const = default;
};

struct SettingsForm {
  std::string title;
  std::vector<SettingsSection> sections;

  bool operator==(const SettingsForm&) const = default;
};

// The whole.

/// What the popover's looks depend on.
struct MarigoldTheme {
  enum class Scheme : std::uint8_t { light, dark };
  enum class Contrast : std::uint8_t { standard, increased };
  Scheme scheme = Scheme::light;
  Contrast contrast = Contrast::standard;
  bool reduceMotion = false;

  /// Corner radius of the cards, in points.
  static constexpr double cardRadius = 14;

  bool operator==(const MarigoldTheme&) const = default;
};

/// What stands above the pages: a title, and the names of buttons that are glyphs.
struct PopoverHeader {
  std::string title = "Marigold";  ///< of the cards; the settings have their own
  std::string back = "Back";
  std::string refresh = "Refresh Now";
  std::string settings = "Settings";

  bool operator==(const PopoverHeader&) const = default;
};

struct PopoverContent {
  enum class Page : std::uint8_t { cards, settings };
  enum class Refresh : std::uint8_t {
    idle,
    running,
    done,  ///< for a moment after it ran
  };
  Page page = Page::cards;
  MarigoldTheme theme;
  Refresh refresh = Refresh::idle;
  PopoverHeader header = {};
  std::vector<ProviderCard> cards;
  SettingsForm settings;
  Handler refreshNow;
  Handler showPage;  ///< with the `Page`

  bool operator==(const PopoverContent&) const = default;
};

}  // namespace marigold
