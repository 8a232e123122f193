#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <stdlib.h>

namespace marigold::test {

/// A new, empty directory of this test's own, removed with everything in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(std::filesystem::temp_directory_path() / "marigold-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  TemporaryDirectory(TemporaryDirectory&&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  /// Absolute, without a slash at the end.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Writes a file, with missing directories on the way to it, and gives its path.
  std::string write(const std::string& relative, std::string_view content) {
    const auto file = std::filesystem::path(path_) / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

 private:
  std::string path_;
};

}  // namespace marigold::test
