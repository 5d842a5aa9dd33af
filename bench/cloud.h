// The simulated cloud in a process of its own, so that its work is not counted, and the trust bundle of the sandbox.
#ifndef VARNKIVO_BENCH_CLOUD_H_
#define VARNKIVO_BENCH_CLOUD_H_

#include <sys/types.h>

#include <string>

namespace bench {

class Cloud {
 public:
  Cloud();  ///< serves, with its CA added to the bundle, when it returns; throws std::runtime_error
  Cloud(const Cloud&) = delete;
  Cloud& operator=(const Cloud&) = delete;
  ~Cloud();

  /// The machine's bundle and the cloud's CA.
  void TrustAll() const;
  /// A bundle of one certificate.
  void TrustOnlyOwnCa() const;
  int Certificates() const;  ///< in the bundle of TrustAll

  /// A new set of tokens of the benchmarks' account, `age` seconds old, as a token file holds it.
  std::string IssueTokens(int age) const;
  /// Of the access tokens given out from now on; below 0 they have expired when they arrive.
  void SetTokenLifetime(int seconds) const;
  void ClearJournal() const;
  int Connections() const;  ///< since ClearJournal

 private:
  void AwaitReady(int output);
  std::string Control(const std::string& call, const char* body, const char* method) const;

  pid_t pid_ = 0;
  std::string control_, fullBundle_, ownCa_;
};

}  // namespace bench

#endif  // VARNKIVO_BENCH_CLOUD_H_
