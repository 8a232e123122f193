#include "CodexDump.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>

#include "CodexProvider.h"

namespace marigold {

namespace {

// A file name or plan may hold anything; control characters would reach the terminal.
std::string printable(std::string_view text) {
  std::string safe(text);
  std::ranges::replace_if(safe, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  return safe;
}

std::string numberText(double value) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), result.ptr};
}

std::string timeAndAge(Date moment, Date now) {
  return isoText(moment) + " (" + relativeAge(secondsBetween(moment, now)) + ")";
}

std::string healthText(const Health& health) {
  switch (health.kind()) {
    case Health::Kind::ok:
      return "ok";
    case Health::Kind::stale:
      return "stale, \"" + health.reason() + "\"";
    case Health::Kind::reconnect:
      return "reconnect, \"" + health.reason() + "\"";
    case Health::Kind::notInstalled:
      return "not installed, \"" + health.reason() + "\"";
    default:
      return "other";
  }
}

std::string outcomeText(const CodexSearch& search, std::size_t index) {
  if (index >= search.outcomes.size()) {
    return "not opened: older than the best record";
  }
  const auto& record = search.outcomes[index];
  if (!record) {
    return "no usable record in its last " + std::to_string(codexTailWindow) + " bytes";
  }
  return "record of " + isoText(record->timestamp) +
         (record->hasOwnTime ? "" : ", the file's time for want of its own,") + " at byte " +
         std::to_string(record->offset);
}

std::string filesText(const std::vector<RolloutFile>& files, const CodexSearch& search,
                      std::size_t rootLength, Date now) {
  std::string text;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const RolloutFile& file = files[i];
    text += "  " + printable(std::string_view(file.path).substr(rootLength + 1)) +
            (search.winner == i && search.best() != nullptr
                 ? "  <- the reading, the latest record found"
                 : "") +
            "\n";
    text += "    written " + timeAndAge(file.modified, now) + ", " + std::to_string(file.size) +
            " bytes; " + outcomeText(search, i) + "\n";
  }
  return text;
}

std::string snapshotText(const ProviderSnapshot& snapshot, Date now) {
  std::string text;
  for (const UsageWindow& window : snapshot.windows) {
    text += "  " + printable(window.label) + ": " + numberText(window.percent) + "% used, resets " +
            (window.resetsAt ? isoText(*window.resetsAt) : "at a time not told") + "\n";
  }
  if (snapshot.windows.empty()) {
    text += "  no windows\n";
  }
  text += "  captured: " + timeAndAge(snapshot.capturedAt, now) + "\n";
  text += "  plan: " + printable(snapshot.planLabel.value_or("none")) + "\n";
  text += "  note: " + printable(snapshot.extraNote.value_or("none")) + "\n";
  text += "  health: " + healthText(snapshot.health) + "\n";
  return text;
}

}  // namespace

std::string codexDump(const Surroundings& surroundings, Date now) {
  const CodexPaths paths(surroundings);
  const std::string root = paths.sessionsDir();
  const RolloutListing listing = newestRolloutFiles(root, codexFilesConsidered);
  const CodexSearch search = searchRollouts(listing.newest, SearchEnd::whenOlder);
  const auto cached = DiskCache(surroundings).load(CodexProvider::id);
  const auto restored = cached ? std::optional(cached->restored(now)) : std::nullopt;

  std::string text = "Codex reading at " + isoText(now) + "\n";
  text += "home: " + printable(paths.home()) + "\n";
  text += "sessions: " + printable(root) + (listing.rootExists ? "\n" : " (missing)\n");
  text += "directories: " + std::to_string(listing.directories) + " read, " +
          std::to_string(listing.skipped) + " skipped\n";
  text += "rollout files: " + std::to_string(listing.rolloutFiles) + " found, the newest " +
          std::to_string(listing.newest.size()) + " considered, " +
          std::to_string(search.outcomes.size()) + " opened\n";
  text += filesText(listing.newest, search, root.size(), now);
  text += "reading:\n";
  if (const CodexRecord* record = search.best()) {
    text += snapshotText(record->limits.snapshot(record->timestamp, now), now);
  } else {
    text += snapshotText(codexWithoutRecord(listing.rootExists, restored, now), now);
  }
  text += "cached reading: " +
          (restored ? "captured " + timeAndAge(restored->capturedAt, now) : std::string("none")) +
          "\n";
  return text;
}

}  // namespace marigold
