// The state behind the handlers. Changes run under the one mutex; a `change` function must not call back.
#include "sim/cloud_state.h"

#include <algorithm>
#include <utility>

#include "sim/random_text.h"

namespace kivosim {

Account* CloudState::Locate(const std::string& emailOrUserId) {
  for (Account& account : accounts_)
    if (account.email == emailOrUserId || account.userId == emailOrUserId) return &account;
  return nullptr;
}

void CloudState::AddAccount(Account account) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto same = std::find_if(accounts_.begin(), accounts_.end(),
                                 [&](const Account& other) { return other.userId == account.userId; });
  if (same == accounts_.end())
    accounts_.push_back(std::move(account));
  else
    *same = std::move(account);
}

std::optional<Account> CloudState::Find(const std::string& emailOrUserId) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Account* account = const_cast<CloudState*>(this)->Locate(emailOrUserId);
  return account ? std::optional<Account>(*account) : std::nullopt;
}

std::vector<Account> CloudState::Accounts() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return accounts_;
}

bool CloudState::Change(const std::string& emailOrUserId, const std::function<void(Account&)>& change) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Account* account = Locate(emailOrUserId);
  if (account) change(*account);
  return account != nullptr;
}

bool CloudState::Remove(const std::string& emailOrUserId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Account* account = Locate(emailOrUserId);
  if (account) accounts_.erase(accounts_.begin() + (account - accounts_.data()));
  return account != nullptr;
}

std::string CloudState::AuthKey(const std::string& userId, const std::string& serial) {
  std::string key;
  Change(userId, [&](Account& account) {
    std::string& kept = account.authKeys[serial];
    if (kept.empty()) kept = "ak-" + RandomText(40);
    key = kept;
  });
  return key;
}

std::optional<std::pair<Account, std::string>> CloudState::FindByAuthKey(const std::string& key) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Account& account : accounts_)
    for (const auto& [serial, kept] : account.authKeys)
      if (!key.empty() && kept == key) return std::make_pair(account, serial);
  return std::nullopt;
}

bool CloudState::RemoveAuthKey(const std::string& userId, const std::string& serial, const std::string& key) {
  bool removed = false;
  Change(userId, [&](Account& account) {
    const auto found = account.authKeys.find(serial);
    removed = found != account.authKeys.end() && found->second == key;
    if (removed) account.authKeys.erase(found);
  });
  return removed;
}

void CloudState::SetAccountLimit(std::uint64_t limit) {
  const std::lock_guard<std::mutex> lock(mutex_);
  accountLimit_ = limit;
}

std::uint64_t CloudState::AccountLimit() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return accountLimit_;
}

void CloudState::GrantAccessToken(const std::string& token, const std::string& userId) {
  const std::lock_guard<std::mutex> lock(mutex_);
  accessTokens_[token] = userId;
}

std::string CloudState::UserOfAccessToken(const std::string& token) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = accessTokens_.find(token);
  return found == accessTokens_.end() ? "" : found->second;
}

std::optional<Account> CloudState::FindByAccessToken(const std::string& token) const {
  std::string userId = UserOfAccessToken(token);
  if (userId.empty())
    if (const std::optional<Grantee> grantee = oauth_.FindByAccessToken(token)) userId = grantee->userId;
  return userId.empty() ? std::nullopt : Find(userId);
}

void CloudState::RegisterApiKey(const std::string& serial, const std::string& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  devices_[serial] = Device{key, {}, {}, devices_[serial].machineRefused};
}

void CloudState::WithdrawApiKey(const std::string& serial, const std::string& answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Device& device = devices_[serial];
  if (device.key.empty())
    device.nextAnswer = answer;
  else
    device.refused[std::exchange(device.key, {})] = answer;
}

std::string CloudState::CheckApiKey(const std::string& serial, const std::string& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Device& device = devices_[serial];
  if (!device.nextAnswer.empty()) device.refused[key] = std::exchange(device.nextAnswer, {});
  const auto refused = device.refused.find(key);
  if (refused != device.refused.end()) return refused->second;
  if (device.key.empty() && policy_ == ApiKeyPolicy::kFirstIsRegistered) device.key = key;
  return device.key == key ? "" : "apikey_not_found";
}

void CloudState::RefuseMachine(const std::string& serial) {
  const std::lock_guard<std::mutex> lock(mutex_);
  devices_[serial].machineRefused = true;
}

bool CloudState::IsMachineRefused(const std::string& serial) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = devices_.find(serial);
  return found != devices_.end() && found->second.machineRefused;
}

void CloudState::Reset() {
  oauth_.Reset();
  const std::lock_guard<std::mutex> lock(mutex_);
  accounts_.clear();
  accountLimit_ = kDefaultAccountLimit;
  accessTokens_.clear();
  devices_.clear();
}

}  // namespace kivosim
