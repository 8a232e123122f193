#include "app/CodexDump.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>

#include "base/PrintableText.h"
#include "codex/CodexProvider.h"

namespace marigold {

namespace {

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

std::string outcomeText(const RolloutOutcome& outcome, Date now) {
  if (outcome) {
    return "record of " + isoText(outcome->timestamp) +
           (outcome->hasOwnTime ? "" : ", the file's time for want of its own,") + " at byte " +
           std::to_string(outcome->offset) +
           (isFromFuture(outcome->timestamp, now) ? ", from the future" : "");
  }
  switch (outcome.error()) {
    case NoRecord::none:
      return "no usable record in its last " + std::to_string(codexTailWindow) + " bytes";
    case NoRecord::unreadable:
      return "could not be read";
    case NoRecord::older:
      return "not opened: older than the best record";
  }
  return {};
}

std::string filesText(const std::vector<RolloutFile>& files, const CodexSearch& search, Date now) {
  std::string text;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const RolloutFile& file = files[i];
    text += "  " + printable(file.path) +
            (search.winner == i && search.best() != nullptr
                 ? "  <- the reading, the latest record found"
                 : "") +
            "\n";
    text += "    written " + timeAndAge(file.modified, now) + ", " + std::to_string(file.size) +
            " bytes; " + outcomeText(search.outcomes[i], now) + "\n";
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
  const RolloutTree tree(root);
  const RolloutListing listing = tree.recentRolloutFiles(codexFilesConsidered, now);
  const CodexSearch search =
      RolloutSearch().run(tree, listing.newest, RolloutSearch::Extent::newer, now);
  const auto wasRead = [](const RolloutOutcome& outcome) {
    return outcome || outcome.error() == NoRecord::none;
  };
  const auto cached = DiskCache(surroundings).load(CodexProvider::id);
  const auto restored = cached ? std::optional(cached->restored(now)) : std::nullopt;

  std::string text = "Codex reading at " + isoText(now) + "\n";
  text += "home: " + printable(paths.home()) + "\n";
  text += "sessions: " + printable(root) + (listing.rootExists ? "\n" : " (missing)\n");
  text += "directories: " + std::to_string(listing.directories) + " read, " +
          std::to_string(listing.unreadable) + " could not be read\n";
  text += "rollout files: " + std::to_string(listing.rolloutFiles) + " found, the newest " +
          std::to_string(listing.newest.size()) + " considered, " +
          std::to_string(std::ranges::count_if(search.outcomes, wasRead)) + " read\n";
  text += filesText(listing.newest, search, now);
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
