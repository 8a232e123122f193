#include "bar/ResetDrain.h"

#include <algorithm>

namespace marigold {

namespace {

std::string memoKey(ProviderID provider, const std::string& windowLabel) {
  return std::string(rawValue(provider)) + "|" + windowLabel;
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

void RunningDrains::redraw(const MenuSlotMemos& memos, Date now, bool reduceMotion) {
  const MenuDrains resets = menuResetDrains(lastMemos_, memos, now);
  lastMemos_ = memos;
  if (reduceMotion) {
    drains_.clear();
    return;
  }
  for (const auto& [key, from] : resets) {
    drains_[key] = {.frames = drainFrames(from, frameCount)};
  }
  std::erase_if(drains_, [&](const auto& drain) {
    const auto memo = memos.find(drain.first);
    return memo == memos.end() || memo->second != MenuSlotMemo{};
  });
}

void RunningDrains::step() {
  for (auto& [key, drain] : drains_) {
    ++drain.shown;
  }
  std::erase_if(drains_,
                [](const auto& entry) { return entry.second.shown >= entry.second.frames.size(); });
}

MenuDrains RunningDrains::percentages() const {
  MenuDrains percentages;
  for (const auto& [key, drain] : drains_) {
    percentages[key] = drain.frames[drain.shown];
  }
  return percentages;
}

}  // namespace marigold
