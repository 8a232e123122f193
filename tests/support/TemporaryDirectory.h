#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace marigold::test {

/// A fresh directory below the system's temporary directory, gone with its content at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "marigold-XXXXXX";
    // The real path, so that a link in the system's path does not get into comparisons.
    path_ = std::filesystem::canonical(::mkdtemp(name.data()));
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  TemporaryDirectory(TemporaryDirectory&&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::string& path() const { return path_; }

  /// Writes a file, replacing what it held, with the directories above it. Gives its path.
  std::string write(const std::string& relative, const std::string& content) {
    const std::filesystem::path file = std::filesystem::path(path_) / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

 private:
  std::string path_;
};

}  // namespace marigold::test
