#include "ResetDrain.h"

#include <algorithm>
#include <cmath>

namespace marigold {

namespace {

std::string memoKey(ProviderID provider, const std::string& windowLabel) {
  return std::string(rawValue(provider)) + "|" + windowLabel;
}

// The age, in seconds, at which a reading of this age is next worded or drawn otherwise: whole
// minutes, hours or days as its phrase counts them. The ages at which it stops being fresh and
// coloured are among them.
double nextAge(double age) {
  constexpr double justNow = 90;
  constexpr double minute = 60;
  constexpr double hour = 3600;
  constexpr double day = 86400;
  if (age < justNow) {
    return justNow;
  }
  double unit = day;
  if (age < hour) {
    unit = minute;
  } else if (age < day) {
    unit = hour;
  }
  return (std::floor(age / unit) + 1) * unit;
}

}  // namespace

MenuSlotMemos menuSlotMemos(ProviderID provider, const MenuGauge& gauge) {
  MenuSlotMemos memos;
  const auto keep = [&](const MenuSlot& slot) {
    if (slot.windowLabel) {
      memos[memoKey(provider, *slot.windowLabel)] = {
          .mode = slot.bar.mode, .percent = slot.bar.percent, .resetsAt = slot.resetsAt};
    }
  };
  keep(gauge.outer);
  if (gauge.inner) {
    keep(*gauge.inner);
  }
  return memos;
}

MenuDrains menuResetDrains(const MenuSlotMemos& before, const MenuSlotMemos& after, Date now) {
  MenuDrains drains;
  for (const auto& [key, memo] : before) {
    if (memo.mode != GaugeBar::Mode::normal || !memo.resetsAt || *memo.resetsAt > now ||
        secondsBetween(*memo.resetsAt, now) >= menuResetDrainWindow) {
      continue;
    }
    // A window that reset unread is empty and has no reset date; a new reading looks otherwise.
    const auto left = after.find(key);
    if (left != after.end() && left->second == MenuSlotMemo{}) {
      drains[key] = memo.percent;
    }
  }
  return drains;
}

std::vector<double> drainFrames(double from, int count) {
  std::vector<double> frames;
  frames.reserve(static_cast<std::size_t>(std::max(count, 1)));
  for (int i = 1; i <= count; ++i) {
    const double left = 1 - static_cast<double>(i) / count;
    frames.push_back(std::max(0.0, from * left * left * left));
  }
  return frames;
}

MenuBarSegment drainedSegment(MenuBarSegment segment, const MenuGauge& gauge, ProviderID provider,
                              const MenuDrains& drains) {
  // Whether the slot's window drains, in which case `bar` shows it.
  const auto drain = [&](const MenuSlot& slot, GaugeBar& bar) {
    const auto found =
        slot.windowLabel ? drains.find(memoKey(provider, *slot.windowLabel)) : drains.end();
    if (found == drains.end()) {
      return false;
    }
    bar.percent = found->second;
    bar.mode = GaugeBar::Mode::normal;
    return true;
  };
  if (drain(gauge.outer, segment.bar)) {
    segment.rendersBar = true;
  }
  if (gauge.inner && segment.inner && drain(*gauge.inner, *segment.inner)) {
    segment.rendersInner = true;
  }
  return segment;
}

void addMenuRepaintTimes(MenuRepaintTimes& times, std::span<const UsageWindow> windows,
                         const MenuGauge& gauge, const MenuBarSegment& segment, Date now) {
  for (const UsageWindow& window : windows) {
    if (window.resetsAt) {
      times.countdowns.push_back(*window.resetsAt);
    }
  }
  const auto add = [&](const MenuSlot& slot, bool countsDown) {
    if (slot.resetsAt && countsDown) {
      times.resets.push_back(*slot.resetsAt);
    }
    if (slot.age) {
      const double age = slot.age->seconds;
      times.countdowns.push_back(now + Seconds{nextAge(age) - age});
    }
  };
  add(gauge.outer, segment.reset.has_value());
  if (gauge.inner) {
    add(*gauge.inner, segment.innerReset.has_value());
  }
}

std::optional<Date> nextMenuRepaint(Date now, std::span<const Date> countdowns,
                                    std::span<const Date> resets) {
  constexpr Seconds late{0.25};
  std::optional<Date> next;
  const auto offer = [&](Date date) {
    if (!next || date < *next) {
      next = date;
    }
  };
  for (const Date date : countdowns) {
    if (date > now) {
      offer(date + late);
    }
  }
  for (const Date date : resets) {
    if (date > now) {
      offer(now + Seconds{std::fmod(secondsBetween(now, date), 60)} + late);
    }
  }
  return next;
}

bool menuBarShowsIdle(std::span<const MenuSlot* const> outer,
                      std::span<const MenuSlot* const> inner) noexcept {
  const auto renders = [](const MenuSlot* slot) { return slot != nullptr && slot->rendersGauge; };
  return std::ranges::none_of(outer, renders) && std::ranges::none_of(inner, renders);
}

double pinnedMarkWidth(double natural, std::optional<double> current, bool popoverShown) noexcept {
  return popoverShown && current ? std::max(natural, *current) : natural;
}

}  // namespace marigold
