#pragma once

#include "base/Surroundings.h"

namespace marigold {

/// Deletes what the system's URL loading may have kept for this application: its own entry, named
/// by the bundle identifier, in the directories for caches and for HTTP storages. People point
/// several of these at one place or link them, so an entry stays when it is a link, or when
/// the way to one of this application's files or to a tool's home leads through it. Every failure
/// is silent.
void purgeLegacyNetworkCache(const Surroundings& surroundings);

}  // namespace marigold
