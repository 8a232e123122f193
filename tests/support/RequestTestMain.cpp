// marigold-request for the tests: the same but for whom it believes and where it looks, which two
// files beside the name it is called by tell.

#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "linux/request/HttpsRequest.h"

int main(int /*argc*/, char** argv) {
  const auto place = std::filesystem::path(*argv).parent_path();
  std::ifstream file(place / "connect-to");
  std::string connectTo;
  std::getline(file, connectTo);
  ::_exit(
      marigold::answerRequest({.authorities = place / "authority.pem", .connectTo = connectTo}));
}
