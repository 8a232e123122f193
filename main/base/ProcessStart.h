#pragma once

namespace marigold {

/// Undoes what this process inherited that would have it fail in odd ways, and says what it heeds.
/// To be called first of all.
///
/// Standard descriptors that are closed are opened on the null device, lest another file take their
/// place. No signal is blocked or ignored, as an ignored SIGCHLD would hide how children end, but
/// SIGPIPE and SIGXFSZ: a reader of our output that goes away and a full disk quota are errors of a
/// write. The system never writes this process's memory to a file.
void startProcess() noexcept;

}  // namespace marigold
