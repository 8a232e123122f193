#pragma once

#include <atomic>
#include <map>
#include <string>
#include <vector>

/// The server that the fake of NSURLSession talks to, and what it heard.
namespace fake {

struct Server {
  int status = 200;
  std::map<std::string, std::string> headers;
  std::vector<std::string> chunks;
  std::string redirectTo;     ///< when not empty, the first answer is 302 to there
  double firstByteAfter = 0;  ///< seconds
  double betweenChunks = 0;
  long error = 0;  ///< an NSURLError before any answer
};
struct Heard {
  std::string method, url, configuration;
  std::map<std::string, std::string> headers;
  bool followed = false;  ///< the redirect
  long ended = -1;        ///< the error code that the task ended with, 0 for none
  bool invalidated = false;
};

inline Server server;
inline Heard heard;
inline std::atomic<int> sessions = 0;  ///< that are not gone

}  // namespace fake
