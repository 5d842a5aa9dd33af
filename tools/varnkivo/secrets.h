// How a password or an auth key comes in, and the memory it stays in. Never from the command line, which every user of
// the machine can read.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace kivotool {

/// A secret of at most 4095 bytes, wiped when it goes. Fixed memory, so that growing leaves no copies behind.
class Secret {
 public:
  static constexpr std::size_t kMaximum = 4095;

  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { Wipe(); }

  const char* c_str() const { return bytes_.data(); }
  void Wipe();

 private:
  friend void ReadSecretFrom(int, const std::string&, Secret&, const std::string&, bool);
  std::array<char, kMaximum + 1> bytes_{};
};

struct SecretSource {
  const char* what;            ///< "password" or "auth key"
  const char* credentialName;  ///< the file in $CREDENTIALS_DIRECTORY
  bool fromStdin = false;
  std::string file = {};                       ///< empty: none given
  std::string help = "varnkivo login --help";  ///< the command that a mistake leads to
  bool twice = false;                          ///< a prompt asks again and compares: for a new secret
};

/// Fills `secret` by the first of: stdin or the file, as the options say; the service manager's credential; a prompt
/// without echo. Throws a usage Failure when there is none, when it is empty, too long, or holds a NUL or a second
/// line, and a permission Failure when others than its owner can read the file.
void ReadSecret(const SecretSource& source, Secret& secret);

/// Reads the secret from an open descriptor; a newline at its end is not part of it. `where` and `help` are for the
/// failure. With `lineOnly` the first line alone: what follows it stays to be read.
void ReadSecretFrom(int descriptor, const std::string& where, Secret& secret, const std::string& help,
                    bool lineOnly = false);
/// Asks on the terminal without echo, as ReadSecret does; `twice` for a new secret.
void PromptForSecret(const char* what, Secret& secret, const std::string& help, bool twice);

}  // namespace kivotool
