#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Surroundings.h"
#include "model/ProviderSnapshot.h"

namespace marigold {

/// The identity of the application where the system has none recorded for it.
[[nodiscard]] std::string_view builtInBundleIdentifier() noexcept;

/// Keeps each provider's last reading across restarts: one small JSON file per provider, usage
/// numbers, plan and note only. Every failure is silent and means only that readings are not
/// restored after the next start. Dates are seconds since 2001-01-01 00:00:00 UTC. May be used from
/// several threads for different providers.
class DiskCache {
 public:
  explicit DiskCache(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}

  /// The same for who is not to change it: saves and removes nothing.
  [[nodiscard]] DiskCache readOnly() const;

  /// `MARIGOLD_CACHE_DIR` when set and not empty, else "cache" in the application's own directory
  /// under application support.
  [[nodiscard]] std::string dir() const;
  [[nodiscard]] std::string bundleID() const;

  void save(const CachedSnapshot& snapshot) const;
  [[nodiscard]] std::optional<CachedSnapshot> load(ProviderID provider) const;
  /// Also removes what interrupted saves left behind.
  void remove(ProviderID provider) const;

 private:
  [[nodiscard]] std::string file(ProviderID provider) const;

  Surroundings surroundings_;
  bool isReadOnly_ = false;
};

/// The content of a cache file; nothing when a value cannot be written as JSON.
[[nodiscard]] std::optional<std::string> encodeCachedSnapshot(const CachedSnapshot& snapshot);
/// Nothing for anything but the JSON object that `encodeCachedSnapshot` writes. Optional fields and
/// unknown keys aside, decoding is strict: half a reading is none.
[[nodiscard]] std::optional<CachedSnapshot> decodeCachedSnapshot(std::string_view content);

}  // namespace marigold
