// The operations by name. They need the device of PrepareDevice; the hand-made ones use files beside the record.
#include "operations.h"

#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/package_pkce_client.h>
#include <varnkivo/pkce_client.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "programs/store_by_hand.h"
#include "programs/token_by_hand.h"

namespace bench {
namespace {

#define BENCH_FOLDER "/usr/varn/etc/varnholt-account/private"

void Check(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string(what) + " failed");
}

void Get(unsigned int) { Check(!varnkivo::User().GetEmail().empty(), "User::GetEmail"); }

void GetByHand(unsigned int) {
  char text[8192];
  const int file = open(BENCH_FOLDER "/user.conf", O_RDONLY | O_CLOEXEC);
  const ssize_t size = file < 0 ? -1 : read(file, text, sizeof text - 1);
  close(file);
  Check(size > 0, "reading by hand");
  text[size] = '\0';
  const char* value = std::strstr(text, "\nkivoID=\"");
  Check(value != nullptr, "scanning by hand");
  value += std::strlen("\nkivoID=\"");
  Check(!std::string(value, std::strcspn(value, "\"")).empty(), "scanning by hand");
}

void Set(unsigned int turn) { varnkivo::User().SetName(turn % 2 == 0 ? "Ann Example" : "Anna Example"); }

void SetByHand(unsigned int turn) {
  constexpr std::size_t kRecordSize = 430;
  Check(StoreByHand(std::string(kRecordSize, turn % 2 == 0 ? 'a' : 'b')), "writing by hand");
}

void CachedQuery(unsigned int) {
  Json::Value profile;
  Check(VARNKIVOAccountQueryInfo(profile, false, true) == 0, "VARNKIVOAccountQueryInfo");
}

void AccountGet(unsigned int) {
  static _tag_kivo_INFO_ info;
  Check(VARNKIVOAccountGet(&info) == 0, "VARNKIVOAccountGet");
}

void DeviceToken(unsigned int) {
  char serial[36] = {}, token[33] = {};
  Check(VARNKIVOGenerateToken("ann@example.com", "correct horse", serial, sizeof serial, token, sizeof token) == 0,
        "VARNKIVOGenerateToken");
}

void LockAndUnlock(unsigned int) {
  varnkivo::FileLock lock("/tmp/account_bench.lock");
  Check(lock.Lock(1), "FileLock::Lock");
  lock.Unlock();
}

void ClientToken(unsigned int) {
  static const varnkivo::PkceClient client("lum");
  Check(!client.GetAccessToken().empty(), "PkceClient::GetAccessToken");
}

void ServiceToken(unsigned int) {
  static const varnkivo::AccountPkceService service;
  Check(!service.GetAccessToken().empty(), "AccountPkceService::GetAccessToken");
}

void MakeService(unsigned int) { const varnkivo::AccountPkceService service; }

void PackageToken(unsigned int) {
  static const varnkivo::PackagePkceClient client("photos");
  Check(!client.GetAccessToken().empty(), "PackagePkceClient::GetAccessToken");
}

void PackageTokenByHand(unsigned int) { Check(!ReadPackageTokenByHand().empty(), "reading a package's token by hand"); }

void TokenByHand(unsigned int) { Check(!ReadTokenByHand().empty(), "reading a token by hand"); }

}  // namespace

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = {{"get", Get},
                                                    {"get-by-hand", GetByHand},
                                                    {"set", Set},
                                                    {"set-by-hand", SetByHand},
                                                    {"query", CachedQuery},
                                                    {"account-get", AccountGet},
                                                    {"device-token", DeviceToken},
                                                    {"lock", LockAndUnlock},
                                                    {"access-token", ClientToken},
                                                    {"access-token-by-hand", TokenByHand},
                                                    {"service-access-token", ServiceToken},
                                                    {"package-access-token", PackageToken},
                                                    {"package-access-token-by-hand", PackageTokenByHand},
                                                    {"make-service", MakeService}};
  return operations;
}

}  // namespace bench
