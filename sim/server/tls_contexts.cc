// TLS settings. No tickets and no session cache: each handshake is a whole one, and the first bytes a client gets after
// it are the answer. The bad kinds lower our own security level only; the client's is what they are to trip over.
#include "sim/server/tls_contexts.h"

#include <stdexcept>

namespace kivosim {
namespace {

ContextPtr MakeContext(CertificateKind kind, const Chain& chain) {
  ContextPtr context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX* raw = context.get();
  if (!raw) throw std::runtime_error("no TLS context");
  int lowest = TLS1_2_VERSION, highest = TLS1_3_VERSION;
  if (kind == CertificateKind::kTls10Only) lowest = highest = TLS1_VERSION;
  if (kind == CertificateKind::kTls11Only) lowest = highest = TLS1_1_VERSION;
  if (kind != CertificateKind::kGood) SSL_CTX_set_security_level(raw, 0);
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(raw, SSL_OP_NO_TICKET);
  bool good = SSL_CTX_set_num_tickets(raw, 0) == 1 && SSL_CTX_set_min_proto_version(raw, lowest) == 1 &&
              SSL_CTX_set_max_proto_version(raw, highest) == 1 &&
              SSL_CTX_use_certificate(raw, chain.leaf.certificate.get()) == 1 &&
              SSL_CTX_use_PrivateKey(raw, chain.leaf.key.get()) == 1;
  SSL_CTX_set_mode(raw, SSL_MODE_NO_AUTO_CHAIN);
  for (const X509Ptr& extra : chain.extra) good = good && SSL_CTX_add1_chain_cert(raw, extra.get()) == 1;
  if (!good)
    throw std::runtime_error("TLS context not set up for \"" + CertificateKindNames()[static_cast<std::size_t>(kind)] +
                             "\"");
  return context;
}

}  // namespace

SSL_CTX* TlsContexts::For(CertificateKind kind) {
  ContextPtr& context = contexts_[kind];
  if (!context) context = MakeContext(kind, authority_.Make(kind));
  return context.get();
}

}  // namespace kivosim
