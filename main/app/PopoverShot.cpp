#include "app/PopoverShot.h"

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PopoverView.h"
#include "claude/ClaudeTexts.h"
#include "model/Preferences.h"
#include "popover/SettingsForm.h"

namespace marigold {

namespace {

// Any moment will do: all readings are taken relative to it.
constexpr Date sampleNow{Seconds{1'800'000'000}};

// English, in UTC: the pictures are the same everywhere.
class SampleTimes final : public LocalTimeText {
 public:
  [[nodiscard]] std::string weekdayAndTime(Date date) const override {
    static constexpr std::array weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr unsigned noon = 12;
    const auto day = std::chrono::floor<std::chrono::days>(date);
    const CalendarTime time = calendarTime(date);
    const std::string minute = std::to_string(100 + time.minute).substr(1);
    return std::string(weekdays.at(std::chrono::weekday(day).c_encoding())) + " " +
           std::to_string((time.hour + noon - 1) % noon + 1) + ":" + minute +
           (time.hour < noon ? " AM" : " PM");
  }
};

// What a new user's preferences are stored in.
class NothingStored final : public Defaults {
 public:
  [[nodiscard]] DefaultsValue value(std::string_view /*key*/) const override { return {}; }
  void apply(const std::vector<DefaultsChange>& /*changes*/) override {}
};

UsageWindow window(std::string label, double percent, double hours) {
  return {.label = std::move(label),
          .percent = percent,
          .resetsAt = sampleNow + Seconds{hours * secondsPerHour + 20}};
}

std::map<ProviderID, ProviderSnapshot> sampleReadings(Command::Mode mode) {
  constexpr double weekly = 79;
  ProviderSnapshot claude{
      .provider = ProviderID::claude,
      .windows = {window("5h", 42, 2.1), window("Weekly", 74, weekly), window("Opus", 9, weekly)},
      .capturedAt = sampleNow,
      .planLabel = "Claude Max"};
  ProviderSnapshot codex{.provider = ProviderID::codex,
                         .windows = {window("5h", 93, 0.65), window("Weekly", 31, 121)},
                         .capturedAt = sampleNow,
                         .planLabel = "Plus",
                         .extraNote = "Rate resets available: 12.4 credits"};
  ProviderSnapshot grok{.provider = ProviderID::grok,
                        .windows = {window("Weekly", 15, 45.7)},
                        .capturedAt = sampleNow,
                        .planLabel = "X Premium"};
  const auto asking = [&claude](std::string_view why) {
    return claude.withHealth(Health::reconnect(std::string(why)));
  };
  if (mode == Command::Mode::shotOff) {
    claude = {.capturedAt = sampleNow, .health = Health::turnedOff()};
  } else if (mode == Command::Mode::shotReconnect) {
    claude = asking(ClaudeUnavailable::tokenExpired);
    codex.capturedAt -= Seconds{4 * secondsPerHour};
    codex.health = Health::stale(relativeAge(4 * secondsPerHour));
    codex.extraNote.reset();
    grok.windows.clear();
  } else if (mode == Command::Mode::shotHeld) {
    claude = asking(ClaudeUnavailable::timedOut);
    grok = {.provider = ProviderID::grok,
            .capturedAt = sampleNow,
            .health = Health::notInstalled("Grok not detected")};
  }
  return {{ProviderID::claude, claude}, {ProviderID::codex, codex}, {ProviderID::grok, grok}};
}

}  // namespace

PopoverContent popoverShot(Command::Mode mode, const MarigoldTheme& theme, DesktopTexts texts,
                           bool offersBarColors) {
  const SampleTimes times;
  NothingStored nothingStored;
  Preferences preferences(nothingStored);
  const auto readings = sampleReadings(mode);
  PopoverContent content{.theme = theme};
  if (mode == Command::Mode::shotSettings) {
    content.page = PopoverContent::Page::settings;
  }
  for (const auto& [provider, reading] : readings) {
    content.cards.push_back(
        providerCard(provider, &reading,
                     {.now = sampleNow,
                      .localTime = times,
                      .scheme = theme.scheme,
                      .looksIn = provider == ProviderID::grok ? "~/.grok/logs" : "",
                      .claudeReadLatched = mode == Command::Mode::shotHeld}));
  }
  content.settings =
      settingsForm({.preferences = preferences,
                    .snapshot = [&readings](ProviderID provider) { return &readings.at(provider); },
                    .scheme = theme.scheme,
                    .offersBarColors = offersBarColors,
                    .launchAtLogin = true});
  // What the rows would do refers to what ends here.
  const auto disarm = [](const auto& self, std::vector<SettingsRow>& rows) -> void {
    for (SettingsRow& row : rows) {
      row.use = {};
      self(self, row.details);
    }
  };
  for (SettingsSection& section : content.settings.sections) {
    disarm(disarm, section.rows);
  }
  return worded(std::move(content), texts);
}

}  // namespace marigold
