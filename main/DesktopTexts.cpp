#include "DesktopTexts.h"

#include <algorithm>
#include <array>

namespace marigold {

namespace {

constexpr std::array linuxTable{
    TextSubstitute{.text = "Keychain won't release the Claude login",
                   .instead = "The Claude login file can't be opened"},
    TextSubstitute{.text = "Mac Keychain is locked", .instead = "The Claude login file is locked"},
    TextSubstitute{
        .text = "There is more than one Claude login in your Keychain and Marigold will not guess "
                "which one to read. Remove the extra one in Keychain Access.",
        .instead = "There is more than one Claude login file and Marigold will not guess which one "
                   "to read. Remove the extra one."},
    TextSubstitute{
        .text = "Your Keychain no longer lets Apple's security tool read the Claude login. Signing "
                "out of Claude Code and back in usually puts that back.",
        .instead = "Your Claude login file no longer lets Marigold read it. Signing out of Claude "
                   "Code and back in usually puts that back."},
    TextSubstitute{
        .text = "Reading your Claude login did not finish. If macOS left a Keychain dialog on "
                "screen, close it, then try again.",
        .instead = "Reading your Claude login file did not finish. If it is on a network drive, "
                   "check the connection, then try again."},
    TextSubstitute{
        .text = "Your Claude Code login has expired. Run claude in Terminal once to refresh it. "
                "Marigold reads that login, not the Claude app's.",
        .instead = "Your Claude Code login has expired. Run claude in a terminal once to refresh "
                   "it. Marigold reads that login, not the Claude app's."},
    TextSubstitute{.text = "Your Mac Keychain is locked. Marigold reads the Claude login again "
                           "once it is unlocked.",
                   .instead = "Your Claude login file is locked. Marigold reads it again once it "
                              "is unlocked."},
};

}  // namespace

DesktopTexts linuxTexts() noexcept {
  return linuxTable;
}

std::string_view worded(std::string_view text, DesktopTexts desktop) noexcept {
  const auto found = std::ranges::find(desktop, text, &TextSubstitute::text);
  return found != desktop.end() ? found->instead : text;
}

}  // namespace marigold
