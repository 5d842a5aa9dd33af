// Puts tokens and the claims of an account together. Draws nothing from the state.
#include "sim/token_answer.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

#include "sim/json_text.h"

namespace kivosim {
namespace {

Json::Value Claims(const Tokens& tokens, const Account& account, const std::string& host, std::int64_t issuedAt) {
  Json::Value claims;
  claims["iss"] = "https://" + host;
  claims["sub"] = account.userId;
  claims["aud"] = tokens.to.clientId;
  claims["iat"] = Json::Int64{issuedAt};
  claims["exp"] = Json::Int64{issuedAt + tokens.expiresIn};
  claims["email"] = account.email;
  claims["name"] = account.fullName;
  return claims;
}

}  // namespace

Json::Value TokenAnswer(const Tokens& tokens, const Account& account, const TokenSigner& signer,
                        const std::string& host, std::int64_t issuedAt) {
  Json::Value answer;
  answer["access_token"] = tokens.accessToken;
  answer["id_token"] = signer.Sign(Claims(tokens, account, host, issuedAt));
  answer["refresh_token"] = tokens.refreshToken;
  answer["token_type"] = "bearer";
  answer["scope"] = tokens.to.scope;
  answer["expires_in"] = Json::Int64{tokens.expiresIn};
  return answer;
}

Grantee GranteeFor(const CloudState& state, const std::string& emailOrUserId, const std::string& clientId,
                   const std::string& serial) {
  const std::optional<Account> account = state.Find(emailOrUserId);
  if (!account) throw std::runtime_error("no such account");
  if (!state.OAuth().Client(clientId)) throw std::runtime_error("no such client");
  const std::string scope = "openid offline_access profile email" + (serial.empty() ? "" : " device.sn:" + serial);
  return {account->userId, clientId, serial, scope};
}

TokenSet MakeTokenSet(CloudState& state, const std::string& emailOrUserId, const std::string& clientId,
                      const std::string& serial, std::chrono::seconds age) {
  const Grantee to = GranteeFor(state, emailOrUserId, clientId, serial);
  const std::optional<Account> account = state.Find(to.userId);
  const Tokens tokens = state.OAuth().Issue(to, age);
  const std::int64_t createdAt = WallClock() - age.count();
  Json::Value file = TokenAnswer(tokens, *account, state.Signer(), "identity.kivo.example", createdAt);
  file["created_at"] = Json::Int64{createdAt};
  return {tokens.accessToken, file["id_token"].asString(), tokens.refreshToken, to.scope, tokens.expiresIn, createdAt,
          JsonText(file)};
}

std::int64_t WallClock() {
  timespec time{};
  syscall(SYS_clock_gettime, CLOCK_REALTIME, &time);
  return time.tv_sec;
}

}  // namespace kivosim
