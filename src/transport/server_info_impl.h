// The decision behind ServerInfo.
#ifndef VARNKIVO_TRANSPORT_SERVER_INFO_IMPL_H_
#define VARNKIVO_TRANSPORT_SERVER_INFO_IMPL_H_

#include <string>

namespace varnkivo {

class ServerInfoImpl {
 public:
  /// Whether the device is set to the test servers.
  bool IsTest() const;
  std::string GetAccountHost() const;
  std::string GetIdentityHost() const;
  std::string GetPaymentHost() const;
};

}  // namespace varnkivo

#endif  // VARNKIVO_TRANSPORT_SERVER_INFO_IMPL_H_
