// The library calls of the console. Touches what these touch: account record, token file, report job.
// Every call is made inside Locked(), and the codes of failures become words there, before the lock is given back.
#include "device.h"

#include <string.h>
#include <varn/platform.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/server_info.h>
#include <varnkivo/varnkivo.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <utility>

namespace console {
namespace {

constexpr int kPkceSize = 44;
constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kJobFile[] = "/etc/cron.d/kivo";

const char* Advice(int code) {
  if (code == KIVO_ERR_SEND || code == KIVO_ERR_RESPONSE || code == KIVO_ERR_NETWORK)
    return "The account centre could not be reached, or gave no usable answer. Check the network and try again.";
  if (code == KIVO_ERR_AUTH) return "The account centre refused it. Sign in again from the start.";
  if (code == KIVO_ERR_ACCOUNT_UNVERIFIED) return "Confirm the e-mail address of the account first.";
  if (code == KIVO_ERR_TOKEN) return "There is no usable token, or another program is using it just now.";
  return "Try again; if it goes on, the device's system log has the details.";
}

Problem Failed(const char* doing, int code) {
  std::fprintf(stderr, "varnkivo-console: %s failed, code %d\n", doing, code);
  return Problem(std::string(doing) + " failed: " + GetKivoErrorMsg(code) + " (code " + std::to_string(code) + "). " +
                 Advice(code));
}

template <typename Call>
auto Locked(std::timed_mutex& mutex, const char* doing, Call call) {
  const std::lock_guard<std::timed_mutex> lock(mutex);
  try {
    return call();
  } catch (const varnkivo::KivoException& error) {
    throw Failed(doing, error.GetCode());
  }
}

/// RFC 3986, section 2.3: what needs no escape stays.
std::string Escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    char escaped[4];
    std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) || (c != '\0' && strchr("-._~", c));
    out += plain ? std::string(1, c) : escaped;
  }
  return out;
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
void ReadToken(DeviceState& state, std::int64_t now) {
  std::ifstream file(kTokenFile);
  if (!file) return;
  Json::Value document;
  std::string errors;
  state.token = Token::kUnreadable;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), file, &document, &errors) || !document.isObject()) return;
  if (!document["created_at"].isInt64() || !document["expires_in"].isInt64()) return;
  state.tokenUntil = document["created_at"].asInt64() + document["expires_in"].asInt64();
  state.token = now > state.tokenUntil ? Token::kExpired : Token::kValid;
}

/// 0 where the schedule is not "at this time, every day or on one day of the week", as the library's own is.
std::int64_t NextRun(const std::string& line, std::int64_t now) {
  int minute = 0, hour = 0;
  char weekday[8] = "";
  if (std::sscanf(line.c_str(), "%d %d * * %7s", &minute, &hour, weekday) != 3) return 0;
  if (strlen(weekday) != 1 || !strchr("*01234567", weekday[0])) return 0;
  for (int day = 0; day <= 7; ++day) {
    const std::time_t today = now;
    std::tm time{};
    localtime_r(&today, &time);
    time.tm_mday += day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = 0;
    time.tm_isdst = -1;
    const std::time_t run = std::mktime(&time);
    if (run > now && (weekday[0] == '*' || time.tm_wday == (weekday[0] - '0') % 7)) return run;
  }
  return 0;
}

void ReadJob(DeviceState& state, std::int64_t now) {
  std::ifstream file(kJobFile);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#' || line.find("--report_info") == std::string::npos) continue;
    state.jobLine = line;
    state.nextRun = NextRun(line, now);
  }
}

}  // namespace

std::optional<DeviceState> Device::Look() {
  // By the system's clock: the thread sanitizer does not know the call behind the other kind of waiting.
  const std::unique_lock<std::timed_mutex> lock(mutex_, std::chrono::system_clock::now() + std::chrono::seconds(2));
  if (!lock) return std::nullopt;
  const std::int64_t now = std::time(nullptr);
  DeviceState state;
  ReadAccount(state);
  ReadToken(state, now);
  ReadJob(state, now);
  try {
    const varnkivo::ServerInfo hosts;
    state.accountHost = hosts.GetAccountHost();
    state.identityHost = hosts.GetIdentityHost();
    state.paymentHost = hosts.GetPaymentHost();
  } catch (const varnkivo::KivoException& error) {
    state.problem = Failed("Reading the hosts", error.GetCode()).what();
  }
  return state;
}

SignInStart Device::BeginSignIn(const std::string& state) {
  return Locked(mutex_, "Preparing the sign-in", [&] {
    char challenge[kPkceSize] = {}, verifier[kPkceSize] = {};
    if (varn_challenge_verifier_no_save(challenge, kPkceSize, verifier, kPkceSize) < 0)
      throw Problem("The system has no random numbers to give; nothing was started.");
    const Json::Value config = varnkivo::AccountPkceService().GetLoginPkceConfig();
    SignInStart start{config["auth_endpoint"].asString(), verifier, config["login_redirect_uri"].asString()};
    const std::pair<const char*, std::string> parameters[] = {{"?response_type=", "code"},
                                                              {"&client_id=", config["client_id"].asString()},
                                                              {"&redirect_uri=", start.redirectUri},
                                                              {"&scope=", config["scope"].asString()},
                                                              {"&audience=", config["audience"].asString()},
                                                              {"&state=", state},
                                                              {"&code_challenge=", challenge},
                                                              {"&code_challenge_method=", "S256"}};
    for (const auto& [name, value] : parameters) start.url += name + Escape(value);
    return start;
  });
}

void Device::SignIn(const std::string& code, const std::string& verifier, const std::string& redirectUri) {
  Locked(mutex_, "Signing in", [&] { varnkivo::AccountPkceService().Login({"", code, verifier, redirectUri}); });
}

void Device::SignOut(bool tellCentre) {
  Locked(mutex_, "Signing out", [&] {
    if (VARNKIVOAccountLogout(tellCentre) != 0) throw Failed("Signing out", VARNKIVOErrGet());
    DeviceState after;  // what the clean-up could not remove is only logged by the library
    ReadAccount(after);
    if (after.signedIn) throw Problem("The device could not remove its own account record.");
  });
}

}  // namespace console
