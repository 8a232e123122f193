#pragma once

#include <set>
#include <string>

#include "Pinned.h"
#include "ProviderSnapshot.h"
#include "Time.h"

namespace marigold {

/// A source of readings that lie in files on this computer. Every read is synchronous, may block on
/// the disk and never fails: what goes wrong is told by the snapshot's health. Not safe to share
/// between threads; whoever owns one confines it.
class UsageProvider : public Pinned {
 public:
  /// The regular read; cheap when nothing changed since the last one.
  [[nodiscard]] virtual ProviderSnapshot fetch(Date now) = 0;
  /// A read that trusts nothing it remembers about the files.
  [[nodiscard]] virtual ProviderSnapshot rescan(Date now) = 0;
  /// A read of the files at the paths `changed` only.
  [[nodiscard]] virtual ProviderSnapshot fetch(const std::set<std::string>& changed, Date now) = 0;
  /// Forgets every reading, also the one cached on disk.
  virtual void forgetCache() = 0;
};

}  // namespace marigold
