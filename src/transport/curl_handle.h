// A libcurl handle for one request, taken from a place where the last request left it.
#ifndef VARNKIVO_TRANSPORT_CURL_HANDLE_H_
#define VARNKIVO_TRANSPORT_CURL_HANDLE_H_

#include "trust_store.h"

#include <curl/curl.h>

#include <unistd.h>

#include <memory>

namespace varnkivo {

struct CurlCloser {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

/// An idle handle with the trust store it has parsed, which is why it is kept: that is most of a request's CPU time.
struct KeptCurl {
  std::unique_ptr<CURL, CurlCloser> handle;
  TrustStoreIdentity trustStore;
  pid_t process = getpid();
};

/// Owns a reset handle for the length of a request and then puts it back, reset again, so that nothing of a request
/// (URL, form, header list, body) outlives it. Two threads never share one: the second makes its own.
class CurlHandle {
 public:
  CurlHandle();
  CurlHandle(const CurlHandle&) = delete;
  CurlHandle& operator=(const CurlHandle&) = delete;
  ~CurlHandle();

  /// Null when libcurl could not make one.
  CURL* Get() const { return kept_ ? kept_->handle.get() : nullptr; }

 private:
  std::unique_ptr<KeptCurl> kept_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_TRANSPORT_CURL_HANDLE_H_
