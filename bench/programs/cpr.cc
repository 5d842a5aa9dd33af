// bench_cpr N AGENT REFRESH_TOKEN: renews tokens N times with cpr alone, each with a session of its own, as a program
// does that knows nothing of trust stores. Nothing is stored; each answer is looked at for the next refresh token only.
#include <cpr/cpr.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "request.h"

namespace {

/// The member's text; empty where there is none. Tokens have nothing escaped.
std::string Find(const std::string& answer, const std::string& member) {
  std::size_t at = answer.find("\"" + member + "\"");
  if (at != std::string::npos) at = answer.find('"', at + member.size() + 2);
  const std::size_t end = at == std::string::npos ? at : answer.find('"', at + 1);
  return end == std::string::npos ? "" : answer.substr(at + 1, end - at - 1);
}

std::string Renew(const std::string& refreshToken, const std::string& agent) {
  cpr::Session session;
  session.SetUrl(cpr::Url{bench::kTokenEndpoint});
  session.SetUserAgent(cpr::UserAgent{agent});
  session.SetHeader(cpr::Header{{"X-Client-ID", bench::kClientId}});
  session.SetSslOptions(cpr::Ssl(cpr::ssl::CaInfo{"/etc/ssl/certs/ca-certificates.crt"}));
  session.SetPayload(
      cpr::Payload{{"grant_type", "refresh_token"}, {"refresh_token", refreshToken}, {"client_id", bench::kClientId}});
  const cpr::Response response = session.Post();
  if (response.status_code == 200) return Find(response.text, "refresh_token");
  std::fprintf(stderr, "bench_cpr: status %ld, %s\n", response.status_code, response.error.message.c_str());
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::string refreshToken = argv[3];
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    const std::string next = Renew(refreshToken, argv[2]);
    if (next.empty() || next == refreshToken) return 1;
    refreshToken = next;
  }
  return 0;
}
