// Things that go wrong on purpose: with one answer (`Fault`) or with a whole connection (`ConnectionFault`). Both are
// queued, used up in order, and touch nothing else. A fault replaces the answer, not the work: unless `skipHandler` is
// set the handler has done what was asked when the fault strikes, like a server whose answer is lost on the way.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/message.h"

namespace kivosim {

/// How the length of the body is told.
enum class Framing { kLength, kChunked, kUntilClose };

/// What happens once everything that is to be sent has been sent.
enum class End {
  kNormal,       ///< wait for the next request, or close properly where the framing or the client asks for it
  kCloseNotify,  ///< TLS closure alert, then FIN
  kFin,          ///< FIN without the alert
  kReset,        ///< RST
  kSilence,      ///< send nothing more, keep the connection open until the client goes
};

/// Keeps `times` answers of a path from being what they should be. Members left alone change nothing.
struct Fault {
  int times = 1;             ///< how many requests it strikes; -1: all from now on
  bool skipHandler = false;  ///< the request is journalled, but not checked and not carried out

  std::optional<int> status;
  std::optional<std::string> body;
  std::optional<std::string> contentType;
  Pairs headers;                   ///< added to the answer, such as {"Location", "https://..."}
  std::optional<std::string> raw;  ///< the whole answer, head included, byte for byte; the members above do not count

  Framing framing = Framing::kLength;
  std::optional<std::uint64_t> contentLength;  ///< announced instead of the true one
  bool endless = false;                        ///< after the body 'x' goes on until the client has enough

  std::chrono::milliseconds delay{0};  ///< before the first byte
  std::vector<std::size_t> splits;     ///< offsets in the answer (head included) before which the sender pauses
  std::chrono::milliseconds splitPause{20};
  std::size_t dripBytes = 0;  ///< not 0: this many bytes at a time (applies when `splits` is empty) ...
  std::chrono::milliseconds dripInterval{1000};  ///< ... this far apart

  std::optional<std::size_t> cutAfter;      ///< send only so many bytes of the answer, head included
  std::optional<std::size_t> cutBodyAfter;  ///< send the head and only so many bytes of what follows it
  std::optional<std::size_t> cutLast;       ///< send all but so many bytes at the end
  End end = End::kNormal;                   ///< after a cut kNormal means kFin

  std::function<void()> onSent;  ///< called on the simulator's thread when the last byte has been handed to the system

  static Fault Answer(int status, std::string body);
  static Fault Redirect(std::string location, int status = 302);
  static Fault Delay(std::chrono::milliseconds delay);
  static Fault Drip(std::size_t bytes, std::chrono::milliseconds interval);
  static Fault CutBody(std::size_t bytes, Framing framing = Framing::kLength, End end = End::kFin);
  static Fault NeverAnswer();
  static Fault Unavailable();  ///< 503, nothing carried out
  static Fault ResetAfterRequest();
  /// The whole answer as it should be, then the callback. The client may have read the answer by then.
  static Fault ThenCall(std::function<void()> onSent);
  /// All of the answer but its last byte, then the callback; the connection stays open. The client cannot have made
  /// use of the answer when the callback runs, so that is the moment to end it after its request was carried out.
  static Fault AllButLastByteThen(std::function<void()> onSent);
  static Fault Endless(Framing framing = Framing::kChunked);
};

/// The certificate and protocol a connection meets. All but kGood and kWithIntermediate must be refused by a client.
enum class CertificateKind {
  kGood,
  kWithIntermediate,  ///< good too: issued by an intermediate CA that is sent along
  kExpired,
  kNotYetValid,
  kSelfSigned,
  kUnknownCa,            ///< good but for its issuer, another CA of the same name
  kWrongHost,            ///< for other.example only
  kClientOnly,           ///< extended key usage: TLS client
  kIssuedByNonCa,        ///< issued by the ordinary host certificate, which is sent along
  kSha1,                 ///< signed with SHA-1
  kRsa1024,              ///< a 1024-bit RSA key
  kMissingIntermediate,  ///< issued by an intermediate CA that is not sent
  kTls10Only,
  kTls11Only,
};

/// "good", "expired", "unknown-ca", ...: the names of the control interface, in the order of the enumeration.
const std::vector<std::string>& CertificateKindNames();

/// Spoils `times` connections, each from its first byte.
struct ConnectionFault {
  enum class Kind {
    kCertificate,        ///< another certificate or protocol, as `certificate` says
    kResetInHandshake,   ///< RST once the client's first bytes are there
    kSilentInHandshake,  ///< never a byte in answer
    kNotTls,             ///< an HTTP answer in clear instead of a handshake
  };
  Kind kind = Kind::kCertificate;
  CertificateKind certificate = CertificateKind::kGood;
  int times = 1;  ///< -1: all from now on
};

}  // namespace kivosim
