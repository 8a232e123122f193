#pragma once

#include <string>

#include <gtest/gtest.h>

#include "ports/Defaults.h"

namespace marigold::test {

/// What every implementation of Defaults keeps. `defaults` is empty.
inline void expectDefaultsContract(Defaults& defaults) {
  EXPECT_EQ(defaults.value("a"), DefaultsValue());

  defaults.apply({{"a", true}, {"b", std::string("text")}, {"", false}});
  EXPECT_EQ(defaults.flag("a"), true);
  EXPECT_EQ(defaults.text("b"), "text");
  EXPECT_EQ(defaults.flag(""), false) << "any text is a key";
  EXPECT_EQ(defaults.text("a"), std::nullopt) << "a boolean is no text";
  EXPECT_EQ(defaults.flag("b"), std::nullopt) << "nor a text a boolean";
  EXPECT_EQ(defaults.flag("A"), std::nullopt) << "keys are exact";

  const std::string odd = std::string("quote \" slash \\ umlaut \u00e4 nul ") + '\0' + " end";
  defaults.set("a", odd);
  EXPECT_EQ(defaults.text("a"), odd) << "a value may change its type and hold anything";
  defaults.apply({{"b", {}}, {"never set", {}}, {"c", true}, {"c", false}});
  EXPECT_EQ(defaults.value("b"), DefaultsValue());
  EXPECT_EQ(defaults.flag("c"), false) << "of two changes of one key the later counts";
}

}  // namespace marigold::test
