// The cloud on this machine: HTTPS for the account, identity and payment hosts (production and test names) with a CA
// made at start. A test starts one in its own process, adds accounts, queues faults, and reads the journal afterwards.
//
//   kivosim::Simulator cloud;                       // 127.0.0.1:443, CA into the system's bundle: inside a sandbox
//   cloud.Start();
//   cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
//   cloud.QueueFault("device/api/user/query", kivosim::Fault::Answer(503, "down"));
//   ... the code under test ...
//   EXPECT_EQ(1u, cloud.Requests("device/api/user/query").size());
//   EXPECT_THAT(cloud.Complaints(), testing::IsEmpty());
//
// Every member may be called from any thread, also while requests are served, but not after a fork in the child.
// Requests are served on one thread of the simulator's own; hooks and callbacks run there and must not call Stop().
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/account.h"
#include "sim/fault.h"
#include "sim/journal.h"
#include "sim/message.h"
#include "sim/oauth.h"

namespace kivosim {

/// Which API keys the account host takes for known.
enum class ApiKeyPolicy {
  kFirstIsRegistered,  ///< the first key that a serial number presents counts as registered to it
  kOnlyRegistered,     ///< only what RegisterApiKey() was told
};

inline constexpr std::uint64_t kDefaultAccountLimit = 5;

struct Options {
  std::string address = "127.0.0.1";
  std::uint16_t port = 443;  ///< 0: any free one, see Port()
  /// File of trusted CAs that ours is added to on Start(), replacing that of an earlier simulator; empty: none.
  std::string trustBundle = "/etc/ssl/certs/ca-certificates.crt";
  bool plainHttp = false;  ///< also listen for HTTP in clear on a free port, to see what leaks there
  ApiKeyPolicy apiKeys = ApiKeyPolicy::kFirstIsRegistered;
};

class Simulator {
 public:
  explicit Simulator(Options options = {});
  ~Simulator();  ///< stops
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  /// Listens and serves from the moment it returns. Throws std::runtime_error saying what stands in the way (port
  /// taken, not allowed, bundle not writable). Nothing of the state is lost by Stop() and Start(), the CA included.
  void Start();
  /// Closes every connection, whatever it waits for; returns when the thread has ended.
  void Stop();

  std::uint16_t Port() const;                      ///< the port of HTTPS
  std::uint16_t PlainHttpPort() const;             ///< 0 unless Options::plainHttp
  std::string PlainHttpReceived() const;           ///< every byte the plain listener was sent, until ClearJournal()
  const std::string& CaPem() const;                ///< the CA certificate
  static const std::vector<std::string>& Hosts();  ///< the six names

  // Accounts ------------------------------------------------------------------------------------------------------
  void AddAccount(Account account);  ///< replaces the one with the same user id
  std::optional<Account> FindAccount(const std::string& emailOrUserId) const;
  std::vector<Account> Accounts() const;
  /// Changes an account in place: cloud.ChangeAccount("1001", [](Account& a) { a.password = "new"; }). False: unknown.
  bool ChangeAccount(const std::string& emailOrUserId, const std::function<void(Account&)>& change);
  bool RemoveAccount(const std::string& emailOrUserId);
  /// Forgets the auth keys of an account: the next query with one is answered "badauth". False: unknown account.
  bool Revoke(const std::string& emailOrUserId);
  /// How many accounts a device may register; those that are removed do not count.
  void SetAccountLimit(std::uint64_t limit);
  /// Makes `accessToken` good for an OAuth sign-in ("good/user/launch") as this user.
  void GrantAccessToken(const std::string& accessToken, const std::string& userId);

  // Devices -------------------------------------------------------------------------------------------------------
  /// Makes `key` the one registered key of the device; keys refused before are accepted again.
  void RegisterApiKey(const std::string& serial, const std::string& key);
  /// The device's present key (or, before any was seen, the first one it will present) is answered
  /// "apikey_not_found" from now on; the next other key it presents counts as newly registered.
  void ForgetApiKey(const std::string& serial);
  void ExpireApiKey(const std::string& serial);   ///< the same with "apikey_expired"
  void RefuseMachine(const std::string& serial);  ///< every sign-in of it is answered "invalid_machine"

  // Tokens --------------------------------------------------------------------------------------------------------
  void AddOAuthClient(OAuthClient client);  ///< beside "kivo-device" and "kivo-device-register"
  /// Makes an installed package known, beside "photos" and "pulsewatch"; its tokens are those of the client
  /// "kivo-package-NAME". Throws std::runtime_error for a name of other than letters, digits, "-", "_" and ".".
  void AddPackage(const std::string& name);
  bool RemovePackage(const std::string& name);  ///< and revokes its tokens; false: there is none
  std::vector<OAuthClient> Packages() const;    ///< their clients
  /// How long access tokens given out from now on live: of one client, or of all that have no time of their own.
  void SetTokenLifetime(std::chrono::seconds lifetime, const std::string& clientId = "");
  /// Makes access tokens and codes older by so much, at the servers only.
  void PassTime(std::chrono::seconds time);
  /// Every access token given out so far has expired, at the servers only.
  void ExpireAccessTokens(const std::string& clientId = "");
  /// Revokes all families of tokens of an account, or those of one client of it. False: unknown account.
  bool RevokeTokens(const std::string& emailOrUserId, const std::string& clientId = "");
  bool RevokeFamily(std::uint64_t number);  ///< false: there is none, or it was revoked before
  std::vector<TokenFamily> TokenFamilies() const;
  TokenCounts TokenRequests() const;
  /// A code as the authorization endpoint would give it, for the account signed in on the device `serial`; `challenge`
  /// is the S256 one. Throws as IssueTokens.
  std::string IssueCode(const std::string& emailOrUserId, const std::string& clientId, const std::string& serial,
                        const std::string& redirectUri, const std::string& challenge);
  /// A new set of tokens as if the account had signed in on the device `serial` ("": on none) `age` ago. Throws
  /// std::runtime_error for an unknown account or client.
  TokenSet IssueTokens(const std::string& emailOrUserId, const std::string& clientId = "kivo-device",
                       const std::string& serial = "", std::chrono::seconds age = std::chrono::seconds(0));

  // Faults --------------------------------------------------------------------------------------------------------
  /// Strikes the next requests for `path` ("device/api/password_login", with or without a leading "/", or "*" for any
  /// path). Faults of one path are used up in the order they were queued; those of the path itself before those of "*".
  void QueueFault(const std::string& path, Fault fault);
  /// Strikes the next connections, in the order of the queue.
  void QueueConnectionFault(ConnectionFault fault);
  void QueueCertificate(CertificateKind kind, int times = 1);
  /// Every request for a host ("identity.kivo.example"), a family of hosts ("identity" is both) or a path meets `how`
  /// until that is brought back; queued faults wait meanwhile. Nothing asked is carried out. Throws std::runtime_error
  /// for a name that is none of these.
  void TakeDown(const std::string& hostOrPath, Fault how = Fault::Unavailable());
  void BringBack(const std::string& hostOrPath = "");  ///< "": everything that is down
  void ClearFaults();                                  ///< those queued; what is down stays down
  std::size_t PendingFaults() const;                   ///< entries not used up; one with a count is one
  /// Asked first for every well-formed request; what it returns is the answer (faults still apply to it), and the
  /// request is then neither checked nor complained of. An empty function takes the hook away.
  void SetHook(std::function<std::optional<Response>(const Request&)> hook);

  // Journal -------------------------------------------------------------------------------------------------------
  std::vector<JournalEntry> Journal() const;
  /// The complete requests of the journal; with a path only those for it.
  std::vector<Request> Requests(const std::string& path = "") const;
  std::vector<std::string> Complaints() const;  ///< "PATH: what is wrong", of all entries that have one
  std::size_t Connections() const;              ///< accepted since Start() or ClearJournal()
  std::size_t ApplicationBytes() const;         ///< received on all connections since then
  std::size_t BytesSent() const;                ///< answered on all connections since then, TLS not counted
  /// Waits until no connection is open, so that the journal is complete even for refused handshakes. False: time-out.
  bool WaitIdle(std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
  void ClearJournal();

  /// Forgets accounts, clients, tokens, keys, faults, outages, hook and journal, as if newly made, but for the key of
  /// the id tokens; connections stay open.
  void Reset();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kivosim
