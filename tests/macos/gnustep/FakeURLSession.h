#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The server that the fake of NSURLSession talks to, and what it heard.
namespace fake {

struct Server {
  int status = 200;
  std::map<std::string, std::string> headers;
  std::vector<std::string> chunks;
  std::string challenge = "";         ///< the method of one before the answer, empty for none
  std::string redirectTo = "";        ///< when not empty, the first answer is 302 to there
  long error = 0;                     ///< an NSURLError before any answer
  long errorAfter = 0;                ///< one after the chunks
  bool hangs = false;                 ///< nothing comes before the task is cancelled
  std::function<void()> whenAsked{};  ///< called on the task's thread
};
struct Heard {
  std::string method, url, configuration;
  std::map<std::string, std::string> headers;
  long disposition = -1;  ///< of the challenge
  bool credential = false;
  bool followed = false;  ///< the redirect
  long ended = -1;        ///< the error code that the task ended with, 0 for none
};

inline Server server;
inline Heard heard;
inline std::atomic<int> sessions = 0;  ///< that are not gone

}  // namespace fake
