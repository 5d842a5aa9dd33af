// What the cloud remembers: accounts with their auth keys, access tokens, and the API keys of devices. Thread-safe;
// shared by the handlers (server thread) and the tests or the control interface. Gives out copies, never references.
// The identity host's own memory is the TokenStore, which locks for itself; neither lock is taken under the other.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sim/account.h"
#include "sim/simulator.h"
#include "sim/token_signer.h"
#include "sim/token_store.h"

namespace kivosim {

class CloudState {
 public:
  explicit CloudState(ApiKeyPolicy policy) : policy_(policy) {}

  void AddAccount(Account account);
  std::optional<Account> Find(const std::string& emailOrUserId) const;
  std::vector<Account> Accounts() const;
  bool Change(const std::string& emailOrUserId, const std::function<void(Account&)>& change);
  bool Remove(const std::string& emailOrUserId);
  /// The auth key of the account for a device: the one already given out, else a fresh one, kept from then on. A
  /// sign-in that only checks a password must not take the key away from the device that holds it.
  std::string AuthKey(const std::string& userId, const std::string& serial);
  /// Whose auth key this is, and of which device: account and serial number.
  std::optional<std::pair<Account, std::string>> FindByAuthKey(const std::string& key) const;
  /// Takes the auth key of a device away if it is this one. False: it is not.
  bool RemoveAuthKey(const std::string& userId, const std::string& serial, const std::string& key);

  /// How many accounts one device may register.
  void SetAccountLimit(std::uint64_t limit);
  std::uint64_t AccountLimit() const;

  void GrantAccessToken(const std::string& token, const std::string& userId);
  /// The account of a token that was granted directly or issued by the identity host and is good still.
  std::optional<Account> FindByAccessToken(const std::string& token) const;

  TokenStore& OAuth() { return oauth_; }
  const TokenStore& OAuth() const { return oauth_; }
  const TokenSigner& Signer() const { return signer_; }

  void RegisterApiKey(const std::string& serial, const std::string& key);
  /// From now on `answer` is given to the device's present key, or to the first it will show.
  void WithdrawApiKey(const std::string& serial, const std::string& answer);
  /// "" when the key is good; else "apikey_not_found" or "apikey_expired".
  std::string CheckApiKey(const std::string& serial, const std::string& key);

  void RefuseMachine(const std::string& serial);
  bool IsMachineRefused(const std::string& serial) const;

  void Reset();

 private:
  struct Device {
    std::string key;                             // registered; empty: none yet
    std::map<std::string, std::string> refused;  // key -> answer
    std::string nextAnswer;                      // not empty: the next key shown is refused with it
    bool machineRefused = false;
  };
  std::string UserOfAccessToken(const std::string& token) const;
  Account* Locate(const std::string& emailOrUserId);

  const ApiKeyPolicy policy_;
  const TokenSigner signer_;
  TokenStore oauth_;
  mutable std::mutex mutex_;
  std::vector<Account> accounts_;
  std::uint64_t accountLimit_ = kDefaultAccountLimit;
  std::map<std::string, std::string> accessTokens_;  // token -> user id
  std::map<std::string, Device> devices_;            // by serial number
};

}  // namespace kivosim
