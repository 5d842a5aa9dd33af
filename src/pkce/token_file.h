// The file in which a client's token set lies, and the room for the next one.
#ifndef VARNKIVO_PKCE_TOKEN_FILE_H_
#define VARNKIVO_PKCE_TOKEN_FILE_H_

#include "internal/log.h"
#include "kivo_exception.h"
#include "token_set.h"

#include <optional>
#include <string>

namespace varnkivo {

/// Whether a client or package may have this name: 1 to 128 of A-Z a-z 0-9 . _ -, not starting with a dot. Names become
/// parts of paths.
bool IsClientName(const std::string& name);

/// What is thrown where a client has no token file: code 22.
KivoException NoTokenFile();

/// CLIENT_token.json in the private directory, mode 0600, owner 934:934, replaced as a whole.
class TokenFile {
 public:
  /// Throws KivoException 1 for a name that IsClientName refuses.
  explicit TokenFile(const std::string& client);

  const std::string& GetTokenFilePath() const { return path_; }
  /// Whether it can be opened for reading.
  bool Exists() const;
  /// Whether nothing has its name: another process has signed the device out.
  bool IsGone() const;
  /// Nothing where it cannot be opened. Throws KivoException 2 when it holds no JSON object.
  std::optional<TokenSet> Find() const;
  /// As Find, but throws KivoException 22 when absent.
  TokenSet Read() const;

 private:
  std::string path_;
};

/// Room for a token set, taken before a refresh token or a code is spent for it: what could not be kept must not be
/// asked for.
class PendingTokenFile {
 public:
  /// Creates "CLIENT,RANDOM_token.json" beside the token file and allocates 64 KiB for it. What a crash left of earlier
  /// ones goes. Throws KivoException 2 where that fails, 6 where the ids cannot be raised.
  PendingTokenFile(const std::string& client, Site site);
  PendingTokenFile(const PendingTokenFile&) = delete;
  PendingTokenFile& operator=(const PendingTokenFile&) = delete;
  ~PendingTokenFile();

  /// Puts `tokens` into the place of the token file. Throws KivoException as the constructor.
  void Save(const TokenSet& tokens, Site site);

 private:
  [[noreturn]] void Fail() const;
  bool Write(const std::string& text) const;
  void MakePrivate(Site site) const;

  std::string client_;
  std::string target_;
  std::string path_;  // empty once it has become the token file
  int file_ = -1;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_TOKEN_FILE_H_
