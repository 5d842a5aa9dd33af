// The one place that names the CA bundle, and tells when it was replaced.
#ifndef VARNKIVO_INTERNAL_TRUST_STORE_H_
#define VARNKIVO_INTERNAL_TRUST_STORE_H_

#include <sys/stat.h>

namespace varnkivo {

constexpr const char* kTrustStore = "/etc/ssl/certs/ca-certificates.crt";

/// What a bundle is recognised by. A bundle that cannot be looked at is like no other, itself included.
struct TrustStoreIdentity {
  static TrustStoreIdentity OfFile() {
    TrustStoreIdentity identity;
    identity.readable = stat(kTrustStore, &identity.facts) == 0;
    return identity;
  }
  bool operator==(const TrustStoreIdentity& other) const {
    return readable && other.readable && facts.st_dev == other.facts.st_dev && facts.st_ino == other.facts.st_ino &&
           facts.st_size == other.facts.st_size && facts.st_mtim.tv_sec == other.facts.st_mtim.tv_sec &&
           facts.st_mtim.tv_nsec == other.facts.st_mtim.tv_nsec;
  }
  bool readable = false;
  struct stat facts = {};
};

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_TRUST_STORE_H_
