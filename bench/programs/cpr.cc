// bench_cpr N AGENT REFRESH_TOKEN bare|stored|kept: renews tokens N times with cpr alone. Each time with a session of
// its own, as a program does that knows nothing of trust stores; "stored" also keeps each answer in a file, "kept"
// keeps one session for all, and in it the parsed trust store and nothing else.
#include <cpr/cpr.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "request.h"
#include "store_by_hand.h"

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

std::string Renew(cpr::Session& session, const std::string& mode, const std::string& refreshToken,
                  const std::string& agent) {
  session.SetUrl(cpr::Url{bench::kTokenEndpoint});
  session.SetUserAgent(cpr::UserAgent{agent});
  session.SetHeader(cpr::Header{{"X-Client-ID", bench::kClientId}});
  session.SetSslOptions(cpr::Ssl(cpr::ssl::CaInfo{"/etc/ssl/certs/ca-certificates.crt"}));
  session.SetPayload(
      cpr::Payload{{"grant_type", "refresh_token"}, {"refresh_token", refreshToken}, {"client_id", bench::kClientId}});
  if (mode == "kept") KeepTrustStore(session);
  const cpr::Response response = session.Post();
  if (response.status_code == 200 && (mode != "stored" || bench::StoreByHand(response.text)))
    return Find(response.text, "refresh_token");
  std::fprintf(stderr, "bench_cpr: status %ld, %s\n", response.status_code, response.error.message.c_str());
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  std::string refreshToken = argv[3];
  const std::string mode = argv[4];
  std::optional<cpr::Session> session;
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    if (!session || mode != "kept") session.emplace();
    const std::string next = Renew(*session, mode, refreshToken, argv[2]);
    if (next.empty() || next == refreshToken) return 1;
    refreshToken = next;
  }
  return 0;
}
