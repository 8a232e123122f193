#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

// What a test asks of the system. The linker wraps the calls, in a program of its own.

namespace marigold::test {

// NOLINTBEGIN(*-non-const-global-variables): a wrapped call has no other way to its test.
/// The calls made, by name; of "open" only those of logs. "bytes" are those asked of "pread".
extern std::map<std::string_view, std::size_t> made;
/// Called before each "openat" and "fstatat", with the path.
extern std::function<void(const std::string&)> interfere;
// NOLINTEND(*-non-const-global-variables)

}  // namespace marigold::test
