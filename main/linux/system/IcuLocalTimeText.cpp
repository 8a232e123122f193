#include "linux/system/IcuLocalTimeText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

#include <unicode/udat.h>
#include <unicode/udatpg.h>
#include <unicode/ures.h>
#include <unicode/ustring.h>

namespace marigold {

namespace {

constexpr std::string_view standInLocale = "en_US";

/// The scripts that POSIX locales name in their modifier, "sr_RS@latin", and ICU ones in their
/// second part, "sr_Latn_RS".
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> scripts{
    {{"latin", "_Latn"}, {"cyrillic", "_Cyrl"}, {"devanagari", "_Deva"}}};

bool failed(UErrorCode status) noexcept {
  return status > U_ZERO_ERROR;  // warnings are below
}

/// The ICU name of a POSIX locale, "de_DE.UTF-8@euro"; en_US for one without data of its own, in
/// whose place ICU would silently take the process's locale.
std::string icuLocale(std::string_view posix) {
  std::string name(posix.substr(0, posix.find_first_of(".@")));
  const std::size_t at = posix.find('@');
  const auto* const script =
      std::ranges::find(scripts, at == std::string_view::npos ? "" : posix.substr(at + 1),
                        [](const auto& entry) { return entry.first; });
  if (script != scripts.end()) {
    name.insert(std::min(name.find('_'), name.size()), script->second);
  }
  UErrorCode status = U_ZERO_ERROR;
  const icu::LocalUResourceBundlePointer data(ures_open(nullptr, name.c_str(), &status));
  const bool known = !failed(status) && status != U_USING_DEFAULT_WARNING && !name.empty();
  return known ? name : std::string(standInLocale);
}

/// Seconds that local time is ahead of UTC at `date`.
Seconds systemOffset(Date date) {
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::tm local{};
  ::tzset();  // a traveller's zone changes while the process runs
  return Seconds(::localtime_r(&seconds, &local) != nullptr ? static_cast<double>(local.tm_gmtoff)
                                                            : 0.0);
}

/// "Fri 13:05", the form used when ICU fails. `local` counts its seconds in local time.
std::string plainForm(Date local) {
  constexpr std::array<const char*, 7> weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const CalendarTime fields = calendarTime(local);
  const std::chrono::weekday weekday{
      std::chrono::floor<std::chrono::days>(std::clamp(local, distantPast, distantFuture))};
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%s %02u:%02u",
                                   weekdays.at(weekday.c_encoding()), fields.hour, fields.minute);
  return {text.data(), static_cast<std::size_t>(std::max(length, 0))};
}

}  // namespace

struct IcuLocalTimeText::Formatter {
  icu::LocalUDateFormatPointer format;  ///< null when ICU failed

  Formatter(const std::string& posixLocale, const std::string& zone) {
    const std::string locale = icuLocale(posixLocale);
    UErrorCode status = U_ZERO_ERROR;
    const icu::LocalUDateTimePatternGeneratorPointer generator(
        udatpg_open(locale.c_str(), &status));
    constexpr std::u16string_view skeleton = u"EEEjmm";
    std::array<UChar, 64> pattern{};
    const std::int32_t length = udatpg_getBestPattern(
        generator.getAlias(), skeleton.data(), static_cast<std::int32_t>(skeleton.size()),
        pattern.data(), static_cast<std::int32_t>(pattern.size()), &status);
    const std::u16string zoneName(zone.begin(), zone.end());
    format.adoptInstead(udat_open(UDAT_PATTERN, UDAT_PATTERN, locale.c_str(), zoneName.data(),
                                  static_cast<std::int32_t>(zoneName.size()), pattern.data(),
                                  length, &status));
  }

  [[nodiscard]] std::optional<std::string> text(Date date) const {
    if (format.getAlias() == nullptr) {
      return std::nullopt;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::array<UChar, 128> wide{};
    const UDate milliseconds = date.time_since_epoch().count() * 1000;
    const std::int32_t wideLength =
        udat_format(format.getAlias(), milliseconds, wide.data(),
                    static_cast<std::int32_t>(wide.size()), nullptr, &status);
    std::array<char, wide.size() * 3> narrow{};  // no UTF-16 unit takes more than three bytes
    std::int32_t length = 0;
    u_strToUTF8(narrow.data(), static_cast<std::int32_t>(narrow.size()), &length, wide.data(),
                wideLength, &status);
    if (failed(status) || length <= 0) {
      return std::nullopt;
    }
    return std::string(narrow.data(), static_cast<std::size_t>(length));
  }
};

IcuLocalTimeText::IcuLocalTimeText(std::string locale, std::optional<std::string> zone)
    : locale_(std::move(locale)), zone_(std::move(zone)) {}

IcuLocalTimeText::~IcuLocalTimeText() = default;

std::string IcuLocalTimeText::weekdayAndTime(Date date) const {
  // The system's zone is applied here, where a change of it is seen; ICU looks it up once only.
  const Date bounded = std::clamp(date, distantPast, distantFuture);
  const Date local = zone_ ? bounded : bounded + systemOffset(bounded);
  if (!formatter_) {
    formatter_ = std::make_unique<Formatter>(locale_, zone_.value_or("Etc/UTC"));
  }
  auto text = formatter_->text(local);
  return text ? *std::move(text) : plainForm(local);
}

}  // namespace marigold
