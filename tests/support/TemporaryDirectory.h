#pragma once

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#endif

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

/// Runs `work` under the rule of file permissions, even when root runs the tests (on Linux); or
/// without these other capabilities.
#ifdef __linux__
template <class Work>
void asOrdinaryUser(const Work& work,
                    unsigned capabilities = 1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<__user_cap_data_struct, 2> before{};
  ::syscall(SYS_capget, &header, before.data());
  auto without = before;
  without[0].effective &= ~capabilities;
  ::syscall(SYS_capset, &header, without.data());
  work();
  ::syscall(SYS_capset, &header, before.data());
}
#else
template <class Work>
void asOrdinaryUser(const Work& work) {
  work();
}
#endif

/// How many entries a directory has.
inline std::ptrdiff_t entriesOf(const std::string& path) {
  return std::distance(std::filesystem::directory_iterator(path), {});
}
inline std::ptrdiff_t openDescriptors() {
  return entriesOf("/proc/self/fd");
}

}  // namespace marigold::test
