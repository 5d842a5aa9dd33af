// Sends the requests of the classes through cpr. Keeps nothing but an idle session with the trust store it has parsed.
// A session carries content, headers and parameters into its next request unless they are taken out: Forget does.
#include "web_request.h"

#include "internal/kept_client.h"
#include "internal/redact.h"
#include "internal/trust_store.h"
#include "kivo_exception.h"
#include "lum_service.h"

#include <cpr/cpr.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string_view>

namespace varnkivo {
namespace {

constexpr std::int32_t kTimeOut = 30000;  // milliseconds
constexpr long kMostRedirects = 5;
constexpr std::size_t kMostBytes = 16u << 20;

class WebSession {
 public:
  cpr::Session& Get() { return session_; }
  /// After a request whose end was reached; a session that was left in the middle of one is of no more use.
  void Finished() { finished_ = true; }
  bool Forget() noexcept {
    const bool good = finished_;
    finished_ = false;
    try {
      session_.RemoveContent();
      session_.SetHeader({});
      session_.SetParameters({});
      session_.SetUrl({});
      cpr::CurlHolder& holder = *session_.GetCurlHolder();
      curl_easy_setopt(holder.handle, CURLOPT_HTTPHEADER, nullptr);
      curl_easy_setopt(holder.handle, CURLOPT_URL, nullptr);
      curl_easy_setopt(holder.handle, CURLOPT_COOKIELIST, "ALL");
      curl_slist_free_all(holder.chunk);  // the session would keep the headers until its next request
      holder.chunk = nullptr;
      return good && holder.handle;
    } catch (...) {
      return false;
    }
  }

 private:
  cpr::Session session_;
  bool finished_ = false;
};

/// Collects a body. libcurl is no place for an exception to pass through.
struct Collector {
  std::string& body;
  bool outOfMemory = false;

  bool Take(std::string_view block) noexcept {
    if (block.size() > kMostBytes - body.size()) return false;
    try {
      body.append(block);
      return true;
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
      return false;
    }
  }
};

cpr::Header ToHeader(const Pairs& headers) { return cpr::Header(headers.begin(), headers.end()); }

cpr::Parameters ToParameters(const Pairs& query) {
  cpr::Parameters parameters{};
  for (const auto& [name, value] : query) parameters.Add(cpr::Parameter(name, value));
  return parameters;
}

/// CAPATH must be unset and no TLS option given: libcurl keeps the parsed trust store only then. NOSIGNAL must be off:
/// libcurl leaves SIGPIPE to the caller otherwise.
void SetHandleOptions(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https");
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
  curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(handle, CURLOPT_SSL_OPTIONS, 0L);
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);
  curl_easy_setopt(handle, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 0L);
}

template <class Send>
WebAnswer Exchange(const std::string& url, const Pairs& headers, Send send) {
  const std::string agent = LumService().GetUserAgent();
  WebAnswer answer;
  const Kept<WebSession> kept;
  cpr::Session& session = kept->Get();
  session.SetUrl(cpr::Url{url});
  session.SetTimeout(cpr::Timeout{kTimeOut});
  session.SetUserAgent(cpr::UserAgent{agent});
  session.SetHeader(ToHeader(headers));
  session.SetRedirect(cpr::Redirect{kMostRedirects});
  session.SetVerifySsl(cpr::VerifySsl{true});
  session.SetSslOptions(cpr::Ssl(cpr::ssl::CaInfo{kTrustStore}));
  Collector collector{answer.body};
  session.SetWriteCallback(
      cpr::WriteCallback{[&](const std::string_view& block, std::intptr_t) { return collector.Take(block); }});
  // Nobody looks at the headers, and what cpr does with them by itself may throw.
  session.SetHeaderCallback(cpr::HeaderCallback{[](const std::string_view&, std::intptr_t) { return true; }});
  SetHandleOptions(session.GetCurlHolder()->handle);
  const cpr::Response response = send(session);
  kept->Finished();
  if (collector.outOfMemory) throw std::bad_alloc();
  answer.arrived = response.error.code == cpr::ErrorCode::OK;
  answer.code = static_cast<int>(response.error.code);
  answer.message = response.error.message;
  answer.status = static_cast<int>(response.status_code);
  return answer;
}

}  // namespace

std::string WebAnswer::Shown() const { return Redact(body); }

WebAnswer WebPost(const std::string& url, const Pairs& headers, const Pairs& form) {
  return Exchange(url, headers, [&](cpr::Session& session) {
    cpr::Payload payload{};
    for (const auto& [name, value] : form) payload.Add(cpr::Pair(name, value));
    if (!form.empty()) {
      session.SetPayload(std::move(payload));
    } else {  // what the session leaves of an earlier form is a wrong length
      curl_easy_setopt(session.GetCurlHolder()->handle, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{0});
      curl_easy_setopt(session.GetCurlHolder()->handle, CURLOPT_COPYPOSTFIELDS, "");
    }
    return session.Post();
  });
}

WebAnswer WebGet(const std::string& url, const Pairs& headers, const Pairs& query) {
  return Exchange(url, headers, [&](cpr::Session& session) {
    session.SetParameters(ToParameters(query));
    return session.Get();
  });
}

std::string EncodeQuery(const Pairs& pairs) { return ToParameters(pairs).GetContent(cpr::CurlHolder()); }

const std::string& RequireHeaderValue(const std::string& value, int code) {
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  if (std::any_of(value.begin(), value.end(), isControl)) throw KivoException(static_cast<KIVO_ERRCODE>(code));
  return value;
}

}  // namespace varnkivo
