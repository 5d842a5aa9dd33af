// One SSL_CTX per kind of certificate, made when it is first asked for: only a test that wants an RSA-1024 key pays
// for one. Used on the server thread only, but for the CA's text.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/server/certificates.h"

namespace kivosim {

class TlsContexts {
 public:
  explicit TlsContexts(std::vector<std::string> hosts) : authority_(std::move(hosts)) {}
  SSL_CTX* For(CertificateKind kind);
  const std::string& CaPem() const { return authority_.Pem(); }

 private:
  Authority authority_;
  std::map<CertificateKind, ContextPtr> contexts_;
};

}  // namespace kivosim
