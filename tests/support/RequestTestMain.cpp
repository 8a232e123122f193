// marigold-request for the tests: the same but for whom it believes, where it looks and how lenient
// the system is, which three files beside the name it is called by tell.

#include <filesystem>
#include <fstream>

#include <openssl/ssl.h>
#include <unistd.h>

#include "linux/request/HttpsRequest.h"

int main(int /*argc*/, char** argv) {
  const auto place = std::filesystem::path(*argv).parent_path();
  OPENSSL_INIT_SETTINGS* const settings = OPENSSL_INIT_new();
  OPENSSL_INIT_set_config_filename(settings, (place / "openssl.cnf").c_str());
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CONFIG, settings);
  std::ifstream file(place / "connect-to");
  std::string connectTo;
  std::getline(file, connectTo);
  ::_exit(
      marigold::answerRequest({.authorities = place / "authority.pem", .connectTo = connectTo}));
}
