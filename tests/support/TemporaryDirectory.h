#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/stat.h>

namespace marigold::test {

/// A directory of its own under the system's temporary one, removed with everything in it.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(
      const std::filesystem::path& where = std::filesystem::temp_directory_path()) {
    ::umask(022);  // whatever the user's is: who may write a file matters to what is read from it
    std::string name = where / "marigold-XXXXXX";
    path_ = std::filesystem::canonical(::mkdtemp(name.data()));
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  /// Absolute, without links, without a slash at the end.
  [[nodiscard]] std::string path() const { return path_; }

  /// Writes the file at `relative`, creating its directories; gives its absolute path.
  std::string write(std::string_view relative, std::string_view content) const {
    const auto file = path_ / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace marigold::test
