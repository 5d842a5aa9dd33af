// What the identity host remembers: clients, authorization codes and the families of tokens. Thread-safe: a code or a
// refresh token is checked and used up under one lock, so that of any number of simultaneous uses one succeeds.
// Lifetimes run by the machine's own clock, whatever a test program makes of time().
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/oauth.h"

namespace kivosim {

/// Whom tokens speak for.
struct Grantee {
  std::string userId, clientId;
  std::string serial;  ///< of the device; empty: none is known
  std::string scope;   ///< words with single blanks between
};

/// A code as it is asked for: who gets it, and what its use is bound to.
struct CodeGrant {
  Grantee to;
  std::string redirectUri;
  std::string challenge;  ///< S256
};

/// A code as it is used.
struct CodeUse {
  std::string clientId, redirectUri, code, verifier;
};

struct Tokens {
  Grantee to;
  std::string accessToken, refreshToken;
  std::int64_t expiresIn = 0;
};

/// Tokens, or why there are none ("" when there are).
struct TokenOutcome {
  std::string refusal;
  Tokens tokens = {};
};

class TokenStore {
 public:
  TokenStore();  ///< knows "kivo-device", "kivo-device-register", and the packages "photos" and "pulsewatch"

  void AddClient(OAuthClient client);  ///< replaces the one with the same id
  std::optional<OAuthClient> Client(const std::string& id) const;
  std::vector<OAuthClient> Clients() const;
  void AddPackage(const std::string& name);  ///< with the client "kivo-package-NAME"
  /// Revokes what its client was given, too; the client stays known, or its late requests would count as malformed.
  /// False: there is no such package.
  bool RemovePackage(const std::string& name);
  /// The client of a package, while there is that package.
  std::optional<OAuthClient> PackageClient(const std::string& name) const;
  std::vector<OAuthClient> Packages() const;  ///< the clients of all
  /// How long access tokens live from now on, of one client or ("") of all that have no time of their own.
  void SetLifetime(std::chrono::seconds lifetime, const std::string& clientId);
  void PassTime(std::chrono::seconds time);  ///< as if codes and access tokens were so much older

  /// Stands for a right password until the person has consented: good for 10 minutes, for one use, and only for the
  /// authorization request `boundTo`.
  std::string IssueTicket(std::string userId, std::string boundTo);
  /// Whose it was. Whatever comes of it, the ticket is used up.
  std::optional<std::string> UseTicket(const std::string& ticket, const std::string& boundTo);
  std::string IssueCode(CodeGrant grant);  ///< good for 10 minutes and one use
  /// A second use of a code revokes what the first one gave.
  TokenOutcome ExchangeCode(const CodeUse& use);
  /// Replaces the tokens of the family. A refresh token that was used before revokes the family.
  TokenOutcome Refresh(const std::string& refreshToken, const std::string& clientId);
  Tokens Issue(Grantee to, std::chrono::seconds age);  ///< a new family whose access token is so old already

  /// Whom an access token speaks for, while it is good.
  std::optional<Grantee> FindByAccessToken(const std::string& token) const;
  /// The same for one that may be expired or revoked.
  std::optional<Grantee> FindIssued(const std::string& token) const;

  void ExpireAccessTokens(const std::string& clientId);  ///< "": of all clients
  /// Revokes the families that `which` is true for; returns how many were not revoked before.
  std::size_t Revoke(const std::function<bool(const TokenFamily&)>& which);
  std::vector<TokenFamily> Families() const;

  void Count(const std::string& grantType, bool granted);
  TokenCounts Counts() const;
  void Reset();

 private:
  using Time = std::chrono::nanoseconds;
  struct Code {
    CodeGrant grant;
    Time expires;
    std::size_t family = 0;  // not 0: used, and what it gave
  };
  struct Ticket {
    std::string userId, boundTo;
    Time expires;
  };
  struct Access {
    std::size_t family;
    Time expires;
  };
  Time Now() const;
  TokenFamily& Family(std::size_t number) { return families_[number - 1]; }
  std::size_t NewFamily(const Grantee& to);
  Tokens Renew(std::size_t family, Time age);
  std::string CheckCode(const Code& code, const CodeUse& use) const;
  const Access* FindAccess(const std::string& token) const;
  Grantee GranteeOf(std::size_t family) const;
  void AddDefaults();
  void Add(const std::string& package);

  mutable std::mutex mutex_;
  Time passed_{0};
  std::map<std::string, OAuthClient> clients_;
  std::map<std::string, std::string> packages_;            // name -> client
  std::map<std::string, std::chrono::seconds> lifetimes_;  // by client; "": of the others
  std::map<std::string, Ticket> tickets_;
  std::map<std::string, Code> codes_;
  std::vector<TokenFamily> families_;                 // by number; its refreshHash is made for listings only
  std::vector<std::string> present_;                  // the present refresh token of each family
  std::map<std::string, std::size_t> refreshTokens_;  // every one ever given out -> family
  std::map<std::string, Access> accessTokens_;
  TokenCounts counts_;
};

}  // namespace kivosim
