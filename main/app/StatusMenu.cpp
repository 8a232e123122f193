#include "app/StatusMenu.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "bar/MenuBarWindows.h"
#include "claude/ClaudeTexts.h"
#include "popover/AboutText.h"
#include "popover/SettingsForm.h"

namespace marigold {

namespace {

using Items = std::vector<MenuItem>;
using Kind = MenuItem::Kind;

struct RingColorItem {
  RingColorMode mode;
  std::string_view title;
  std::string_view tooltip;
};
constexpr std::array ringColorItems{
    RingColorItem{.mode = RingColorMode::byWindow,
                  .title = "Colors by Window",
                  .tooltip = "The 5h window in teal and the Weekly window in purple. Red at 90% "
                             "and over."},
    RingColorItem{.mode = RingColorMode::byUsage,
                  .title = "Colors by Usage",
                  .tooltip = "Green, amber or red by how much of the limit is used, or the "
                             "provider's own color."}};

void append(Items& items, Items more) {
  items.insert(items.end(), std::move_iterator(more.begin()), std::move_iterator(more.end()));
}

MenuItem membershipMenu(UsageStore& store) {
  const Preferences& chosen = store.preferences();
  MenuItem menu{.kind = Kind::submenu, .title = "Show in Menu Bar"};
  for (const ProviderID provider : chosen.providerOrder()) {
    menu.items.push_back({.kind = Kind::checkbox,
                          .title = std::string(displayName(provider)),
                          .checked = chosen.showsInMenuBarEffective(provider),
                          // One hidden in the popover is in no menu bar, whatever is chosen.
                          .enabled = chosen.isVisible(provider),
                          .action = [&store, provider] {
                            Preferences& choices = store.preferences();
                            choices.setShowsInMenuBar(provider, !choices.showsInMenuBar(provider));
                          }});
  }
  return menu;
}

// The windows whose value is printed, under a heading.
Items scopeItems(UsageStore& store, ProviderID provider, std::string_view what,
                 MenuBarTextScope current,
                 void (Preferences::*choose)(ProviderID, MenuBarTextScope)) {
  const auto& snapshot = store.snapshot(provider);
  const auto offered = availableTextScopes(snapshot ? &*snapshot : nullptr);
  const MenuBarTextScope displayed = displayedTextScope(current, offered);
  Items items{
      {.title = std::string(displayName(provider)) + ": " + std::string(what), .enabled = false}};
  for (const MenuBarTextScope scope : offered) {
    items.push_back({.kind = Kind::radio,
                     .title = std::string(textScopeTitle(scope, offered)),
                     .checked = scope == displayed,
                     .indent = 1,
                     .action = [&store, provider, scope, choose] {
                       (store.preferences().*choose)(provider, scope);
                     }});
  }
  return items;
}

MenuItem styleMenu(UsageStore& store) {
  MenuItem menu{.kind = Kind::submenu, .title = "Menu Bar Style"};
  for (const auto& style : caseTable<MenuBarStyle>) {
    menu.items.push_back(
        {.kind = Kind::radio,
         .title = std::string(style.label),
         .checked = style.value == store.preferences().menuBarStyle(),
         .action = [&store, value = style.value] { store.preferences().setMenuBarStyle(value); }});
  }
  return menu;
}

Items ringColorChoices(UsageStore& store) {
  Items items;
  for (const RingColorItem& item : ringColorItems) {
    items.push_back(
        {.kind = Kind::radio,
         .title = std::string(item.title),
         .tooltip = std::string(item.tooltip),
         .checked = item.mode == store.preferences().ringColors(),
         .action = [&store, mode = item.mode] { store.preferences().setRingColors(mode); }});
  }
  return items;
}

MenuItem claudeToggle(UsageStore& store) {
  const bool reads = claudeReadsThisCycle(store.preferences().claudeTurnedOff());
  const auto toggle = reads ? ClaudeUsageToggle::turnOff : ClaudeUsageToggle::turnOn;
  return {.title = std::string(claudeToggleTitle(toggle)),
          .tooltip = std::string(claudeToggleTooltip(toggle)),
          .action = [&store, reads] { reads ? store.turnOffClaude() : store.turnOnClaude(); }};
}

}  // namespace

std::vector<MenuItem> statusMenu(UsageStore& store, UpdaterController& updater,
                                 ApplicationControl& application, DesktopTexts texts, Work open) {
  const Preferences& chosen = store.preferences();
  Items items;
  if (open) {
    items.push_back({.title = "Open Marigold", .action = [&store, open = std::move(open)] {
                       store.refreshOnUserAttention();
                       open();
                     }});
  }
  items.push_back({.title = "Refresh Now", .action = [&store] { store.refreshNow(); }});
  items.push_back(membershipMenu(store));
  for (const ProviderID provider : chosen.providerOrder()) {
    if (chosen.showsInMenuBarEffective(provider)) {
      append(items, scopeItems(store, provider, "percentage", chosen.percentScope(provider),
                               &Preferences::setPercentScope));
      append(items, scopeItems(store, provider, "reset timer", chosen.resetScope(provider),
                               &Preferences::setResetScope));
    }
  }
  items.push_back(styleMenu(store));
  items.push_back(MenuItem::separator());
  append(items, ringColorChoices(store));
  append(items,
         {MenuItem::separator(),
          {.kind = Kind::checkbox,
           .title = "Window Labels",
           .tooltip = "Name each window, 5h or wk, ahead of its percentage and timer.",
           .checked = chosen.menuBarLabels(),
           .action =
               [&store] {
                 Preferences& choices = store.preferences();
                 choices.setMenuBarLabels(!choices.menuBarLabels());
               }},
          MenuItem::separator(),
          {.title = "Check for Updates…",
           .enabled = updater.canCheckForUpdates(),
           .action = [&updater] { updater.checkForUpdates(); }},
          {.title = "About Marigold",
           .action = [&application, texts] { application.showAbout(worded(aboutPanel(), texts)); }},
          MenuItem::separator(),
          claudeToggle(store),
          {.title = "Clear Stored Usage Data",
           .tooltip = std::string(clearStoredDataExplanation),
           .action = [&store] { store.clearStoredUsage(providersClearedByClearAll()); }},
          MenuItem::separator(),
          {.title = "Quit Marigold", .action = [&application] { application.quit(); }}});
  return worded(std::move(items), texts);
}

}  // namespace marigold
