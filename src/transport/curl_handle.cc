// Keeps one idle libcurl handle per process, so that the CA bundle is parsed once and not at every request.
// No connection, session or name is kept with it. It is dropped when the bundle changed (libcurl does not look: a
// withdrawn CA would stay accepted), in a forked child, and at unload.
#include "curl_handle.h"

#include <atomic>
#include <mutex>

namespace varnkivo {
namespace {

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

class Place {
 public:
  ~Place() { delete kept_.exchange(nullptr); }
  std::unique_ptr<KeptCurl> Take() { return std::unique_ptr<KeptCurl>(kept_.exchange(nullptr)); }
  /// Drops what another thread put back in the meantime.
  void Put(std::unique_ptr<KeptCurl> kept) { delete kept_.exchange(kept.release()); }

 private:
  std::atomic<KeptCurl*> kept_{nullptr};
};

/// Made after libcurl's own set-up, hence emptied before libcurl's and OpenSSL's clean-up at exit.
Place& IdlePlace() {
  InitCurlOnce();
  static Place place;
  return place;
}

}  // namespace

CurlHandle::CurlHandle() : kept_(IdlePlace().Take()) {
  const TrustStoreIdentity trustStore = TrustStoreIdentity::OfFile();
  if (kept_ && kept_->process == getpid() && kept_->trustStore == trustStore) return;
  kept_.reset();
  std::unique_ptr<CURL, CurlCloser> handle(curl_easy_init());
  if (!handle) return;
  kept_ = std::make_unique<KeptCurl>();
  kept_->handle = std::move(handle);
  kept_->trustStore = trustStore;
}

CurlHandle::~CurlHandle() {
  if (!kept_) return;
  curl_easy_reset(kept_->handle.get());
  IdlePlace().Put(std::move(kept_));
}

}  // namespace varnkivo
