#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Time.h"
#include "model/Cases.h"
#include "model/Preferences.h"
#include "model/ProviderSnapshot.h"
#include "ports/LocalTimeText.h"

// What the mark shows, as text for terminals and for bars of one's own. Texts from outside have
// gone through printable().

namespace marigold {

enum class StatusForm : std::uint8_t {
  lines,      ///< a line a provider in the menu bar, as its tooltip tells it
  shortLine,  ///< one line with the texts of the mark: "Claude 42% | Codex 37%"; may be empty
  json,       ///< one line with the object that docs/status.md describes
};
struct StatusFormCase {
  StatusForm value;
  std::string_view raw;
};
template <>
inline constexpr std::array caseTable<StatusForm>{
    StatusFormCase{.value = StatusForm::lines, .raw = "lines"},
    StatusFormCase{.value = StatusForm::shortLine, .raw = "short"},
    StatusFormCase{.value = StatusForm::json, .raw = "json"}};

struct StatusReport {
  struct Entry {
    ProviderSnapshot reading;
    bool isInMark = false;          ///< it is in the menu bar; only then are there texts
    std::string text;               ///< what the mark prints of it; may be empty
    std::string line;               ///< its tooltip
    std::string lineWithoutAges;    ///< the same less the ages of readings
    std::optional<double> percent;  ///< the highest that its gauge shows
  };
  std::vector<Entry> entries;
  std::string emptyState;  ///< stands in for the lines when no provider is in the menu bar
  Date now;
};

/// The report of the visible providers' readings, in display order and in the desktop's words.
[[nodiscard]] StatusReport statusReport(std::span<const ProviderSnapshot> readings,
                                        const Preferences& chosen, Date now,
                                        const LocalTimeText& localTime);
/// All of it, in lines that end with a line feed.
[[nodiscard]] std::string statusText(const StatusReport& report, StatusForm form);

/// What there is to be told to somebody who follows: everything at first, then what has changed,
/// which an age that moves on is not.
class StatusNews {
 public:
  explicit StatusNews(StatusForm form) : form_(form) {}

  /// Lines that end with a line feed; empty when there is no news.
  [[nodiscard]] std::string next(const StatusReport& report);

 private:
  StatusForm form_;
  std::vector<std::string> told_;
};

}  // namespace marigold
