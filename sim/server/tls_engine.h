// TLS for one connection, apart from any socket: encrypted bytes in, encrypted bytes out. That way the connection can
// stop, cut and reset below TLS, and knows to the byte what arrived.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "sim/server/certificates.h"

namespace kivosim {

class TlsEngine {
 public:
  explicit TlsEngine(SSL_CTX* context);

  /// Takes what the socket received; goes on with the handshake, or adds to `plain` what was in it. False: the
  /// connection cannot go on, either for Error() or because the client closed it properly.
  bool Receive(const std::string& encrypted, std::string& plain);
  void Send(const std::string& plain);  ///< only once Established()
  void CloseNotify();
  std::string TakeOutput();  ///< encrypted bytes for the socket; after every call above

  bool Established() const { return established_; }
  const std::string& Error() const { return error_; }
  std::string Sni() const;
  std::string Version() const;

 private:
  bool Shake();

  std::unique_ptr<SSL, OpenSslFree> ssl_;
  BIO* in_;  // both owned by ssl_
  BIO* out_;
  bool established_ = false;
  std::string error_;
};

}  // namespace kivosim
