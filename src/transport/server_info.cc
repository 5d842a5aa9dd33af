// Chooses the hosts: one set in the account record first (account and identity), else the compiled-in production or
// test host. Reads the record and "/etc.defaults/varninfo.conf" on every call and keeps nothing.
// An unreadable record never costs the host: it counts as one that names none.
#include "server_info.h"

#include "internal/log.h"
#include "server_hosts.h"
#include "server_info_impl.h"
#include "user.h"
#include "varn/platform.h"

#include <cstring>

namespace varnkivo {
namespace {

constexpr const char* kSource = "server_info";

}  // namespace

bool ServerInfoImpl::IsTest() const {
  char server[64] = {};
  return VLIBCFileGetKeyValue("/etc.defaults/varninfo.conf", "varnpkg_server", server, sizeof server) >= 1 &&
         std::strcmp(server, "test") == 0;
}

std::string ServerInfoImpl::GetAccountHost() const {
  std::string host;
  try {
    host = User().GetAccountHost();
  } catch (...) {
    LogError(kSource, "Failed to get user defined account host");
  }
  if (!host.empty()) return host;
  return IsTest() ? kAccountTestHost : kAccountHost;
}

std::string ServerInfoImpl::GetIdentityHost() const {
  std::string host;
  try {
    host = User().GetIdentityHost();
  } catch (...) {
    LogError(kSource, "Failed to get user defined identity host");
  }
  if (!host.empty()) return host;
  return IsTest() ? kIdentityTestHost : kIdentityHost;
}

std::string ServerInfoImpl::GetPaymentHost() const { return IsTest() ? kPaymentTestHost : kPaymentHost; }

ServerInfo::ServerInfo() : impl_(new ServerInfoImpl) {}
ServerInfo::~ServerInfo() = default;  // here, where ServerInfoImpl is complete
std::string ServerInfo::GetAccountHost() const { return impl_->GetAccountHost(); }
std::string ServerInfo::GetIdentityHost() const { return impl_->GetIdentityHost(); }
std::string ServerInfo::GetPaymentHost() const { return impl_->GetPaymentHost(); }

}  // namespace varnkivo
