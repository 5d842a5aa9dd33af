// What a server answers to a sign-in, a query and a renewal. The first byte chooses the operation, the rest is the
// body. Whatever comes: no key appears in the account record that the library does not know, and nothing is thrown but
// what the headers name.
#include <json/json.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/pkce_client.h>
#include <varnkivo/varnkivo.h>

#include <cstring>
#include <sstream>
#include <typeinfo>

#include "answers.h"
#include "device.h"

namespace {

std::string gSignedIn;  // the record of somebody who is signed in, as the library writes it
const char kExpired[] =
    "{\"access_token\":\"a\",\"id_token\":\"i\",\"refresh_token\":\"r\",\"expires_in\":1,\"created_at\":1}";

void CheckRecord() {
  static const std::string known =
      " kivoID kivoPW kivoIDSerial lu_auth_key account_host identity_host full_name country timezone notify_language "
      "critical_version_list critical_version_domain activated disabled enews critical_release enews_local_promotion "
      "realname_validation_pass report_cron_timestring last_query_time ";
  std::istringstream record(ReadFile(kRecord));
  for (std::string line; std::getline(record, line);) {
    const std::string key = line.substr(0, line.find('='));
    Require(known.find(" " + key + " ") != std::string::npos, "a server's text adds no key", key);
  }
}

void Renew() {
  Json::Value config;
  config["client_id"] = "kivo-device";
  config["token_endpoint"] = "https://identity.kivo.example/oauth2/token";
  varnkivo::PkceClient client("fuzz");
  client.SetPkceConfig(config);
  try {
    client.GetAccessToken();
  } catch (const varnkivo::KivoException&) {
  } catch (const std::bad_cast&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RequireSandbox();
  static _tag_kivo_INFO_ info = {};
  std::strcpy(info.email, "ann@example.com");
  std::strcpy(info.userId, "1001");
  std::strcpy(info.authKey, "0123456789abcdef");
  Require(VARNKIVOAccountSet(&info) == 0, "the record can be written");
  gSignedIn = ReadFile(kRecord);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size == 0) return 0;
  AnswerWith(data[0] & 4 ? 400 : 200, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  WriteFile(kRecord, gSignedIn);
  Json::Value answer;
  switch (data[0] & 3) {
    case 0:
      VARNKIVOAccountQueryInfo(answer, true, true);
      break;
    case 1:
      VARNKIVOAccountLogin("ann@example.com", "correct horse", answer, false);
      break;
    case 2:
      VARNKIVOReportInfo();
      break;
    default:
      WriteFile(std::string(kPrivateFolder) + "/fuzz_token.json", kExpired);
      Renew();
  }
  CheckRecord();
  return 0;
}
