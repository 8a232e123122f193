#pragma once

#include "app/StatusReport.h"
#include "base/Surroundings.h"
#include "popover/DesktopTexts.h"
#include "ports/Defaults.h"

namespace marigold {

/// The report when no instance runs that could be asked: Codex and Grok are read, of Claude only
/// the reading kept on disk, so that the login is read and Anthropic asked by the instance alone.
/// Stores nothing. Blocks on the disk.
[[nodiscard]] StatusReport storedStatus(const Surroundings& surroundings, const Defaults& defaults,
                                        DesktopTexts texts, const LocalTimeText& localTime,
                                        Date now);

}  // namespace marigold
