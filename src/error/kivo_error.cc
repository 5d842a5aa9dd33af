// The error codes' messages, the last-error slot and the translation of foreign error reports into codes.
// The slot is one integer for the whole process; only VARNKIVOErrSet writes it.
#include "varn/platform.h"
#include "varnkivo.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

std::atomic<int> gLastError{KIVO_ERR_SUCCESS};

constexpr int kCloudServiceCodes[] = {KIVO_ERR_SUCCESS, KIVO_ERR_NETWORK,        KIVO_ERR_UNKNOWN, KIVO_ERR_UNKNOWN,
                                      KIVO_ERR_UNKNOWN, KIVO_ERR_UNKNOWN,        KIVO_ERR_UNKNOWN, KIVO_ERR_UNKNOWN,
                                      KIVO_ERR_UNKNOWN, KIVO_ERR_INVALID_MACHINE};

}  // namespace

const _tag_kivo_error_code_row_ gErrorCodeMap[] = {
    {"good", KIVO_ERR_SUCCESS},
    {"badparam", KIVO_ERR_BAD_PARAM},
    {"badauth", KIVO_ERR_AUTH},
    {"badsys", KIVO_ERR_SYSTEM},
    {"badnetwork", KIVO_ERR_NETWORK},
    {"account_inused", KIVO_ERR_ACCOUNT_IN_USE},
    {"serial_exceed_max_account_register", KIVO_ERR_ACCOUNT_LIMIT},
    {"account_unverified", KIVO_ERR_ACCOUNT_UNVERIFIED},
    {"account_userid", KIVO_ERR_SUCCESS},
    {"account_not_found", KIVO_ERR_ACCOUNT_NOT_FOUND},
    {"apikey_not_found", KIVO_ERR_APIKEY_NOT_FOUND},
    {"apikey_expired", KIVO_ERR_APIKEY_EXPIRED},
    {"invalid_machine", KIVO_ERR_INVALID_MACHINE},
    {nullptr, KIVO_ERR_UNKNOWN},
};

int VARNKIVOErrSet(int code) {
  gLastError.store(code, std::memory_order_relaxed);
  return code;
}

int VARNKIVOErrGet(void) { return gLastError.load(std::memory_order_relaxed); }

const char* GetKivoErrorMsg(int code) {
  switch (code) {
    case KIVO_ERR_SUCCESS:
      return "Success";
    case KIVO_ERR_BAD_PARAM:
      return "Wrong parameters";
    case KIVO_ERR_BAD_JSON:
      return "Wrong JSON format";
    case KIVO_ERR_NO_ACCOUNT:
      return "Failed to get kivo account";
    case KIVO_ERR_SEND:
      return "Failed to send the request";
    case KIVO_ERR_RESPONSE:
      return "Failed to get the response";
    case KIVO_ERR_PAYMENT_CONFIG:
      return "Failed to get the payment config (url)";
    case KIVO_ERR_AUTH:
      return "Failed to auth";
    default:
      return "System error";
  }
}

void printErrCode(int code) {
  if (code != KIVO_ERR_SUCCESS) std::fprintf(stderr, "%s\n", GetKivoErrorMsg(code));
}

int GetErrorCodeFromAccountError(const char* error) {
  const _tag_kivo_error_code_row_* row = gErrorCodeMap;
  while (row->key && !(error && std::strncmp(error, row->key, std::strlen(row->key)) == 0)) ++row;
  return row->code;
}

int MapLibKivoCenterErrorCode(const char* error) { return VARNKIVOErrSet(GetErrorCodeFromAccountError(error)); }

int GetErrorCodeFromCloudService(void) {
  const auto code = static_cast<unsigned int>(VARNCloudServiceGetErrorCode());  // negative ones become large
  return code < sizeof kCloudServiceCodes / sizeof *kCloudServiceCodes ? kCloudServiceCodes[code] : KIVO_ERR_UNKNOWN;
}
