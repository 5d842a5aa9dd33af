// Makes the throw-away CA and the host certificates, good and bad. Keys live in memory only and die with the process.
// Dates are fixed and far apart, so that a test may set its clock where it likes.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/fault.h"

namespace kivosim {

struct OpenSslFree {
  void operator()(X509* p) const { X509_free(p); }
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(SSL_CTX* p) const { SSL_CTX_free(p); }
  void operator()(SSL* p) const { SSL_free(p); }
};
using X509Ptr = std::unique_ptr<X509, OpenSslFree>;
using KeyPtr = std::unique_ptr<EVP_PKEY, OpenSslFree>;
using ContextPtr = std::unique_ptr<SSL_CTX, OpenSslFree>;

/// A certificate with its key. Empty pointers: none.
struct Identity {
  X509Ptr certificate;
  KeyPtr key;
};

/// What a connection shows: its own identity, and the certificates that go with it.
struct Chain {
  Identity leaf;
  std::vector<X509Ptr> extra;
};

class Authority {
 public:
  explicit Authority(std::vector<std::string> hosts);  ///< makes the CA: an EC P-256 key, self-signed
  Chain Make(CertificateKind kind) const;              ///< a fresh identity of this kind for all hosts
  const std::string& Pem() const { return pem_; }

 private:
  std::vector<std::string> hosts_;
  Identity root_;
  std::string pem_;
};

}  // namespace kivosim
