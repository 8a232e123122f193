#pragma once

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ports/Defaults.h"

namespace marigold::test {

/// What every store of preferences keeps to.
inline void keepFlagsAndTextsApartUnderExactKeys(Defaults& defaults) {
  const std::string odd = std::string("quote \" slash \\ umlaut \u00e4 nul ") + '\0' + " end";
  defaults.apply({{"a", true}, {"b.c", odd}, {"d", ""}, {"e", false}, {"e", true}});
  defaults.apply({{"a", odd}, {"b.c", {}}, {"never set", {}}, {"f", "true"}});
  for (const auto& [key, value] : std::vector<DefaultsChange>{
           {"a", odd}, {"A", {}}, {"b", {}}, {"b.c", {}}, {"d", ""}, {"e", true}, {"f", "true"}}) {
    EXPECT_EQ(defaults.value(key), value) << key;
  }
  EXPECT_EQ(defaults.flag("f"), std::nullopt);
  EXPECT_EQ(defaults.text("e"), std::nullopt);
}

}  // namespace marigold::test
