// Short ways to the usual faults, and the names of the certificate kinds.
#include "sim/fault.h"

#include <utility>

namespace kivosim {

Fault Fault::Answer(int status, std::string body) {
  Fault fault;
  fault.status = status;
  fault.body = std::move(body);
  return fault;
}

Fault Fault::Redirect(std::string location, int status) {
  Fault fault = Answer(status, "");
  fault.headers.emplace_back("Location", std::move(location));
  return fault;
}

Fault Fault::Delay(std::chrono::milliseconds delay) {
  Fault fault;
  fault.delay = delay;
  return fault;
}

Fault Fault::Drip(std::size_t bytes, std::chrono::milliseconds interval) {
  Fault fault;
  fault.dripBytes = bytes;
  fault.dripInterval = interval;
  return fault;
}

Fault Fault::CutBody(std::size_t bytes, Framing framing, End end) {
  Fault fault;
  fault.cutBodyAfter = bytes;
  fault.framing = framing;
  fault.end = end;
  return fault;
}

Fault Fault::NeverAnswer() {
  Fault fault;
  fault.cutAfter = 0;
  fault.end = End::kSilence;
  return fault;
}

Fault Fault::Unavailable() {
  Fault fault = Answer(503, "{\"error\":\"temporarily_unavailable\"}");
  fault.skipHandler = true;
  return fault;
}

Fault Fault::ResetAfterRequest() {
  Fault fault;
  fault.cutAfter = 0;
  fault.end = End::kReset;
  return fault;
}

Fault Fault::ThenCall(std::function<void()> onSent) {
  Fault fault;
  fault.onSent = std::move(onSent);
  return fault;
}

Fault Fault::AllButLastByteThen(std::function<void()> onSent) {
  Fault fault = ThenCall(std::move(onSent));
  fault.cutLast = 1;
  fault.end = End::kSilence;
  return fault;
}

Fault Fault::Endless(Framing framing) {
  Fault fault;
  fault.endless = true;
  fault.framing = framing;
  return fault;
}

const std::vector<std::string>& CertificateKindNames() {
  static const std::vector<std::string> names = {
      "good",       "with-intermediate",    "expired",     "not-yet-valid",    "self-signed",
      "unknown-ca", "wrong-host",           "client-only", "issued-by-non-ca", "sha1",
      "rsa1024",    "missing-intermediate", "tls10-only",  "tls11-only"};
  return names;
}

}  // namespace kivosim
