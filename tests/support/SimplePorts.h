#pragma once

#include <map>

#include "base/Drawing.h"
#include "ports/Defaults.h"
#include "ports/LocalTimeText.h"
#include "ports/Log.h"

namespace marigold::test {

/// Keeps what is written to it.
struct RecordingLog final : Log {
  std::vector<std::string> lines;
  void note(std::string_view line) override { lines.emplace_back(line); }
  void error(std::string_view line) override { lines.emplace_back(line); }
};

/// Preferences in memory.
class MemoryDefaults final : public Defaults {
 public:
  explicit MemoryDefaults(const std::vector<DefaultsChange>& stored = {}) { store(stored); }

  [[nodiscard]] DefaultsValue value(std::string_view key) const override {
    const auto found = values_.find(key);
    return found == values_.end() ? DefaultsValue() : found->second;
  }
  void apply(const std::vector<DefaultsChange>& changes) override {
    ++applies;
    store(changes);
  }

  /// As another program would.
  void changeByOthers(const std::vector<DefaultsChange>& changes) {
    store(changes);
    onChange();
  }

  int applies = 0;  ///< calls of apply()

 private:
  void store(const std::vector<DefaultsChange>& changes) {
    for (const auto& [key, value] : changes) {
      values_.insert_or_assign(key, value);
    }
  }

  std::map<std::string, DefaultsValue, std::less<>> values_;
};

/// "Fri 13:05", in UTC.
struct FixedLocalTimeText final : LocalTimeText {
  [[nodiscard]] std::string weekdayAndTime(Date date) const override {
    const std::chrono::weekday day{
        std::chrono::floor<std::chrono::days>(std::min(date, distantFuture - Seconds{1}))};
    return std::string("SunMonTueWedThuFriSat").substr(std::size_t{3} * day.c_encoding(), 3) + " " +
           isoText(date).substr(11, 5);
  }
};

/// Every byte is 6 points wide; spaces beyond ASCII are one point.
struct FixedTextMeasurer final : TextMeasurer {
  mutable int asked = 0;

  [[nodiscard]] TextExtent measure(std::string_view text, const FontStyle& font) const override {
    ++asked;
    const bool space = text == "\u2009" || text == "\u200A";
    return {.width = space ? 1 : 6.0 * static_cast<double>(text.size()),
            .ascent = font.size,
            .descent = 2,
            .capHeight = 8};
  }
};

}  // namespace marigold::test
