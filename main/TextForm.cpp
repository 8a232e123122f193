#include "TextForm.h"

#include <algorithm>
#include <cmath>
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

// A provider without a window and without a gauge (off, not installed, never read) has no place in
// the mark; its tooltip still says why.
bool isDrawn(const MenuGauge& gauge) {
  const auto shows = [](const MenuSlot& slot) { return slot.rendersGauge || slot.windowLabel; };
  return shows(gauge.outer) || (gauge.inner && shows(*gauge.inner));
}

}  // namespace

std::optional<Date> nextTextChange(const std::vector<MenuBarItem>& items, Date now) {
  std::optional<Date> next;
  const auto offer = [&](Date date) {
    if (date > now && (!next || date < *next)) {
      next = date;
    }
  };
  const auto offerSlot = [&](const MenuSlot& slot, bool countsDown) {
    if (!slot.resetsAt) {
      return;
    }
    offer(*slot.resetsAt);
    if (countsDown) {
      offer(now + Seconds{std::fmod(secondsBetween(now, *slot.resetsAt), 60)});
      offer(now + Seconds{60});
    }
  };
  for (const MenuBarItem& item : items) {
    offerSlot(item.gauge.outer, item.segment.reset.has_value());
    if (item.gauge.inner) {
      offerSlot(*item.gauge.inner, item.segment.innerReset.has_value());
    }
  }
  return next;
}

std::vector<MenuBarItem> resolveMenuBar(const UsageStore& store, Date now) {
  const Preferences& chosen = store.preferences();
  std::vector<MenuBarItem> items;
  for (const ProviderID provider : store.menuBarBars()) {
    const auto& snapshot = store.snapshot(provider);
    if (!snapshot) {
      continue;
    }
    MenuGauge gauge =
        resolveMenuGauge(*snapshot, chosen.menuWindow(provider), chosen.textPrefs(provider),
                         chosen.menuBarStyle(), chosen.accent(provider), chosen.ringColors(), now);
    MenuBarSegment segment = menuBarSegment(gauge, chosen.menuBarStyle(), now);
    items.push_back(
        {.provider = provider, .gauge = std::move(gauge), .segment = std::move(segment)});
  }
  return items;
}

std::string textForm(const std::vector<MenuBarItem>& items, const UsageStore& store, Date now,
                     const LocalTimeText& times) {
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
    if (const std::string texts = isDrawn(item.gauge) ? tokens(item.segment) : ""; !texts.empty()) {
      append(mark, " | ", texts);
    }
  }
  return mark.empty() ? text : text + "mark: " + mark + "\n";
}

}  // namespace marigold
