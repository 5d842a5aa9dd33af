// The library calls of the console. Touches what these touch: account record, token file, report job.
// Every failure becomes words here, right after the call that failed.
#include "device.h"

#include <httplib.h>
#include <string.h>
#include <varn/platform.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <fstream>

namespace console {
namespace {

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kJobFile[] = "/etc/cron.d/kivo";

const char* Advice(int code) {
  if (code == KIVO_ERR_SEND || code == KIVO_ERR_RESPONSE || code == KIVO_ERR_NETWORK)
    return "The account centre could not be reached, or did not take what it was sent: a sign-in is good once and for "
           "ten minutes. Check the network and start again.";
  if (code == KIVO_ERR_AUTH) return "The account centre refused it. Sign in again from the start.";
  if (code == KIVO_ERR_ACCOUNT_UNVERIFIED) return "Confirm the e-mail address of the account first.";
  return "Try again; if it goes on, the device's system log has the details.";
}

Problem Failed(const char* doing, int code) {
  std::fprintf(stderr, "varnkivo-console: %s failed, code %d\n", doing, code);
  return Problem(std::string(doing) + " failed: " + GetKivoErrorMsg(code) + " (code " + std::to_string(code) + "). " +
                 Advice(code));
}

/// The record is the library's to judge. Its copy holds the auth key as well, so it is wiped.
void ReadAccount(DeviceState& state) {
  _tag_kivo_INFO_ info{};
  if (VARNKIVOAccountGet(&info) == 0) {
    state.signedIn = true;
    state.email = info.email;
    state.name = info.name;
    state.userId = info.userId;
    state.lastQuery = info.lastQueryTime;
  } else if (const int code = VARNKIVOErrGet(); code != KIVO_ERR_NO_ACCOUNT) {
    state.problem = Failed("Reading the account record", code).what();
  }
  explicit_bzero(&info, sizeof info);
}

/// Only the times of the token file: asking the library for the token could renew it over the network.
std::int64_t ReadTokenEnd() try {
  std::ifstream file(kTokenFile);
  if (!file) return 0;
  Json::Value document;
  file >> document;
  const auto seconds = [&](const char* name) {
    const Json::Value& value = document[name];
    const std::int64_t number = value.isString()  ? std::strtoll(value.asCString(), nullptr, 10)
                                : value.isInt64() ? value.asInt64()
                                                  : 0;
    return number >= INT32_MIN && number <= INT32_MAX ? number : throw Json::LogicError("the library takes no others");
  };
  return seconds("created_at") + seconds("expires_in");
} catch (const Json::Exception&) {
  return -1;
}

std::string ReadJob() {
  std::ifstream file(kJobFile);
  for (std::string line; std::getline(file, line);)
    if (line[0] != '#' && line.find("--report_info") != std::string::npos) return line;
  return "";
}

}  // namespace

DeviceState Look() {
  DeviceState state;
  ReadAccount(state);
  state.tokenUntil = ReadTokenEnd();
  state.jobLine = ReadJob();
  return state;
}

std::string BeginSignIn(PendingSignIn& pending) {
  char challenge[44] = {}, verifier[44] = {};
  if (varn_challenge_verifier_no_save(challenge, sizeof challenge, verifier, sizeof verifier) < 0)
    throw Problem("The system has no random numbers to give; nothing was started.");
  try {
    const Json::Value config = varnkivo::AccountPkceService().GetLoginPkceConfig();
    pending.verifier = verifier;
    pending.redirectUri = config["login_redirect_uri"].asString();
    return httplib::append_query_params(config["auth_endpoint"].asString(),
                                        {{"response_type", "code"},
                                         {"client_id", config["client_id"].asString()},
                                         {"redirect_uri", pending.redirectUri},
                                         {"scope", config["scope"].asString()},
                                         {"audience", config["audience"].asString()},
                                         {"state", pending.state},
                                         {"code_challenge", challenge},
                                         {"code_challenge_method", "S256"}});
  } catch (const varnkivo::KivoException& error) {
    throw Failed("Preparing the sign-in", error.GetCode());
  }
}

void SignIn(const std::string& code, const PendingSignIn& pending) try {
  varnkivo::AccountPkceService().Login({"", code, pending.verifier, pending.redirectUri});
} catch (const varnkivo::KivoException& error) {
  const DeviceState now = Look();  // half a sign-in is worth nothing; that of somebody else meanwhile stays
  if (!now.signedIn && now.problem.empty()) VARNKIVOAccountLogout(false);
  throw Failed("Signing in", error.GetCode());
}

void SignOut(bool tellCentre) {
  if (VARNKIVOAccountLogout(tellCentre) != 0) throw Failed("Signing out", VARNKIVOErrGet());
  DeviceState after;  // what the clean-up could not remove is only logged by the library
  ReadAccount(after);
  if (after.signedIn) throw Problem("The device could not remove its own account record.");
}

}  // namespace console
