// The simulator's public face: one line per member over the parts that do the work.
#include "sim/simulator.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "sim/server/server.h"
#include "sim/server/service.h"
#include "sim/server/tls_contexts.h"
#include "sim/token_answer.h"
#include "sim/trust_bundle.h"

namespace kivosim {

class Simulator::Impl {
 public:
  explicit Impl(Options given) : options(std::move(given)), service(options.apiKeys), contexts(Hosts()) {}

  void Start() {
    if (server) return;
    auto made = std::make_unique<Server>(options.address, options.port, service, contexts);
    if (options.plainHttp) {
      const auto refuse = [](const Request&) { return Response{403, "this host speaks https only\n", "text/plain"}; };
      plainPort = made->AddPlain("127.0.0.1", 0, refuse, [this](const std::string& bytes) { Leaked(bytes); });
    }
    if (!options.trustBundle.empty()) TrustInBundle(options.trustBundle, contexts.CaPem());
    made->Run();
    server = std::move(made);
  }

  void Leaked(const std::string& bytes) {
    const std::lock_guard<std::mutex> lock(plainMutex);
    plainReceived += bytes;
  }

  const Options options;
  Service service;
  TlsContexts contexts;
  std::uint16_t plainPort = 0;
  std::mutex plainMutex;
  std::string plainReceived;
  std::unique_ptr<Server> server;  // last: its thread uses all of the above
};

Simulator::Simulator(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Simulator::~Simulator() = default;

void Simulator::Start() { impl_->Start(); }
void Simulator::Stop() { impl_->server.reset(); }

std::uint16_t Simulator::Port() const { return impl_->server ? impl_->server->Port() : impl_->options.port; }
std::uint16_t Simulator::PlainHttpPort() const { return impl_->plainPort; }
std::string Simulator::PlainHttpReceived() const {
  const std::lock_guard<std::mutex> lock(impl_->plainMutex);
  return impl_->plainReceived;
}
const std::string& Simulator::CaPem() const { return impl_->contexts.CaPem(); }

void Simulator::AddAccount(Account account) { impl_->service.state.AddAccount(std::move(account)); }
std::optional<Account> Simulator::FindAccount(const std::string& emailOrUserId) const {
  return impl_->service.state.Find(emailOrUserId);
}
std::vector<Account> Simulator::Accounts() const { return impl_->service.state.Accounts(); }
bool Simulator::ChangeAccount(const std::string& emailOrUserId, const std::function<void(Account&)>& change) {
  return impl_->service.state.Change(emailOrUserId, change);
}
bool Simulator::RemoveAccount(const std::string& emailOrUserId) { return impl_->service.state.Remove(emailOrUserId); }
bool Simulator::Revoke(const std::string& emailOrUserId) {
  return ChangeAccount(emailOrUserId, [](Account& account) { account.authKeys.clear(); });
}
void Simulator::SetAccountLimit(std::uint64_t limit) { impl_->service.state.SetAccountLimit(limit); }
void Simulator::GrantAccessToken(const std::string& accessToken, const std::string& userId) {
  impl_->service.state.GrantAccessToken(accessToken, userId);
}

void Simulator::AddOAuthClient(OAuthClient client) { impl_->service.state.OAuth().AddClient(std::move(client)); }
void Simulator::AddPackage(const std::string& name) {
  const auto isPlain = [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_' || c == '.'; };
  if (name.empty() || !std::all_of(name.begin(), name.end(), isPlain))
    throw std::runtime_error("\"" + name + "\" is no name of a package");
  impl_->service.state.OAuth().AddPackage(name);
}
bool Simulator::RemovePackage(const std::string& name) { return impl_->service.state.OAuth().RemovePackage(name); }
std::vector<OAuthClient> Simulator::Packages() const { return impl_->service.state.OAuth().Packages(); }
void Simulator::SetTokenLifetime(std::chrono::seconds lifetime, const std::string& clientId) {
  impl_->service.state.OAuth().SetLifetime(lifetime, clientId);
}
void Simulator::PassTime(std::chrono::seconds time) { impl_->service.state.OAuth().PassTime(time); }
void Simulator::ExpireAccessTokens(const std::string& clientId) {
  impl_->service.state.OAuth().ExpireAccessTokens(clientId);
}
bool Simulator::RevokeTokens(const std::string& emailOrUserId, const std::string& clientId) {
  const std::optional<Account> account = FindAccount(emailOrUserId);
  if (!account) return false;
  impl_->service.state.OAuth().Revoke([&](const TokenFamily& family) {
    return family.userId == account->userId && (clientId.empty() || family.clientId == clientId);
  });
  return true;
}
bool Simulator::RevokeFamily(std::uint64_t number) {
  return impl_->service.state.OAuth().Revoke([&](const TokenFamily& family) { return family.number == number; }) == 1;
}
std::vector<TokenFamily> Simulator::TokenFamilies() const { return impl_->service.state.OAuth().Families(); }
TokenCounts Simulator::TokenRequests() const { return impl_->service.state.OAuth().Counts(); }
std::string Simulator::IssueCode(const std::string& emailOrUserId, const std::string& clientId,
                                 const std::string& serial, const std::string& redirectUri,
                                 const std::string& challenge) {
  CloudState& state = impl_->service.state;
  return state.OAuth().IssueCode({GranteeFor(state, emailOrUserId, clientId, serial), redirectUri, challenge});
}

TokenSet Simulator::IssueTokens(const std::string& emailOrUserId, const std::string& clientId,
                                const std::string& serial, std::chrono::seconds age) {
  return MakeTokenSet(impl_->service.state, emailOrUserId, clientId, serial, age);
}

void Simulator::RegisterApiKey(const std::string& serial, const std::string& key) {
  impl_->service.state.RegisterApiKey(serial, key);
}
void Simulator::ForgetApiKey(const std::string& serial) {
  impl_->service.state.WithdrawApiKey(serial, "apikey_not_found");
}
void Simulator::ExpireApiKey(const std::string& serial) {
  impl_->service.state.WithdrawApiKey(serial, "apikey_expired");
}
void Simulator::RefuseMachine(const std::string& serial) { impl_->service.state.RefuseMachine(serial); }

void Simulator::QueueFault(const std::string& path, Fault fault) { impl_->service.faults.Push(path, std::move(fault)); }
void Simulator::QueueConnectionFault(ConnectionFault fault) { impl_->service.faults.Push(fault); }
void Simulator::QueueCertificate(CertificateKind kind, int times) {
  QueueConnectionFault({ConnectionFault::Kind::kCertificate, kind, times});
}
void Simulator::TakeDown(const std::string& hostOrPath, Fault how) {
  const auto names = [&](const std::string& host) {
    return host == hostOrPath || IsOfFamily(host, hostOrPath) || hostOrPath == "*";
  };
  if (hostOrPath.find('/') == std::string::npos && std::none_of(Hosts().begin(), Hosts().end(), names))
    throw std::runtime_error("\"" + hostOrPath + "\" is no host, family of hosts or path");
  how.skipHandler = true;
  impl_->service.faults.TakeDown(hostOrPath, std::move(how));
}
void Simulator::BringBack(const std::string& hostOrPath) { impl_->service.faults.BringBack(hostOrPath); }
void Simulator::ClearFaults() { impl_->service.faults.Clear(); }
std::size_t Simulator::PendingFaults() const { return impl_->service.faults.Pending(); }
void Simulator::SetHook(std::function<std::optional<Response>(const Request&)> hook) {
  impl_->service.SetHook(std::move(hook));
}

std::vector<JournalEntry> Simulator::Journal() const { return impl_->service.journal.Entries(); }

std::vector<Request> Simulator::Requests(const std::string& path) const {
  std::vector<Request> requests;
  for (JournalEntry& entry : Journal())
    if (entry.kind == JournalEntry::Kind::kRequest && (path.empty() || entry.request.path == NormalPath(path)))
      requests.push_back(std::move(entry.request));
  return requests;
}

std::vector<std::string> Simulator::Complaints() const {
  std::vector<std::string> complaints;
  for (const JournalEntry& entry : Journal())
    if (!entry.complaint.empty()) complaints.push_back(entry.request.path + ": " + entry.complaint);
  return complaints;
}

std::size_t Simulator::Connections() const { return impl_->service.journal.Connections(); }
std::size_t Simulator::ApplicationBytes() const { return impl_->service.journal.ApplicationBytes(); }
std::size_t Simulator::BytesSent() const { return impl_->service.journal.BytesSent(); }
bool Simulator::WaitIdle(std::chrono::milliseconds timeout) const { return impl_->service.journal.WaitIdle(timeout); }
void Simulator::ClearJournal() {
  impl_->service.journal.Clear();
  const std::lock_guard<std::mutex> lock(impl_->plainMutex);
  impl_->plainReceived.clear();
}

void Simulator::Reset() {
  impl_->service.Reset();
  ClearJournal();
}

}  // namespace kivosim
