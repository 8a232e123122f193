#include "GrokProvider.h"

namespace marigold {

GrokPaths::GrokPaths(const Surroundings& surroundings) {
  const std::string chosen = surroundings.variable("GROK_HOME");
  home_ = surroundings.expandingTilde(chosen.empty() ? "~/.grok" : chosen);
}

}  // namespace marigold
