#include "popover/SettingsForm.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "bar/MenuBarWindows.h"
#include "bar/Palette.h"
#include "base/AsciiText.h"
#include "claude/ClaudeTexts.h"

namespace marigold {

namespace {

using Snapshots = std::function<const ProviderSnapshot*(ProviderID)>;

// The windows that a provider's choice offers: those of its reading, and without one that which is
// chosen.
std::vector<MenuBarWindowKind> offeredWindows(const ProviderSnapshot* snapshot,
                                              MenuBarWindowKind chosen) {
  if (snapshot != nullptr && snapshot->isUsable()) {
    return availableMenuWindowKinds(*snapshot);
  }
  std::vector kinds{MenuBarWindowKind::automatic};
  if (chosen != MenuBarWindowKind::automatic) {
    kinds.push_back(chosen);
  }
  return kinds;
}

template <class T>
int indexOf(std::span<const T> offered, T value) {
  const auto found = std::ranges::find(offered, value);
  return found == offered.end() ? 0 : static_cast<int>(found - offered.begin());
}

// What was chosen among what is offered now, which may be less than when it was shown.
template <class T>
std::optional<T> chosenOf(std::span<const T> offered, int choice) {
  const auto index = static_cast<std::size_t>(choice);
  return choice >= 0 && index < offered.size() ? std::optional(offered[index]) : std::nullopt;
}

// A row for one of all cases of a choice.
template <class T, class Set>
SettingsRow choiceRow(std::string key, std::string_view title, SettingsChoice::Kind kind, T chosen,
                      Set set) {
  SettingsChoice choice{.kind = kind,
                        .selected = indexOf<T>(std::span<const T>(allCases<T>), chosen)};
  for (const T value : allCases<T>) {
    choice.options.push_back({.title = std::string(caseRow(value).label)});
  }
  return {.key = std::move(key),
          .title = std::string(title),
          .control = std::move(choice),
          .use = Handler([set = std::move(set)](int index) {
            if (const auto value = chosenOf<T>(std::span<const T>(allCases<T>), index)) {
              set(*value);
            }
          })};
}

template <class Set>
SettingsRow switchRow(std::string key, std::string_view title, bool on, Set set) {
  return {.key = std::move(key),
          .title = std::string(title),
          .control = SettingsSwitch{.on = on},
          .use = Handler([set = std::move(set)](int choice) { set(choice != 0); })};
}

SettingsRow buttonRow(std::string key, std::string_view title, SettingsButton button,
                      std::function<void()> press) {
  return {.key = std::move(key),
          .title = std::string(title),
          .control = std::move(button),
          .use = Handler([press = std::move(press)](int) {
            if (press) {
              press();
            }
          })};
}

// The rows of one provider.
class ProviderRows {
 public:
  ProviderRows(const SettingsSource& source, ProviderID provider)
      : preferences_(source.preferences),
        snapshot_(source.snapshot),
        provider_(provider),
        scheme_(source.scheme) {}

  [[nodiscard]] SettingsRow row() const {
    SettingsRow row = switchRow(key(""), displayName(provider_), preferences_.isVisible(provider_),
                                [&preferences = preferences_, provider = provider_](bool on) {
                                  preferences.setVisible(provider, on);
                                });
    row.details = {order(), inMenuBar(), window(), percentage(), resetTimer(), color()};
    row.detailsTitle = row.title + ": details";
    return row;
  }

 private:
  [[nodiscard]] std::string key(std::string_view row) const {
    return std::string(rawValue(provider_)).append(row);
  }

  [[nodiscard]] SettingsRow order() const {
    const ProviderOrder& order = preferences_.providerOrder();
    return {.key = key(".order"),
            .title = "Order",
            .control = SettingsMoves{.canMoveUp = order.front() != provider_,
                                     .canMoveDown = order.back() != provider_},
            .use = Handler([&preferences = preferences_, provider = provider_](int move) {
              preferences.moveProvider(provider, move == static_cast<int>(SettingsMoves::Move::up));
            })};
  }

  [[nodiscard]] SettingsRow inMenuBar() const {
    SettingsRow row = switchRow(key(".menuBar"), "Show in menu bar",
                                preferences_.showsInMenuBarEffective(provider_),
                                [&preferences = preferences_, provider = provider_](bool on) {
                                  preferences.setShowsInMenuBar(provider, on);
                                });
    row.enabled = preferences_.isVisible(provider_);
    return row;
  }

  [[nodiscard]] SettingsRow window() const {
    const ProviderSnapshot* const snapshot = snapshot_(provider_);
    const MenuBarWindowKind chosen =
        normalizedMenuWindowKind(preferences_.menuWindow(provider_), snapshot);
    const auto offered = offeredWindows(snapshot, chosen);
    SettingsChoice choice{.selected = indexOf<MenuBarWindowKind>(offered, chosen)};
    for (const MenuBarWindowKind kind : offered) {
      choice.options.push_back({.title = std::string(caseRow(kind).label)});
    }
    return {.key = key(".window"),
            .title = "Window",
            .control = std::move(choice),
            .enabled = preferences_.showsInMenuBarEffective(provider_),
            .use = Handler([&preferences = preferences_, provider = provider_,
                            snapshots = snapshot_](int index) {
              const auto now =
                  offeredWindows(snapshots(provider), preferences.menuWindow(provider));
              if (const auto kind = chosenOf<MenuBarWindowKind>(now, index)) {
                preferences.setMenuWindow(provider, *kind);
              }
            })};
  }

  [[nodiscard]] SettingsRow percentage() const {
    return scopes(".percentage", "Percentage", preferences_.percentScope(provider_),
                  &Preferences::setPercentScope);
  }
  [[nodiscard]] SettingsRow resetTimer() const {
    return scopes(".resetTimer", "Reset timer", preferences_.resetScope(provider_),
                  &Preferences::setResetScope);
  }

  [[nodiscard]] SettingsRow scopes(std::string_view row, std::string_view title,
                                   MenuBarTextScope chosen,
                                   void (Preferences::*set)(ProviderID, MenuBarTextScope)) const {
    const auto offered = availableTextScopes(snapshot_(provider_));
    SettingsChoice choice{
        .selected = indexOf<MenuBarTextScope>(offered, displayedTextScope(chosen, offered))};
    for (const MenuBarTextScope scope : offered) {
      choice.options.push_back({.title = std::string(textScopeTitle(scope, offered))});
    }
    return {.key = key(row),
            .title = std::string(title),
            .control = std::move(choice),
            .enabled = preferences_.showsInMenuBarEffective(provider_),
            .use = Handler([&preferences = preferences_, provider = provider_,
                            snapshots = snapshot_, set](int index) {
              const auto now = availableTextScopes(snapshots(provider));
              if (const auto scope = chosenOf<MenuBarTextScope>(now, index)) {
                (preferences.*set)(provider, *scope);
              }
            })};
  }

  [[nodiscard]] SettingsRow color() const {
    const auto dark = scheme_ == MarigoldTheme::Scheme::dark ? DarkMenuBar::yes : DarkMenuBar::no;
    SettingsChoice choice{.kind = SettingsChoice::Kind::colors,
                          .selected = static_cast<int>(preferences_.accent(provider_))};
    for (const ProviderAccent accent : allCases<ProviderAccent>) {
      const auto own = rgb(accent, dark);
      choice.options.push_back(
          {.title = own ? capitalizedWords(std::string(rawValue(accent))) : "By usage",
           .color = own ? std::optional(Color{.red = own->r, .green = own->g, .blue = own->b})
                        : std::nullopt});
    }
    return {.key = key(".color"),
            .title = "Color",
            .control = std::move(choice),
            .enabled = preferences_.isVisible(provider_),
            .use = Handler([&preferences = preferences_, provider = provider_](int index) {
              if (const auto accent = chosenOf<ProviderAccent>(
                      std::span<const ProviderAccent>(allCases<ProviderAccent>), index)) {
                preferences.setAccent(provider, *accent);
              }
            })};
  }

  Preferences& preferences_;
  Snapshots snapshot_;
  ProviderID provider_;
  MarigoldTheme::Scheme scheme_;
};

SettingsSection assistants(const SettingsSource& source) {
  SettingsSection section{.title = "Assistants"};
  for (const ProviderID provider : source.preferences.providerOrder()) {
    section.rows.push_back(ProviderRows(source, provider).row());
  }
  return section;
}

SettingsSection menuBar(const SettingsSource& source) {
  Preferences& preferences = source.preferences;
  using Kind = SettingsChoice::Kind;
  SettingsSection section{.title = "Menu bar"};
  section.rows.push_back(
      choiceRow("style", "Style", Kind::segments, preferences.menuBarStyle(),
                [&preferences](MenuBarStyle style) { preferences.setMenuBarStyle(style); }));
  section.rows.push_back(
      choiceRow("colors", "Colors", Kind::menu, preferences.ringColors(),
                [&preferences](RingColorMode mode) { preferences.setRingColors(mode); }));
  section.rows.back().explanation = ringColorsExplanation;
  section.rows.push_back(switchRow("labels", menuBarLabelsTitle, preferences.menuBarLabels(),
                                   [&preferences](bool on) { preferences.setMenuBarLabels(on); }));
  section.rows.back().explanation = menuBarLabelsExplanation;
  if (source.offersBarColors) {
    section.rows.push_back(
        choiceRow("barColors", barColorsTitle, Kind::menu, preferences.barColors(),
                  [&preferences](BarColors colors) { preferences.setBarColors(colors); }));
  }
  return section;
}

SettingsSection general(const SettingsSource& source) {
  const SettingsSource::Actions& actions = source.actions;
  SettingsSection section{.title = "General"};
  section.rows.push_back(switchRow("launchAtLogin", "Launch at login", source.launchAtLogin,
                                   actions.setLaunchAtLogin));
  section.rows.back().explanation = source.launchAtLoginError.value_or("");
  if (source.launchRequiresApproval) {
    section.rows.push_back(buttonRow("launchApproval", launchApprovalText,
                                     {.title = std::string(launchApprovalButton)},
                                     actions.openLoginItemSettings));
  }
  const bool reads = !source.preferences.claudeTurnedOff();
  section.rows.push_back(
      switchRow("readClaude", "Read Claude usage", reads, actions.setReadsClaude));
  section.rows.back().explanation =
      claudeToggleTooltip(reads ? ClaudeUsageToggle::turnOff : ClaudeUsageToggle::turnOn);
  section.rows.push_back(buttonRow(
      "clearStoredData", "Stored usage data",
      {.title = "Clear…",
       .confirmation = Confirmation{.question = "Clear stored usage data?",
                                    .explanation = std::string(clearStoredDataExplanation),
                                    .confirm = "Clear",
                                    .cancel = "Cancel"}},
      actions.clearStoredData));
  section.rows.push_back(
      buttonRow("about", "About Marigold", {.leadsOn = true}, actions.showAbout));
  section.rows.push_back(buttonRow("quit", "Quit Marigold", {}, actions.quit));
  return section;
}

}  // namespace

SettingsForm settingsForm(const SettingsSource& source) {
  return {.title = "Settings", .sections = {assistants(source), menuBar(source), general(source)}};
}

}  // namespace marigold
