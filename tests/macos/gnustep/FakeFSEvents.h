#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What the fakes of FSEvents and libdispatch were asked for.
namespace fake {

inline std::vector<std::string> queueLabels;
inline std::uint32_t streamFlags = 0;  ///< of the last stream
inline double streamLatency = 0;
inline std::string streamCalls;  ///< of the last one, in their order, and waits for a queue
inline bool streamsStart = true;

}  // namespace fake
