#include "bar/MenuBarContent.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace marigold {

namespace {

constexpr Seconds repaintLateness{0.25};

void append(std::string& text, std::string_view separator, std::string_view more) {
  if (!text.empty()) {
    text += separator;
  }
  text += more;
}

void appendAll(std::string& text, std::string_view separator,
               const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    append(text, separator, line);
  }
}

std::vector<Date> resetsOf(const ProviderSnapshot& snapshot) {
  std::vector<Date> resets;
  for (const UsageWindow& window : snapshot.windows) {
    if (window.resetsAt) {
      resets.push_back(*window.resetsAt);
    }
  }
  return resets;
}

// How long from now on, a reading of this age, in seconds, looks and reads the same: whole minutes,
// hours or days as its phrase counts them. The ages at which it stops being fresh and coloured are
// among them.
Seconds untilOlder(double age) {
  constexpr double justNow = 90;
  if (age < justNow) {
    return Seconds{justNow - age};
  }
  double unit = secondsPerDay;
  if (age < secondsPerHour) {
    unit = secondsPerMinute;
  } else if (age < secondsPerDay) {
    unit = secondsPerHour;
  }
  return Seconds{(std::floor(age / unit) + 1) * unit - age};
}

void append(std::vector<Date>& dates, const std::vector<Date>& more) {
  dates.insert(dates.end(), more.begin(), more.end());
}

}  // namespace

std::vector<MenuBarItem> resolveMenuBar(std::span<const ProviderSnapshot> snapshots,
                                        const Preferences& chosen, Date now) {
  std::vector<MenuBarItem> items;
  for (const ProviderSnapshot& snapshot : snapshots) {
    const ProviderID provider = snapshot.provider;
    MenuGauge gauge =
        resolveMenuGauge(snapshot, chosen.menuWindow(provider), chosen.textPrefs(provider),
                         chosen.menuBarStyle(), chosen.accent(provider), chosen.ringColors(), now);
    MenuBarSegment segment = menuBarSegment(gauge, chosen.menuBarStyle(), now);
    items.push_back({.provider = provider,
                     .gauge = std::move(gauge),
                     .segment = std::move(segment),
                     .windowResets = resetsOf(snapshot)});
  }
  return items;
}

MenuSlotMemos menuSlotMemos(const std::vector<MenuBarItem>& items) {
  MenuSlotMemos memos;
  for (const MenuBarItem& item : items) {
    memos.merge(menuSlotMemos(item.provider, item.gauge));
  }
  return memos;
}

MenuBarContent menuBarContent(const std::vector<MenuBarItem>& items, const MenuDrains& drains,
                              bool anyProviderPresent, Date now, const LocalTimeText& localTime) {
  MenuBarContent content;
  if (items.empty()) {
    const MenuBarEmptyState empty = menuBarEmptyStateText(anyProviderPresent);
    content.tooltip = empty.tooltip;
    content.tooltipWithoutAges = empty.tooltip;
    content.title = empty.tooltip;
    content.spoken = empty.spoken;
  }
  const bool rendersNothing = menuBarShowsIdle(items);
  bool titleTellsReading = false;
  for (const MenuBarItem& item : items) {
    const MenuSegmentLines lines = menuSegmentLines(item.gauge, item.segment, now, localTime);
    appendAll(content.tooltip, "\n", lines.tooltip);
    appendAll(content.tooltipWithoutAges, "\n", lines.tooltipWithoutAges);
    appendAll(content.spoken, "; ", lines.spoken);
    const bool innerOnly = !item.gauge.outer.age && item.gauge.inner && item.gauge.inner->age;
    const bool tellsReading = item.gauge.outer.age || innerOnly;
    if (content.title.empty() || (tellsReading && !titleTellsReading)) {
      content.title = innerOnly ? lines.tooltip.back() : lines.tooltip.front();
    }
    titleTellsReading = titleTellsReading || tellsReading;
    if (!isDrawn(item.gauge)) {
      continue;
    }
    if (const std::string texts = segmentText(item.segment); !texts.empty() && !rendersNothing) {
      append(content.label, " | ", texts);
    }
    content.segments.push_back(drainedSegment(item.segment, item.gauge, item.provider, drains));
  }
  content.isIdle = rendersNothing && drains.empty();
  return content;
}

bool menuBarShowsIdle(const std::vector<MenuBarItem>& items) noexcept {
  return std::ranges::none_of(items, [](const MenuBarItem& item) {
    return item.gauge.outer.rendersGauge || (item.gauge.inner && item.gauge.inner->rendersGauge);
  });
}

double pinnedMarkWidth(double natural, std::optional<double> current, bool popoverShown) noexcept {
  return popoverShown && current ? std::max(natural, *current) : natural;
}

MenuRepaintTimes menuRepaintTimes(const std::vector<MenuBarItem>& items,
                                  std::span<const ProviderSnapshot> cards, Date now) {
  MenuRepaintTimes times;
  const auto add = [&](const MenuSlot& slot, bool countsDown) {
    if (slot.resetsAt && countsDown) {
      times.resets.push_back(*slot.resetsAt);
    }
    if (slot.age) {
      times.countdowns.push_back(now + untilOlder(slot.age->seconds));
    }
  };
  for (const MenuBarItem& item : items) {
    append(times.countdowns, item.windowResets);
    add(item.gauge.outer, item.segment.reset.has_value());
    if (item.gauge.inner) {
      add(*item.gauge.inner, item.segment.innerReset.has_value());
    }
  }
  for (const ProviderSnapshot& card : cards) {
    append(times.resets, resetsOf(card));
    const ReadingAge age = readingAge(secondsBetween(card.capturedAt, now));
    times.countdowns.push_back(now + untilOlder(age.seconds));
  }
  return times;
}

std::optional<Date> nextMenuRepaint(Date now, std::span<const Date> countdowns,
                                    std::span<const Date> resets) {
  std::optional<Date> next;
  const auto offer = [&](Date date) {
    if (!next || date < *next) {
      next = date;
    }
  };
  for (const Date date : countdowns) {
    if (date > now) {
      offer(date + repaintLateness);
    }
  }
  for (const Date date : resets) {
    if (date > now) {
      offer(now + Seconds{std::fmod(secondsBetween(now, date), secondsPerMinute)} +
            repaintLateness);
    }
  }
  return next;
}

Seconds menuRepaintDelay(Date now, Date next) noexcept {
  return std::max(Seconds{secondsBetween(now, next)}, repaintLateness);
}

}  // namespace marigold
