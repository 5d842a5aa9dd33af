// Codes, rotation and revocation. Every public member takes the one mutex and none calls another public one.
#include "sim/token_store.h"

#include <algorithm>
#include <utility>

#include "sim/digest.h"
#include "sim/random_text.h"
#include "sim/server/real_clock.h"

namespace kivosim {
namespace {

constexpr std::chrono::minutes kTicketLife{10};
constexpr std::chrono::minutes kCodeLife{10};
constexpr std::chrono::seconds kTokenLife{3600};
constexpr std::chrono::seconds kMostLife{std::chrono::hours(24 * 36500)};  // longer ones are as good as endless

const char* const kAccountHosts[] = {"https://account.kivo.example", "https://account-test.kivo.example"};

TokenOutcome Refused(const char* why) { return {why}; }

}  // namespace

TokenStore::TokenStore() { AddDefaults(); }

void TokenStore::AddDefaults() {
  OAuthClient login{"kivo-device", {}}, registration{"kivo-device-register", {}};
  for (const std::string host : kAccountHosts) {
    login.redirectUris.push_back(host + "/device/login/callback");
    registration.redirectUris.push_back(host + "/device/register/callback");
    login.logoutUris.push_back(host + "/device/logout/callback");
  }
  registration.logoutUris = login.logoutUris;
  clients_ = {{login.id, login}, {registration.id, registration}};
  lifetimes_ = {{"", kTokenLife}};
  packages_.clear();
  for (const char* package : {"photos", "pulsewatch"}) Add(package);
}

void TokenStore::Add(const std::string& package) {
  OAuthClient client{"kivo-package-" + package, {}, {}, package};
  for (const std::string host : kAccountHosts) {
    client.redirectUris.push_back(host + "/package/" + package + "/login/callback");
    client.logoutUris.push_back(host + "/package/" + package + "/logout/callback");
  }
  packages_[package] = client.id;
  clients_[client.id] = client;
}

void TokenStore::AddClient(OAuthClient client) {
  const std::lock_guard<std::mutex> lock(mutex_);
  OAuthClient& kept = clients_[client.id];
  client.package = kept.package;  // a package goes on having a client
  kept = std::move(client);
}

std::optional<OAuthClient> TokenStore::Client(const std::string& id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = clients_.find(id);
  return found == clients_.end() ? std::nullopt : std::optional<OAuthClient>(found->second);
}

std::vector<OAuthClient> TokenStore::Clients() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<OAuthClient> clients;
  for (const auto& [id, client] : clients_) clients.push_back(client);
  return clients;
}

void TokenStore::AddPackage(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Add(name);
}

bool TokenStore::RemovePackage(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = packages_.find(name);
  if (found == packages_.end()) return false;
  for (TokenFamily& family : families_)
    if (family.clientId == found->second) family.revoked = true;
  packages_.erase(found);
  return true;
}

std::optional<OAuthClient> TokenStore::PackageClient(const std::string& name) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = packages_.find(name);
  return found == packages_.end() ? std::nullopt : std::optional<OAuthClient>(clients_.at(found->second));
}

std::vector<OAuthClient> TokenStore::Packages() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<OAuthClient> clients;
  for (const auto& [name, id] : packages_) clients.push_back(clients_.at(id));
  return clients;
}

void TokenStore::SetLifetime(std::chrono::seconds lifetime, const std::string& clientId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lifetimes_[clientId] = lifetime;
}

void TokenStore::PassTime(std::chrono::seconds time) {
  const std::lock_guard<std::mutex> lock(mutex_);
  passed_ += time;
}

TokenStore::Time TokenStore::Now() const { return RealClock::now().time_since_epoch() + passed_; }

// Tickets ------------------------------------------------------------------------------------------------------------

std::string TokenStore::IssueTicket(std::string userId, std::string boundTo) {
  const std::string text = RandomText(40);
  const std::lock_guard<std::mutex> lock(mutex_);
  tickets_[text] = Ticket{std::move(userId), std::move(boundTo), Now() + kTicketLife};
  return text;
}

std::optional<std::string> TokenStore::UseTicket(const std::string& text, const std::string& boundTo) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tickets_.find(text);
  if (found == tickets_.end()) return std::nullopt;
  const Ticket ticket = found->second;
  tickets_.erase(found);
  const bool good = Now() <= ticket.expires && boundTo == ticket.boundTo;
  return good ? std::optional<std::string>(ticket.userId) : std::nullopt;
}

// Codes --------------------------------------------------------------------------------------------------------------

std::string TokenStore::IssueCode(CodeGrant grant) {
  const std::string text = "code-" + RandomText(40);
  const std::lock_guard<std::mutex> lock(mutex_);
  codes_[text] = Code{std::move(grant), Now() + kCodeLife};
  return text;
}

std::string TokenStore::CheckCode(const Code& code, const CodeUse& use) const {
  if (Now() > code.expires) return "the code has expired";
  if (use.clientId != code.grant.to.clientId) return "the code was given to another client";
  if (use.redirectUri != code.grant.redirectUri) return "the code was given for another redirect_uri";
  if (S256(use.verifier) != code.grant.challenge) return "code_verifier does not match the challenge";
  return "";
}

TokenOutcome TokenStore::ExchangeCode(const CodeUse& use) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = codes_.find(use.code);
  if (found == codes_.end()) return Refused("unknown code");
  Code& code = found->second;
  if (code.family) {
    Family(code.family).revoked = true;
    return Refused("the code was used before: what it gave is revoked");
  }
  const std::string problem = CheckCode(code, use);
  if (!problem.empty()) return {problem};
  code.family = NewFamily(code.grant.to);
  return {"", Renew(code.family, Time(0))};
}

// Tokens -------------------------------------------------------------------------------------------------------------

std::size_t TokenStore::NewFamily(const Grantee& to) {
  const std::size_t number = families_.size() + 1;
  families_.push_back({number, to.userId, to.clientId, to.serial, to.scope});
  present_.emplace_back();
  return number;
}

Tokens TokenStore::Renew(std::size_t family, Time age) {
  const auto own = lifetimes_.find(Family(family).clientId);
  const std::chrono::seconds life = own == lifetimes_.end() ? lifetimes_.at("") : own->second;
  Tokens tokens{GranteeOf(family), "at-" + RandomText(48), "rt-" + RandomText(48), life.count()};
  accessTokens_[tokens.accessToken] = {family, Now() + std::clamp(life, -kMostLife, kMostLife) - age};
  refreshTokens_[tokens.refreshToken] = family;
  present_[family - 1] = tokens.refreshToken;
  ++Family(family).generation;
  return tokens;
}

TokenOutcome TokenStore::Refresh(const std::string& refreshToken, const std::string& clientId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = refreshTokens_.find(refreshToken);
  if (found == refreshTokens_.end()) return Refused("unknown refresh token");
  TokenFamily& family = Family(found->second);
  if (family.clientId != clientId) return Refused("the refresh token was given to another client");
  if (family.revoked) return Refused("the refresh token is revoked");
  if (present_[found->second - 1] != refreshToken) {
    family.revoked = true;
    return Refused("the refresh token was used before: its family is revoked");
  }
  return {"", Renew(found->second, Time(0))};
}

Tokens TokenStore::Issue(Grantee to, std::chrono::seconds age) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return Renew(NewFamily(to), age);
}

const TokenStore::Access* TokenStore::FindAccess(const std::string& token) const {
  const auto found = accessTokens_.find(token);
  return found == accessTokens_.end() ? nullptr : &found->second;
}

Grantee TokenStore::GranteeOf(std::size_t number) const {
  const TokenFamily& family = families_[number - 1];
  return {family.userId, family.clientId, family.serial, family.scope};
}

std::optional<Grantee> TokenStore::FindByAccessToken(const std::string& token) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Access* access = FindAccess(token);
  const bool good = access && Now() <= access->expires && !families_[access->family - 1].revoked;
  return good ? std::optional<Grantee>(GranteeOf(access->family)) : std::nullopt;
}

std::optional<Grantee> TokenStore::FindIssued(const std::string& token) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Access* access = FindAccess(token);
  return access ? std::optional<Grantee>(GranteeOf(access->family)) : std::nullopt;
}

// Expiry, revocation, listing ----------------------------------------------------------------------------------------

void TokenStore::ExpireAccessTokens(const std::string& clientId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto& [token, access] : accessTokens_)
    if (clientId.empty() || Family(access.family).clientId == clientId) access.expires = Time::min();
}

std::size_t TokenStore::Revoke(const std::function<bool(const TokenFamily&)>& which) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::size_t count = 0;
  for (TokenFamily& family : families_) {
    if (family.revoked || !which(family)) continue;
    family.revoked = true;
    ++count;
  }
  return count;
}

std::vector<TokenFamily> TokenStore::Families() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<TokenFamily> families = families_;
  for (TokenFamily& family : families) family.refreshHash = HashPrefix(present_[family.number - 1]);
  return families;
}

void TokenStore::Count(const std::string& grantType, bool granted) {
  const std::lock_guard<std::mutex> lock(mutex_);
  TokenCount& count = counts_[grantType];
  ++count.requests;
  if (granted) ++count.granted;
}

TokenCounts TokenStore::Counts() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return counts_;
}

void TokenStore::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  AddDefaults();
  passed_ = Time(0);
  tickets_.clear();
  codes_.clear();
  families_.clear();
  present_.clear();
  refreshTokens_.clear();
  accessTokens_.clear();
  counts_.clear();
}

}  // namespace kivosim
