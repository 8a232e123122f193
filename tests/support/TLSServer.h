#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/time.h>

#include "base/OwnedDescriptor.h"
#include "support/SilentPort.h"

namespace marigold::test {

/// A key and the certificate for it.
struct Identity {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> certificate;
};

/// A certificate authority that nobody trusts unless told to.
class Authority {
 public:
  Authority() : own_(make("authority", 3600, nullptr, NID_basic_constraints, "critical,CA:TRUE")) {}

  /// For the server `host`, valid until so many seconds from now.
  [[nodiscard]] Identity issue(const std::string& host, long seconds = 3600) const {
    return make(host, seconds, &own_, NID_subject_alt_name, "DNS:" + host);
  }
  /// Its own certificate, as a file holds it.
  [[nodiscard]] std::string text() const {
    const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(memory.get(), own_.certificate.get());
    std::string text(BIO_ctrl_pending(memory.get()), '\0');
    BIO_read(memory.get(), text.data(), static_cast<int>(text.size()));
    return text;
  }

 private:
  static Identity make(const std::string& name, long seconds, const Identity* issuer, int extension,
                       const std::string& value) {
    Identity made{.key = {EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), EVP_PKEY_free},
                  .certificate = {X509_new(), X509_free}};
    X509* const certificate = made.certificate.get();
    const Identity& by = issuer == nullptr ? made : *issuer;
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), issuer == nullptr ? 1 : 2);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
    X509_gmtime_adj(X509_getm_notAfter(certificate), seconds);
    X509_set_pubkey(certificate, made.key.get());
    const std::basic_string<unsigned char> bytes(name.begin(), name.end());
    X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate), NID_commonName, MBSTRING_UTF8,
                               bytes.data(), static_cast<int>(bytes.size()), -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(by.certificate.get()));
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> added(
        X509V3_EXT_conf_nid(nullptr, nullptr, extension, value.c_str()), X509_EXTENSION_free);
    X509_add_ext(certificate, added.get(), -1);
    if (X509_sign(certificate, by.key.get(), EVP_sha256()) == 0) {
      throw std::runtime_error("no certificate");
    }
    return made;
  }

  Identity own_;
};

/// A client that has sent its request. Closed as the protocol asks when the script is done with it.
class Visit {
 public:
  Visit(SSL* tls, std::string header) : request(std::move(header)), tls_(tls) {}

  const std::string request;  ///< its header

  /// False when the client is gone.
  bool say(std::string_view text) {
    return text.empty() || SSL_write(tls_, text.data(), static_cast<int>(text.size())) > 0;
  }
  /// Waits until the client goes away.
  void hold() {
    char byte = 0;
    while (SSL_read(tls_, &byte, 1) > 0) {
    }
  }

 private:
  SSL* tls_;
};

struct ServerManner {
  int newestVersion = TLS1_3_VERSION;
  bool asProxy = false;  ///< is asked to connect first, and then plays the host itself
  std::string_view asProxySays = "200 Connected";
};

/// A TLS server on loopback, one client after the other on a thread of its own. The process must
/// ignore SIGPIPE, and clients must go away before this does.
class TLSServer {
 public:
  using Script = std::function<void(Visit&)>;

  TLSServer(Identity identity, Script script, ServerManner manner = {})
      : identity_(std::move(identity)), script_(std::move(script)), manner_(manner) {
    SSL_CTX* const context = context_.get();
    // The oldest protocols need algorithms that no level of security admits any more.
    SSL_CTX_set_security_level(context, manner.newestVersion < TLS1_2_VERSION ? 0 : 1);
    SSL_CTX_set_min_proto_version(context, TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context, manner.newestVersion);
    SSL_CTX_use_certificate(context, identity_.certificate.get());
    SSL_CTX_use_PrivateKey(context, identity_.key.get());
    thread_ = std::thread([this] { serve(); });
  }
  TLSServer(const TLSServer&) = delete;
  TLSServer& operator=(const TLSServer&) = delete;
  ~TLSServer() {
    ::shutdown(listening_.descriptor(), SHUT_RDWR);
    thread_.join();
  }

  /// "127.0.0.1:PORT".
  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] int connections() const { return connections_; }
  /// The headers of all requests so far, a proxy's included.
  [[nodiscard]] std::vector<std::string> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void serve() {
    for (;;) {
      const OwnedDescriptor client(
          ::accept4(listening_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client.isOpen()) {
        return;
      }
      ++connections_;
      const timeval patience{.tv_sec = 20, .tv_usec = 0};
      ::setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      ::setsockopt(client.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
      meet(client.get());
    }
  }

  void meet(int client) {
    if (manner_.asProxy) {
      header([client](char* byte) { return ::recv(client, byte, 1, 0); });
      const std::string connected = "HTTP/1.1 " + std::string(manner_.asProxySays) + "\r\n\r\n";
      (void)::send(client, connected.data(), connected.size(), 0);
    }
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(tls.get(), client);
    if (SSL_accept(tls.get()) == 1) {
      Visit visit(tls.get(), header([&](char* byte) { return SSL_read(tls.get(), byte, 1); }));
      script_(visit);
      SSL_shutdown(tls.get());
    }
  }

  template <class Read>
  std::string header(const Read& read) {
    std::string text;
    for (char byte = 0; !text.ends_with("\r\n\r\n") && read(&byte) == 1;) {
      text += byte;
    }
    if (!text.empty()) {
      const std::lock_guard lock(mutex_);
      requests_.push_back(text);
    }
    return text;
  }

  Identity identity_;
  Script script_;
  ServerManner manner_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{SSL_CTX_new(TLS_server_method()),
                                                             SSL_CTX_free};
  SilentPort listening_;
  std::string address_ = "127.0.0.1:" + std::to_string(listening_.number());
  std::atomic<int> connections_ = 0;
  mutable std::mutex mutex_;  // guards requests_
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace marigold::test
