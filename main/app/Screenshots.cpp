#include "app/Screenshots.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "GaugeView.h"
#include "MenuBarRender.h"
#include "bar/MenuBarSegments.h"
#include "bar/Palette.h"

namespace marigold {

namespace {

// Any moment will do: all readings are taken relative to it.
constexpr Date sampleNow{Seconds{1'800'000'000}};

// Used percentages of the two windows, and the age of the reading in seconds.
struct Sample {
  ProviderID provider;
  double fiveHour;
  double weekly;
  double age = 20;
  Health health = Health::ok();
};

struct Row {
  std::string_view caption;
  std::vector<Sample> samples;
  MenuBarTextPrefs prefs{};
  MenuBarStyle style = MenuBarStyle::rings;
  RingColorMode colors = RingColorMode::byUsage;
  ProviderAccent accent = ProviderAccent::automatic;
  bool devMarker = false;
  bool highContrast = false;
};

constexpr MenuBarTextPrefs noTexts{.percent = MenuBarTextScope::off};
constexpr MenuBarTextPrefs everyText{
    .percent = MenuBarTextScope::both, .reset = MenuBarTextScope::fiveHour, .labels = true};

std::vector<Row> sampleRows() {
  const Sample claude{.provider = ProviderID::claude, .fiveHour = 42, .weekly = 18};
  const Sample codex{.provider = ProviderID::codex, .fiveHour = 74, .weekly = 31};
  const Sample grok{.provider = ProviderID::grok, .fiveHour = 9, .weekly = 55};
  const Sample spent{.provider = ProviderID::claude, .fiveHour = 96, .weekly = 91};
  Sample stale = codex;
  stale.health = Health::stale("Codex not running");
  stale.age = 2 * secondsPerHour;
  Sample old = claude;
  old.age = 2 * secondsPerDay;
  return {
      {.caption = "Rings", .samples = {claude, codex, grok}},
      {.caption = "Pills", .samples = {claude, codex, grok}, .style = MenuBarStyle::pills},
      {.caption = "Colors by window",
       .samples = {claude, codex},
       .prefs = {.percent = MenuBarTextScope::both},
       .colors = RingColorMode::byWindow},
      {.caption = "Labels and timers", .samples = {claude}, .prefs = everyText},
      {.caption = "Labels and timers, pill",
       .samples = {codex},
       .prefs = everyText,
       .style = MenuBarStyle::pills},
      {.caption = "Own color", .samples = {claude, grok}, .accent = ProviderAccent::indigo},
      {.caption = "Gauges alone", .samples = {claude, codex, grok}, .prefs = noTexts},
      {.caption = "Increased contrast", .samples = {spent, codex}, .highContrast = true},
      {.caption = "Older reading", .samples = {stale, claude}},
      {.caption = "Older than a day", .samples = {old}},
      {.caption = "Older than a day, pill", .samples = {old}, .style = MenuBarStyle::pills},
      {.caption = "Nothing to show", .samples = {}},
      {.caption = "Development build", .samples = {claude}, .devMarker = true},
  };
}

std::vector<MenuBarSegment> segments(const Row& row) {
  std::vector<MenuGauge> gauges;
  for (const Sample& sample : row.samples) {
    const ProviderSnapshot snapshot{
        .provider = sample.provider,
        .windows = {{.label = "5h",
                     .percent = sample.fiveHour,
                     .resetsAt = sampleNow + Seconds{2 * secondsPerHour + 320}},
                    {.label = "Weekly",
                     .percent = sample.weekly,
                     .resetsAt = sampleNow + Seconds{3 * secondsPerDay + 4 * secondsPerHour}}},
        .capturedAt = sampleNow - Seconds{sample.age},
        .health = sample.health};
    gauges.push_back(resolveMenuGauge(snapshot, MenuBarWindowKind::automatic, row.prefs, row.style,
                                      row.accent, row.colors, sampleNow));
  }
  return menuBarSegments(gauges, row.style, sampleNow);
}

void place(Drawing& sheet, Drawing drawing, Point origin) {
  sheet.add(Layer{.origin = origin, .ops = std::move(drawing.ops)});
}

// One bar's width of rows, at `left`.
void addPanel(Drawing& sheet, const std::vector<Row>& rows, const TextMeasurer& measurer,
              double left, double width, bool dark) {
  constexpr double margin = 16;
  constexpr double top = 14;
  constexpr double rowHeight = 28;
  constexpr double captions = 150;
  constexpr double square = 22;
  constexpr FontStyle captionFont{.size = 10};
  const double shade = dark ? 0.13 : 0.95;
  const auto darkMenuBar = dark ? DarkMenuBar::yes : DarkMenuBar::no;
  sheet.add(FillRoundedRect{.origin = {.x = left, .y = 0},
                            .size = {.width = width, .height = sheet.size.height},
                            .color = {.red = shade, .green = shade, .blue = shade}});
  double y = top;
  for (const Row& row : rows) {
    const MenuBarMark mark{.segments = segments(row),
                           .style = row.style,
                           .darkMenuBar = darkMenuBar,
                           .textColor = menuBarLabelColor(darkMenuBar, row.highContrast),
                           .highContrast = row.highContrast,
                           .devMarker = row.devMarker};
    const double base =
        y + (MenuBarMetrics::height + measurer.measure("x", captionFont).capHeight) / 2;
    Color faint = mark.textColor;
    faint.opacity = 0.6;
    sheet.add(Text{.baseline = {.x = left + margin, .y = base},
                   .text = std::string(row.caption),
                   .font = captionFont,
                   .color = faint});
    const bool idle = mark.segments.empty();
    place(sheet,
          idle ? MenuBarRender::idleImage(row.devMarker, mark.textColor)
               : MenuBarRender::markImage(mark, measurer),
          {.x = left + margin + captions, .y = y});
    place(sheet, idle ? MenuBarRender::idleSquare(row.devMarker) : MenuBarRender::squareImage(mark),
          {.x = left + width - margin - square, .y = y - 2});
    y += rowHeight;
  }
}

}  // namespace

Drawing menuBarShot(const TextMeasurer& measurer) {
  constexpr double panel = 400;
  const std::vector<Row> rows = sampleRows();
  Drawing sheet{.size = {.width = 2 * panel, .height = 18 + 28 * static_cast<double>(rows.size())}};
  addPanel(sheet, rows, measurer, 0, panel, true);
  addPanel(sheet, rows, measurer, panel, panel, false);
  return sheet;
}

}  // namespace marigold
