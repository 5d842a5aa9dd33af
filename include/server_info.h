// Which account, identity and payment host this device talks to.
#ifndef VARNKIVO_SERVER_INFO_H_
#define VARNKIVO_SERVER_INFO_H_

#include "varnkivo.h"

#include <memory>
#include <string>

namespace varnkivo {

class ServerInfoImpl;

/// Holds no state: each call reads the device's configuration again. Hosts are absolute https URLs without a trailing
/// slash; a host set in the account record (account and identity only) comes before the compiled-in ones.
class KIVO_API ServerInfo {
 public:
  ServerInfo();
  ServerInfo(const ServerInfo&) = delete;
  ServerInfo& operator=(const ServerInfo&) = delete;
  ~ServerInfo();

  std::string GetAccountHost() const;
  std::string GetIdentityHost() const;
  std::string GetPaymentHost() const;

 private:
  std::unique_ptr<ServerInfoImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_SERVER_INFO_H_
