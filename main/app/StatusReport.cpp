#include "app/StatusReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "bar/MenuBarContent.h"
#include "bar/MenuBarSegments.h"
#include "bar/MenuBarTexts.h"
#include "bar/Palette.h"
#include "base/JsonWriter.h"
#include "base/PrintableText.h"

namespace marigold {

namespace {

// Raised when a member changes its meaning or goes; new ones may come without.
constexpr int schemaVersion = 1;

struct HealthName {
  Health::Kind kind;
  std::string_view name;
};
constexpr std::array healthNames{
    HealthName{.kind = Health::Kind::stale, .name = "stale"},
    HealthName{.kind = Health::Kind::reconnect, .name = "reconnect"},
    HealthName{.kind = Health::Kind::rateLimited, .name = "rateLimited"},
    HealthName{.kind = Health::Kind::serverError, .name = "serverError"},
    HealthName{.kind = Health::Kind::notInstalled, .name = "notInstalled"},
    HealthName{.kind = Health::Kind::ok, .name = "ok"},
    HealthName{.kind = Health::Kind::turnedOff, .name = "turnedOff"}};

std::string_view healthName(Health::Kind kind) {
  return std::ranges::find(healthNames, kind, &HealthName::kind)->name;
}

// The lines about one provider as one, its name said once.
std::string joined(const std::vector<std::string>& lines, ProviderID provider) {
  const std::string name = std::string(displayName(provider)) + ": ";
  std::string text;
  for (std::string_view line : lines) {
    if (!text.empty()) {
      text += "; ";
      line.remove_prefix(line.starts_with(name) ? name.size() : 0);
    }
    text += printable(line);
  }
  return text;
}

void raise(std::optional<double>& highest, const MenuSlot& slot) {
  if (slot.rendersGauge && slot.bar.mode != GaugeBar::Mode::hollow) {
    highest = std::max(highest.value_or(0), slot.bar.percent);
  }
}

void tell(StatusReport::Entry& entry, const MenuBarItem& item, bool isIdle, Date now,
          const LocalTimeText& localTime) {
  const MenuSegmentLines lines = menuSegmentLines(item.gauge, item.segment, now, localTime);
  entry.isInMark = true;
  entry.line = joined(lines.tooltip, item.provider);
  entry.lineWithoutAges = joined(lines.tooltipWithoutAges, item.provider);
  raise(entry.percent, item.gauge.outer);
  if (item.gauge.inner) {
    raise(entry.percent, *item.gauge.inner);
  }
  if (isDrawn(item.gauge) && !isIdle) {
    entry.text = printable(segmentText(item.segment));
    // Without gauges beside it, nothing would tell of a provider whose percentage is not printed.
    if (entry.text.empty()) {
      entry.text = item.gauge.outer.token;
    }
  }
}

template <class Append>
std::string joinedBy(std::string_view separator, const StatusReport& report, Append append) {
  std::string text;
  for (const StatusReport::Entry& entry : report.entries) {
    const std::string next = append(entry);
    if (!next.empty()) {
      text += (text.empty() ? "" : std::string(separator)) + next;
    }
  }
  return text;
}

std::string shortText(const StatusReport& report) {
  return joinedBy(" | ", report, [](const StatusReport::Entry& entry) {
    return entry.text.empty() ? std::string()
                              : std::string(displayName(entry.reading.provider)) + " " + entry.text;
  });
}

std::string tooltip(const StatusReport& report, bool withAges) {
  return report.emptyState + joinedBy("\n", report, [withAges](const StatusReport::Entry& entry) {
           return withAges ? entry.line : entry.lineWithoutAges;
         });
}

class StatusJson {
 public:
  // Without ages, what only they change reads the same.
  StatusJson(const StatusReport& report, bool withAges) : now_(report.now), withAges_(withAges) {
    std::optional<double> highest;
    for (const StatusReport::Entry& entry : report.entries) {
      if (entry.percent) {
        highest = std::max(highest.value_or(0), *entry.percent);
      }
    }
    json_.beginObject();
    number("version", schemaVersion);
    text("text", shortText(report));
    text("tooltip", tooltip(report, withAges));
    text("class", zone(highest));
    number("percentage", highest ? std::optional(shownPercent(*highest)) : std::nullopt);
    json_.key("providers");
    json_.beginArray();
    for (const StatusReport::Entry& entry : report.entries) {
      write(entry);
    }
    json_.endArray();
    json_.endObject();
  }

  [[nodiscard]] std::string finished() const { return json_.finished().value_or("{}"); }

 private:
  static std::string_view zone(std::optional<double> percent) {
    if (!percent) {
      return "none";
    }
    if (*percent >= redFrom) {
      return "red";
    }
    return *percent >= amberFrom ? "amber" : "green";
  }

  void text(std::string_view key, std::optional<std::string_view> value) {
    json_.key(key);
    value ? json_.text(*value) : json_.json("null");
  }
  void outsideText(std::string_view key, const std::optional<std::string>& value) {
    text(key, value ? std::optional(printable(*value)) : std::nullopt);
  }
  void number(std::string_view key, std::optional<std::int64_t> value) {
    json_.key(key);
    json_.json(value ? std::to_string(*value) : "null");
  }
  void date(std::string_view key, std::optional<Date> value) {
    text(key, value ? std::optional(isoText(*value)) : std::nullopt);
  }

  void write(const StatusReport::Entry& entry) {
    const ProviderSnapshot& reading = entry.reading;
    const bool withheld = healthWithholdsReading(reading.health);
    const bool isRead = reading.isUsable() && !withheld;
    json_.beginObject();
    text("provider", rawValue(reading.provider));
    text("name", displayName(reading.provider));
    json_.key("shown");
    json_.flag(entry.isInMark);
    text("text", entry.text);
    text("health", healthName(reading.health.kind()));
    const std::string reason = reading.shownReason(withAges_ ? now_ : reading.capturedAt);
    outsideText("reason", reason.empty() ? std::nullopt : std::optional(reason));
    date("until", reading.health.until());
    outsideText("plan", reading.planLabel);
    outsideText("note", reading.extraNote);
    date("capturedAt", isRead ? std::optional(reading.capturedAt) : std::nullopt);
    if (withAges_) {
      const double age = std::floor(readingAge(secondsBetween(reading.capturedAt, now_)).seconds);
      number("age", isRead ? std::optional(static_cast<std::int64_t>(age)) : std::nullopt);
    }
    json_.key("windows");
    json_.beginArray();
    for (const UsageWindow& window : withheld ? std::vector<UsageWindow>() : reading.windows) {
      json_.beginObject();
      text("label", printable(window.label));
      json_.key("percent");
      json_.number(window.percent);
      date("resetsAt", window.resetsAt);
      json_.endObject();
    }
    json_.endArray();
    json_.endObject();
  }

  Date now_;
  bool withAges_;
  JsonWriter json_;
};

// Something that is told by itself. It is news when no piece told last had its key.
struct Piece {
  std::string key;
  std::string text;
};

std::vector<Piece> pieces(const StatusReport& report, StatusForm form) {
  switch (form) {
    case StatusForm::json:
      return {{.key = StatusJson(report, false).finished(),
               .text = StatusJson(report, true).finished()}};
    case StatusForm::shortLine:
      return {{.key = shortText(report), .text = shortText(report)}};
    case StatusForm::lines:
      break;
  }
  std::vector<Piece> lines;
  for (const StatusReport::Entry& entry : report.entries) {
    if (entry.isInMark) {
      lines.push_back({.key = entry.lineWithoutAges, .text = entry.line});
    }
  }
  if (lines.empty()) {
    lines.push_back({.key = report.emptyState, .text = report.emptyState});
  }
  return lines;
}

}  // namespace

StatusReport statusReport(std::span<const ProviderSnapshot> readings, const Preferences& chosen,
                          Date now, const LocalTimeText& localTime) {
  StatusReport report{.entries = {}, .emptyState = {}, .now = now};
  std::vector<ProviderSnapshot> inMenuBar;
  std::ranges::copy_if(readings, std::back_inserter(inMenuBar), [&](const auto& reading) {
    return chosen.showsInMenuBarEffective(reading.provider);
  });
  const std::vector<MenuBarItem> items = resolveMenuBar(inMenuBar, chosen, now);
  const bool isIdle = menuBarShowsIdle(items);
  for (const ProviderSnapshot& reading : readings) {
    StatusReport::Entry& entry = report.entries.emplace_back();
    entry.reading = reading;
    if (const auto item = std::ranges::find(items, reading.provider, &MenuBarItem::provider);
        item != items.end()) {
      tell(entry, *item, isIdle, now, localTime);
    }
  }
  if (items.empty()) {
    report.emptyState = menuBarEmptyStateText(!readings.empty()).tooltip;
  }
  return report;
}

std::string statusText(const StatusReport& report, StatusForm form) {
  return StatusNews(form).next(report);
}

std::string StatusNews::next(const StatusReport& report) {
  std::vector<std::string> keys;
  std::string news;
  for (Piece& piece : pieces(report, form_)) {
    if (std::ranges::find(told_, piece.key) == told_.end()) {
      news += piece.text + "\n";
    }
    keys.push_back(std::move(piece.key));
  }
  told_ = std::move(keys);
  return news;
}

}  // namespace marigold
