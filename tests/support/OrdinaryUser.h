#pragma once

#include <array>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace marigold::test {

/// Runs `work` under the rule of file permissions, even when root runs the tests; or without these
/// other capabilities.
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

}  // namespace marigold::test
