// OpenSSL over two memory buffers. The error queue is emptied on every failure: it belongs to the thread, and the next
// connection would find it.
#include "sim/server/tls_engine.h"

#include <openssl/err.h>

#include <stdexcept>

namespace kivosim {
namespace {

std::string TakeError(const char* otherwise) {
  const unsigned long code = ERR_peek_last_error();
  const char* reason = code ? ERR_reason_error_string(code) : nullptr;
  ERR_clear_error();
  return reason ? reason : otherwise;
}

}  // namespace

TlsEngine::TlsEngine(SSL_CTX* context) : ssl_(SSL_new(context)), in_(BIO_new(BIO_s_mem())), out_(BIO_new(BIO_s_mem())) {
  if (!ssl_ || !in_ || !out_) throw std::runtime_error("no TLS connection");
  SSL_set_bio(ssl_.get(), in_, out_);
  SSL_set_accept_state(ssl_.get());
}

bool TlsEngine::Shake() {
  const int result = SSL_do_handshake(ssl_.get());
  established_ = result == 1;
  if (established_ || SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ) return true;
  error_ = TakeError("handshake failed");
  return false;
}

bool TlsEngine::Receive(const std::string& encrypted, std::string& plain) {
  BIO_write(in_, encrypted.data(), static_cast<int>(encrypted.size()));
  if (!established_ && !Shake()) return false;
  if (!established_) return true;
  char block[16384];
  for (;;) {
    const int size = SSL_read(ssl_.get(), block, sizeof block);
    if (size > 0) {
      plain.append(block, static_cast<std::size_t>(size));
      continue;
    }
    const int why = SSL_get_error(ssl_.get(), size);
    if (why == SSL_ERROR_WANT_READ) return true;
    if (why != SSL_ERROR_ZERO_RETURN) error_ = TakeError("TLS error");
    return false;
  }
}

void TlsEngine::Send(const std::string& plain) {
  if (plain.empty()) return;
  if (SSL_write(ssl_.get(), plain.data(), static_cast<int>(plain.size())) <= 0) error_ = TakeError("not sent");
}

void TlsEngine::CloseNotify() {
  if (established_) SSL_shutdown(ssl_.get());
  ERR_clear_error();
}

std::string TlsEngine::TakeOutput() {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(out_, &bytes);
  std::string output(bytes, static_cast<std::size_t>(size));
  (void)BIO_reset(out_);
  return output;
}

std::string TlsEngine::Sni() const {
  const char* name = SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name);
  return name ? name : "";
}

std::string TlsEngine::Version() const { return established_ ? SSL_get_version(ssl_.get()) : ""; }

}  // namespace kivosim
