#pragma once

#include <set>
#include <string>

#include "base/Pinned.h"
#include "base/Time.h"
#include "model/ProviderSnapshot.h"

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
  /// The last answer takes back what was told before: a reading captured later than it, which the
  /// source has said since to be over.
  [[nodiscard]] virtual bool takesBack() const { return false; }
  /// Forgets every reading, also the one cached on disk.
  virtual void forgetCache() = 0;
};

}  // namespace marigold
