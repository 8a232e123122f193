#include "popover/ClaudeDisclosure.h"

#include <algorithm>

namespace marigold {

namespace {

struct Paragraph {
  std::string_view mac;
  std::string_view onLinux;  // only where the Mac's is untrue there
};

constexpr std::array paragraphs{
    Paragraph{.mac = "Your usage sits behind the login that Claude Code keeps in the Mac's "
                     "Keychain.",
              .onLinux = "Your usage sits behind the login that Claude Code keeps in its "
                         "credentials file."},
    Paragraph{.mac = "Marigold reads that login with Apple's own security tool, the same one "
                     "Claude Code uses to write it. That needs no password and no permission "
                     "change.",
              .onLinux = "Marigold reads that file itself, and only if it is yours and nobody else "
                         "may change it. That needs no password and no permission change."},
    Paragraph{.mac = "The login is used in memory to ask Anthropic, the company behind Claude, for "
                     "your 5-hour and weekly usage, then dropped.",
              .onLinux = "The login is used in memory to ask Anthropic, the company behind Claude, "
                         "for your 5-hour and weekly usage, then dropped. A helper that lives as "
                         "long as that one request makes it."},
    Paragraph{.mac = "It is never written to disk, never logged and never sent anywhere but "
                     "Anthropic. Only the usage numbers stay on your Mac.",
              .onLinux =
                  "Marigold never writes it to disk, never logs it and never sends it anywhere "
                  "but Anthropic. Only the usage numbers stay on this computer."},
    Paragraph{.mac = "Marigold never changes a Keychain permission and never refreshes your Claude "
                     "login.",
              .onLinux = "Marigold never changes that file or its permissions and never refreshes "
                         "your Claude login."},
    Paragraph{.mac = "Marigold is Developer ID signed and notarized by Apple.",
              .onLinux =
                  "Installed from a package, Marigold's programs can be changed only by whoever "
                  "administers this computer."},
    Paragraph{.mac = "Codex and Grok usage comes from local files."},
};

}  // namespace

std::array<std::string_view, 7> claudeDisclosure() noexcept {
  std::array<std::string_view, paragraphs.size()> texts;
  std::ranges::transform(paragraphs, texts.begin(), &Paragraph::mac);
  return texts;
}

std::optional<std::string_view> claudeDisclosureOnLinux(std::string_view text) {
  const auto* const found = std::ranges::find(paragraphs, text, &Paragraph::mac);
  return found != paragraphs.end() && !found->onLinux.empty() ? std::optional(found->onLinux)
                                                              : std::nullopt;
}

}  // namespace marigold
