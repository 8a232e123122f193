#include "linux/system/StandardErrorLog.h"

#include <string>

#include <sys/types.h>
#include <unistd.h>

namespace marigold {

namespace {

// One write a line, so that lines of several threads do not mix.
void write(std::string_view line) {
  const std::string text = "marigold: " + std::string(line) + "\n";
  [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

void StandardErrorLog::note(std::string_view line) {
  write(line);
}
void StandardErrorLog::error(std::string_view line) {
  write("error: " + std::string(line));
}

}  // namespace marigold
