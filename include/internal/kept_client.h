// An HTTP client for one request, taken from a place where the last request left it.
// No connection, session or name is kept with it: only the trust store it has parsed, which is most of a request's CPU
// time. It is dropped when the bundle changed (libcurl does not look: a withdrawn CA would stay accepted), in a forked
// child, and at unload.
#ifndef VARNKIVO_INTERNAL_KEPT_CLIENT_H_
#define VARNKIVO_INTERNAL_KEPT_CLIENT_H_

#include "internal/trust_store.h"

#include <unistd.h>

#include <atomic>
#include <memory>

namespace varnkivo {

/// Once per process, before the first handle.
void InitCurl();

/// Owns a Client for the length of a request and then puts it back, if its `Forget` says that it is still good; by that
/// nothing of a request (URL, form, headers, body) outlives it. Two threads never share one: the second makes its own.
template <class Client>
class Kept {
 public:
  Kept() : entry_(IdlePlace().Take()) {
    const TrustStoreIdentity trustStore = TrustStoreIdentity::OfFile();
    if (entry_ && entry_->process == getpid() && entry_->trustStore == trustStore) return;
    entry_ = std::make_unique<Entry>();
    entry_->trustStore = trustStore;
  }
  Kept(const Kept&) = delete;
  Kept& operator=(const Kept&) = delete;
  ~Kept() {
    if (entry_->client.Forget()) IdlePlace().Put(std::move(entry_));
  }

  Client& operator*() const { return entry_->client; }
  Client* operator->() const { return &entry_->client; }

 private:
  struct Entry {
    Client client;
    TrustStoreIdentity trustStore;
    pid_t process = getpid();
  };

  class Place {
   public:
    ~Place() { delete entry_.exchange(nullptr); }
    std::unique_ptr<Entry> Take() { return std::unique_ptr<Entry>(entry_.exchange(nullptr)); }
    /// Drops what another thread put back in the meantime.
    void Put(std::unique_ptr<Entry> entry) { delete entry_.exchange(entry.release()); }

   private:
    std::atomic<Entry*> entry_{nullptr};
  };

  /// Made after libcurl's own set-up, hence emptied before libcurl's and OpenSSL's clean-up at exit.
  static Place& IdlePlace() {
    InitCurl();
    static Place place;
    return place;
  }

  std::unique_ptr<Entry> entry_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_KEPT_CLIENT_H_
