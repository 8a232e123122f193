#include "app/StatusMenu.h"

#include <utility>

namespace marigold {

std::vector<MenuItem> statusMenu(UsageStore& store, Updater& updater,
                                 ApplicationControl& application, Work open) {
  std::vector<MenuItem> items{
      {.title = "Open Marigold",
       .action =
           [&store, open = std::move(open)] {
             store.refreshOnUserAttention();
             open();
           }},
      {.title = "Refresh Now", .action = [&store] { store.refreshNow(); }},
      MenuItem::separator(),
  };
  if (updater.canCheckForUpdates()) {
    items.push_back(
        {.title = "Check for Updates…", .action = [&updater] { updater.checkForUpdates(); }});
    items.push_back(MenuItem::separator());
  }
  items.push_back({.title = "Quit Marigold", .action = [&application] { application.quit(); }});
  return items;
}

}  // namespace marigold
