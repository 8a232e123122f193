#include "TextForm.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace marigold {

namespace {

void append(std::string& text, std::string_view separator, std::string_view more) {
  if (!text.empty()) {
    text += separator;
  }
  text += more;
}

// The printed texts of one provider, in the order the mark draws them.
std::string tokens(const MenuBarSegment& segment) {
  std::string text;
  for (const auto* part : {&segment.label, &segment.token, &segment.reset, &segment.innerLabel,
                           &segment.innerToken, &segment.innerReset}) {
    if (*part) {
      append(text, " ", **part);
    }
  }
  return text;
}

}  // namespace

std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now) {
  const Preferences& chosen = store.preferences();
  std::vector<MenuBarItem> items;
  for (const ProviderID provider : store.menuBarBars()) {
    MenuGauge gauge = resolveMenuGauge(*store.snapshot(provider), chosen.menuWindow(provider),
                                       chosen.textPrefs(provider), chosen.menuBarStyle(),
                                       chosen.accent(provider), chosen.ringColors(), now);
    MenuBarSegment segment = menuBarSegment(gauge, chosen.menuBarStyle(), now);
    items.push_back(
        {.provider = provider, .gauge = std::move(gauge), .segment = std::move(segment)});
  }
  return items;
}

std::string textForm(const UsageStore& store, Date now, const LocalTimeText& times) {
  const auto items = resolveMenuBar(store, now);
  if (items.empty()) {
    const bool anyPresent = std::ranges::any_of(
        allProviders, [&](ProviderID provider) { return store.isPresent(provider); });
    return std::string(menuBarEmptyStateText(anyPresent).tooltip) + "\n";
  }
  std::string text;
  std::string mark;
  for (const MenuBarItem& item : items) {
    std::string line;
    for (const auto& tooltip : menuSegmentLines(item.gauge, item.segment, now, times).tooltip) {
      append(line, "; ", tooltip);
    }
    text += line + "\n";
    append(mark, " | ", tokens(item.segment));
  }
  return text + "mark: " + mark + "\n";
}

}  // namespace marigold
