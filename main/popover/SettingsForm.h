#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "model/Preferences.h"
#include "model/ProviderSnapshot.h"
#include "ports/PopoverContent.h"

namespace marigold {

inline constexpr std::string_view clearStoredDataExplanation =
    "Forget the usage numbers cached on this Mac for every provider: Claude, Codex and Grok. Your "
    "Claude login is never stored on disk, so there is nothing of it to clear.";
inline constexpr std::string_view launchApprovalText =
    "Approve Marigold under System Settings > General > Login Items.";
inline constexpr std::string_view launchApprovalButton = "Open Login Items settings";

/// What the settings show besides the preferences, and what they do. What is called or referred to
/// must outlive the form.
struct SettingsSource {
  Preferences& preferences;
  /// The published reading of a provider; null without one.
  std::function<const ProviderSnapshot*(ProviderID)> snapshot;
  MarigoldTheme::Scheme scheme = MarigoldTheme::Scheme::light;
  bool offersBarColors = false;  ///< the desktop may not know whether its bar is dark
  bool launchAtLogin = false;
  bool launchRequiresApproval = false;
  std::optional<std::string> launchAtLoginError;

  struct Actions {
    std::function<void(bool)> setLaunchAtLogin;
    std::function<void()> openLoginItemSettings;
    std::function<void(bool)> setReadsClaude;
    std::function<void()> clearStoredData;
    std::function<void()> showAbout;
    std::function<void()> quit;
  };
  Actions actions{};
};

/// Every choice of the user, worded as on a Mac.
[[nodiscard]] SettingsForm settingsForm(const SettingsSource& source);

}  // namespace marigold
