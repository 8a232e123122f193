#include "popover/AboutText.h"

namespace marigold {

AboutPanel aboutPanel() {
  return {.title = "About Marigold",
          .name = "Marigold",
          .version = MARIGOLD_VERSION,
          .credits = std::string(aboutCredits)};
}

}  // namespace marigold
