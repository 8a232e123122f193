#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <system_error>

namespace marigold {

/// Replaces the file at `path` by one holding `bytes`, readable by the user alone: written to a
/// temporary file in the same directory, synced, renamed over `path`. A reader, or a crash at any
/// moment, finds the old content or the new, never a part. On failure the old file is untouched and
/// no temporary file stays behind; one that a crash left goes with the next replacement.
[[nodiscard]] std::expected<void, std::error_code> replaceFile(const std::string& path,
                                                               std::string_view bytes);

/// Removes what interrupted replacements of the file at `path` left behind; failures are ignored.
void removeTemporariesOf(const std::string& path);

/// Creates the directory at `path` with all missing parents, for the user alone.
[[nodiscard]] std::expected<void, std::error_code> createDirectories(const std::string& path);

}  // namespace marigold
