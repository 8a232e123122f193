#include "app/AboutText.h"

namespace marigold {

AboutPanel aboutPanel() {
  return {.name = "Marigold",
          .version = MARIGOLD_VERSION,
          .credits =
              "Shows how much of your allowance with Claude, Codex and Grok is spent, and "
              "when it comes back.\n"
              "Claude is a product of Anthropic, Codex of OpenAI, Grok of xAI. Marigold is "
              "made by none of them."};
}

}  // namespace marigold
