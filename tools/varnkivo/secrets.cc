// Reads secrets. Touches the terminal's echo while prompting, nothing else. Plain read(2) into the secret's own memory:
// a stream would keep a copy in its buffer.
#include "secrets.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "descriptor.h"
#include "failure.h"
#include "interrupt.h"
#include "text.h"

namespace kivotool {
namespace {

/// Opens with the rights of the user who typed the name, also where the tool runs with more.
int OpenAsCaller(const std::string& path) {
  const uid_t effective = geteuid();
  if (effective == getuid()) return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (seteuid(getuid()) != 0) return -1;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  const int error = errno;
  if (seteuid(effective) != 0) std::abort();
  errno = error;
  return descriptor;
}

Failure Unsafe(const std::string& path, const std::string& why) {
  return {kPermission,
          std::nullopt,
          "The file " + path + " " + why,
          Retry::kNo,
          "Nothing; the file was not read and nothing was sent.",
          "chmod 600 " + ShellWord(path)};
}

/// `forbidden` are the permission bits that must not be there: credentials of a service manager may carry an access
/// control list, whose mask shows as group bits.
void ReadSecretFile(const std::string& path, mode_t forbidden, Secret& secret, const std::string& help) {
  const Descriptor file(OpenAsCaller(path));
  struct stat status {};
  if (file.Get() < 0 || fstat(file.Get(), &status) != 0) {
    throw UsageFailure("Cannot read " + path + ": " + std::strerror(errno) + ".", help);
  }
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) throw UsageFailure(path + " is not a file.", help);
  if ((status.st_mode & forbidden) != 0) throw Unsafe(path, "can be read or changed by others than its owner.");
  if (status.st_uid != 0 && status.st_uid != getuid()) throw Unsafe(path, "belongs to another user.");
  ReadSecretFrom(file.Get(), path, secret, help);
}

/// Whatever comes after a prompt begins on a line of its own, an error too.
struct LineEnd {
  ~LineEnd() { std::fputc('\n', stderr); }
};

/// One line from the terminal. In its line mode read() gives at most one line. The echo goes before the prompt comes:
/// whoever types at once is not seen either.
void Prompt(const char* what, const char* again, Secret& secret, const std::string& help) {
  const EchoOff quiet(STDIN_FILENO);
  std::fprintf(stderr, "%c%s%s: ", what[0] & ~0x20, what + 1, again);
  std::fflush(stderr);
  const LineEnd notEchoed;
  ReadSecretFrom(STDIN_FILENO, "the terminal", secret, help);
}

}  // namespace

void Secret::Wipe() { explicit_bzero(bytes_.data(), bytes_.size()); }

void ReadSecretFrom(int descriptor, const std::string& where, Secret& secret, const std::string& help, bool lineOnly) {
  std::size_t length = 0;
  bool tooLong = false;
  for (const bool stopAtLine = lineOnly || isatty(descriptor) != 0; !tooLong;) {
    const std::size_t room = secret.bytes_.size() - length;
    const ssize_t got = read(descriptor, secret.bytes_.data() + length, lineOnly ? 1 : room);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw UsageFailure("Cannot read " + where + ": " + std::strerror(errno) + ".", help);
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
    tooLong = length == secret.bytes_.size();
    if (stopAtLine && secret.bytes_[length - 1] == '\n') break;
  }
  const char* bytes = secret.bytes_.data();
  if (length > 0 && bytes[length - 1] == '\n') --length;
  if (length > 0 && bytes[length - 1] == '\r') --length;
  const bool hasNul = std::memchr(bytes, '\0', length), hasLines = std::memchr(bytes, '\n', length);
  if (tooLong || hasNul || hasLines || length == 0) {
    const char* why = tooLong       ? "more than 4095 bytes"
                      : length == 0 ? "nothing"
                      : hasNul      ? "it has a NUL byte"
                                    : "more than one line";
    secret.Wipe();
    throw UsageFailure("The secret read from " + where + " is unusable: " + why + ".", help);
  }
  explicit_bzero(secret.bytes_.data() + length, secret.bytes_.size() - length);
}

void PromptForSecret(const char* what, Secret& secret, const std::string& help, bool twice) {
  Prompt(what, "", secret, help);
  if (!twice) return;
  Secret again;
  Prompt(what, " again", again, help);
  if (std::strcmp(secret.c_str(), again.c_str()) != 0)
    throw UsageFailure(std::string("The two entries of the ") + what + " differ.", help);
}

void ReadSecret(const SecretSource& source, Secret& secret) {
  const bool terminal = isatty(STDIN_FILENO) != 0;
  if (source.fromStdin && !terminal) return ReadSecretFrom(STDIN_FILENO, "standard input", secret, source.help);
  if (!source.file.empty()) return ReadSecretFile(source.file, S_IRWXG | S_IRWXO, secret, source.help);
  const char* directory = secure_getenv("CREDENTIALS_DIRECTORY");
  if (!source.fromStdin && directory && *directory) {
    const std::string path = std::string(directory) + "/" + source.credentialName;
    if (access(path.c_str(), F_OK) == 0) return ReadSecretFile(path, S_IWGRP | S_IRWXO, secret, source.help);
  }
  if (terminal) return PromptForSecret(source.what, secret, source.help, source.twice);
  throw UsageFailure(std::string("No ") + source.what + " was given, and there is no terminal to ask for it.",
                     source.help);
}

}  // namespace kivotool
