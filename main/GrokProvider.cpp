#include "GrokProvider.h"

namespace marigold {

GrokPaths::GrokPaths(const Surroundings& surroundings)
    : home_(surroundings.toolHome("GROK_HOME", "~/.grok")) {}

}  // namespace marigold
