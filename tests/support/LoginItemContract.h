#pragma once

#include <gtest/gtest.h>

#include "ports/LoginItem.h"

namespace marigold::test {

/// What every login item that is not there yet keeps to.
inline void isThereFromRegisteringToUnregistering(LoginItem& item) {
  using Status = LoginItem::Status;
  EXPECT_EQ(item.status(), Status::notRegistered);
  for (int time = 0; time < 2; ++time) {
    EXPECT_TRUE(item.registerProgram());
    EXPECT_EQ(item.status(), Status::enabled);
  }
  EXPECT_TRUE(item.unregisterProgram());
  EXPECT_EQ(item.status(), Status::notRegistered);
}

}  // namespace marigold::test
