// bench_cpr N AGENT REFRESH_TOKEN [kept]: renews tokens N times with cpr alone, each with a session of its own, as a
// program does that knows nothing of trust stores, or all with one that keeps the parsed trust store and nothing else.
// Nothing is stored; each answer is looked at for the next refresh token only.
#include <cpr/cpr.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
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

/// The parsed trust store is kept only without CAPATH and TLS options. Connections and the like are not.
void KeepTrustStore(cpr::Session& session) {
  CURL* handle = session.GetCurlHolder()->handle;
  curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(handle, CURLOPT_SSL_OPTIONS, 0L);
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);
  curl_easy_setopt(handle, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
}

std::string Renew(cpr::Session& session, bool kept, const std::string& refreshToken, const std::string& agent) {
  session.SetUrl(cpr::Url{bench::kTokenEndpoint});
  session.SetUserAgent(cpr::UserAgent{agent});
  session.SetHeader(cpr::Header{{"X-Client-ID", bench::kClientId}});
  session.SetSslOptions(cpr::Ssl(cpr::ssl::CaInfo{"/etc/ssl/certs/ca-certificates.crt"}));
  session.SetPayload(
      cpr::Payload{{"grant_type", "refresh_token"}, {"refresh_token", refreshToken}, {"client_id", bench::kClientId}});
  if (kept) KeepTrustStore(session);
  const cpr::Response response = session.Post();
  if (response.status_code == 200) return Find(response.text, "refresh_token");
  std::fprintf(stderr, "bench_cpr: status %ld, %s\n", response.status_code, response.error.message.c_str());
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) return 2;
  const bool kept = argc == 5;
  std::string refreshToken = argv[3];
  std::optional<cpr::Session> session;
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    if (!session || !kept) session.emplace();
    const std::string next = Renew(*session, kept, refreshToken, argv[2]);
    if (next.empty() || next == refreshToken) return 1;
    refreshToken = next;
  }
  return 0;
}
