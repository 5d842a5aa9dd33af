// Sends a legacy request over HTTPS and hands back status and body. Touches the slot on failure; keeps no connection.
// Status 200 and 400 are answers; everything else, and whatever did not arrive whole, is a failure with code 4.
#include "body_chunk.h"
#include "internal/guard.h"
#include "internal/kept_client.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "internal/trust_store.h"
#include "internal/wiped.h"
#include "kivo_https_query.h"
#include "varn/platform.h"
#include "varnkivo.h"

#include <curl/curl.h>

#include <string.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace varnkivo {
namespace {

constexpr int kGet = 1;
constexpr std::size_t kUrlSize = 4096;
constexpr long kMostRedirects = 5;
constexpr long kLowSpeedBytes = 128, kLowSpeedSeconds = 60;
constexpr long kQuickSeconds = 15, kNormalSeconds = 120;
constexpr int kQuickAttempts = 2, kNormalAttempts = 3;
constexpr std::chrono::microseconds kPause = std::chrono::seconds(1);

static_assert(sizeof(_tag_libkivo_varn_request_) == 3 * sizeof(void*) + 2 * sizeof(int) + 2 * 4096 &&
                  offsetof(_tag_libkivo_varn_response_, body) == 2 * sizeof(long),
              "callers share these layouts");

struct Failed {
  int code;
};

struct SlistFree {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

struct CurlCloser {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

/// What is kept from one request to the next.
class CurlClient {
 public:
  /// Null when libcurl could not make one.
  CURL* Get() const { return handle_.get(); }
  bool Forget() noexcept {
    if (handle_) curl_easy_reset(handle_.get());
    return handle_ != nullptr;
  }

 private:
  std::unique_ptr<CURL, CurlCloser> handle_{curl_easy_init()};
};

/// A field of a request record, which may lack its NUL.
Wiped FieldText(const char (&field)[4096]) { return Wiped(field, strnlen(field, sizeof field)); }

/// One exchange, its steps in the order they run. A step that fails logs and throws Failed.
class Exchange {
 public:
  Exchange(const _tag_libkivo_varn_request_& request, _tag_libkivo_varn_response_& response, curl_slist* headers)
      : request_(request), response_(response), headers_(headers) {}
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() { explicit_bzero(url_, sizeof url_); }

  void Run() {
    if (!query_.Text()) throw Failed{KIVO_ERR_SYSTEM};
    if (!curl_->Get()) Fail(__LINE__, "failed to init pCurl");
    if (!AppendParameters(query_, curl_->Get(), FieldText(request_.account_id), FieldText(request_.account_password),
                          request_.params))
      throw Failed{KIVO_ERR_SEND};
    ComposeUrl();
    SetForm();
    SetUrl();
    SetUserAgent();
    SetHeaders();
    SetTls();
    SetTimeOuts();
    SetReceiver();
    KeepNothing();
    Perform();
    ReadStatus();
    TakeBody();
  }

 private:
  [[noreturn]] __attribute__((format(printf, 3, 4))) void Fail(int line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogLine(LOG_ERR, {kSenderSource, line}, format, arguments);
    va_end(arguments);
    throw Failed{KIVO_ERR_SEND};
  }

  template <class Value>
  CURLcode Set(CURLoption option, Value value) {
    return Noted(curl_easy_setopt(curl_->Get(), option, value));
  }

  CURLcode Noted(CURLcode result) {
    if (result != CURLE_OK) response_.curl_code = static_cast<int>(result);
    return result;
  }

  std::string LoggedUrl() const { return Redact(url_); }

  void ComposeUrl() {
    const int length = request_.method == kGet
                           ? std::snprintf(url_, sizeof url_, "%s/%s?%s", request_.host, request_.path, query_.Text())
                           : std::snprintf(url_, sizeof url_, "%s/%s", request_.host, request_.path);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof url_)  // a cut URL would lose parameters unnoticed
      Fail(__LINE__, "Failed to set url to %s, code=%d, err=%s", LoggedUrl().c_str(), CURLE_URL_MALFORMAT,
           curl_easy_strerror(CURLE_URL_MALFORMAT));
  }

  void SetForm() {
    if (request_.method == kGet || !*query_.Text()) return;
    CURLcode result = Set(CURLOPT_POST, 1L);
    if (result == CURLE_OK) result = Set(CURLOPT_POSTFIELDS, query_.Text());
    if (result != CURLE_OK)
      Fail(__LINE__, "%s, Failed to set POST parameters, code=%d, err=%s", LoggedUrl().c_str(), result,
           curl_easy_strerror(result));
  }

  void SetUrl() {
    CURLcode result = Set(CURLOPT_URL, url_);
    if (result == CURLE_OK) result = Set(CURLOPT_FOLLOWLOCATION, 1L);
    if (result == CURLE_OK) result = Set(CURLOPT_MAXREDIRS, kMostRedirects);
    if (result == CURLE_OK) result = Set(CURLOPT_PROTOCOLS_STR, "https");
    if (result == CURLE_OK) result = Set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    if (result != CURLE_OK)
      Fail(__LINE__, "Failed to set url to %s, code=%d, err=%s", LoggedUrl().c_str(), result,
           curl_easy_strerror(result));
  }

  void SetUserAgent() {
    char agent[256] = {};
    VARNKIVOUserAgentNameGet(agent, sizeof agent);
    const CURLcode result = Set(CURLOPT_USERAGENT, agent);
    if (result != CURLE_OK)
      Fail(__LINE__, "failed to set agent=%s, return value=%d, err=%s", agent, result, curl_easy_strerror(result));
  }

  /// No Host header on purpose: the list gets the text while it is still empty, and an empty entry adds nothing.
  void SetHeaders() {
    char header[128] = {};
    curl_slist* list = curl_slist_append(headers_, header);
    if (!headers_) ownHeaders_.reset(list);
    std::snprintf(header, sizeof header, "Host: %s", request_.host);
    const CURLcode result = list ? Set(CURLOPT_HTTPHEADER, list) : CURLE_OUT_OF_MEMORY;
    if (result != CURLE_OK)
      Fail(__LINE__, "failed to set req=%s, header=%s, return value=%d, err=%s", LoggedUrl().c_str(), header, result,
           curl_easy_strerror(result));
  }

  void SetTls() {
    CURLcode result = Set(CURLOPT_SSL_VERIFYPEER, 1L);
    if (result == CURLE_OK) result = Set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (result == CURLE_OK) result = Set(CURLOPT_CAINFO, kTrustStore);
    if (result == CURLE_OK) result = Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1));
    if (result != CURLE_OK) Fail(__LINE__, "Failed to set curl opt error:(%d)%s", result, curl_easy_strerror(result));
  }

  void SetTimeOuts() {
    CURLcode result = Set(CURLOPT_LOW_SPEED_LIMIT, kLowSpeedBytes);
    if (result != CURLE_OK)
      LogError(kSenderSource, "Failed to set time-out, return value=%d, err=%s", result, curl_easy_strerror(result));
    result = Set(CURLOPT_LOW_SPEED_TIME, kLowSpeedSeconds);
    if (result != CURLE_OK)
      LogError(kSenderSource, "Failed to set time-out, return value=%d, err=%s", result, curl_easy_strerror(result));
    const long seconds = request_.quick ? kQuickSeconds : kNormalSeconds;
    result = Set(CURLOPT_CONNECTTIMEOUT, seconds);
    if (result != CURLE_OK)
      LogError(kSenderSource, "failed to set time-out, return value=%d, err=%s", result, curl_easy_strerror(result));
    result = Set(CURLOPT_TIMEOUT, seconds);
    if (result != CURLE_OK)
      Fail(__LINE__, "failed to set time-out, return value=%d, err=%s", result, curl_easy_strerror(result));
  }

  void SetReceiver() {
    CURLcode result = Set(CURLOPT_WRITEFUNCTION, &BodyChunk::Write);
    if (result != CURLE_OK)
      Fail(__LINE__, "failed to write function WriteMemoryCallback, return value=%d, err=%s", result,
           curl_easy_strerror(result));
    result = Set(CURLOPT_WRITEDATA, static_cast<void*>(&chunk_));
    if (result != CURLE_OK)
      Fail(__LINE__, "failed to write data, return value=%d, err=%s", result, curl_easy_strerror(result));
    if (Set(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_WHATEVER)) != CURLE_OK) throw Failed{KIVO_ERR_SEND};
  }

  /// The handle lives on for the trust store it has parsed, and for nothing else. CAPATH must be unset: with one set,
  /// libcurl does not keep the parsed store at all.
  void KeepNothing() {
    const bool set = Set(CURLOPT_CAPATH, static_cast<char*>(nullptr)) == CURLE_OK &&
                     Set(CURLOPT_FORBID_REUSE, 1L) == CURLE_OK && Set(CURLOPT_SSL_SESSIONID_CACHE, 0L) == CURLE_OK &&
                     Set(CURLOPT_DNS_CACHE_TIMEOUT, 0L) == CURLE_OK;
    if (!set) throw Failed{KIVO_ERR_SEND};
  }

  void Perform() {
    const int attempts = request_.quick ? kQuickAttempts : kNormalAttempts;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
      chunk_.Drop();  // what an earlier attempt received is not part of this answer
      const CURLcode result = curl_easy_perform(curl_->Get());
      response_.curl_code = static_cast<int>(result);
      complete_ = result == CURLE_OK;
      if (complete_) return;
      if (result != CURLE_COULDNT_RESOLVE_PROXY && result != CURLE_COULDNT_RESOLVE_HOST &&
          result != CURLE_OPERATION_TIMEDOUT)
        Fail(__LINE__, "%s, Failed to curl perform, code=%d, err=%s", LoggedUrl().c_str(), result,
             curl_easy_strerror(result));
      if (attempt == attempts) return;
      if (attempt == attempts - 1) Set(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
      Pause();
    }
  }

  /// A signal must not shorten it.
  static void Pause() {
    const auto end = std::chrono::steady_clock::now() + kPause;
    for (auto now = end - kPause; now < end; now = std::chrono::steady_clock::now())
      usleep(static_cast<useconds_t>(std::chrono::ceil<std::chrono::microseconds>(end - now).count()));
  }

  void ReadStatus() {
    long status = 0;
    const CURLcode result = Noted(curl_easy_getinfo(curl_->Get(), CURLINFO_RESPONSE_CODE, &status));
    if (result != CURLE_OK)
      Fail(__LINE__, "%s, Failed to curl_easy_getinfo, code=%d, err=%s", LoggedUrl().c_str(), result,
           curl_easy_strerror(result));
    response_.http_status = status;
  }

  void TakeBody() {
    if (!complete_ || (response_.http_status != 200 && response_.http_status != 400))
      Fail(__LINE__, "%s, Failed to request packages, httpResponseCode=%ld, data=%s", LoggedUrl().c_str(),
           response_.http_status, Redact(chunk_.Text() ? chunk_.Text() : "").c_str());
    const bool isText = chunk_.Text() && std::strlen(chunk_.Text()) == chunk_.Size();  // a NUL would hide the rest
    char* body = isText ? strdup(chunk_.Text()) : nullptr;
    if (!body) Fail(__LINE__, "%s, Failed to get response", LoggedUrl().c_str());
    response_.body = VLIBCStrTrimSpace(body);
  }

  const _tag_libkivo_varn_request_& request_;
  _tag_libkivo_varn_response_& response_;
  curl_slist* headers_;
  std::unique_ptr<curl_slist, SlistFree> ownHeaders_;
  BodyChunk chunk_;
  bool complete_ = false;  // whether the last attempt received all of an answer
  QueryText query_;
  char url_[kUrlSize] = {};
  Kept<CurlClient> curl_;  // last: given back first, while what it points to is still there
};

}  // namespace
}  // namespace varnkivo

int VARNKIVOHttpsRequestSendWithHeader(_tag_libkivo_varn_request_* request, _tag_libkivo_varn_response_* response,
                                       curl_slist* headers) {
  using namespace varnkivo;
  return Guarded(kSenderSource, [&] {
    if (!request || !response || !request->host || !request->path) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    *response = {};
    try {
      Exchange(*request, *response, headers).Run();
      return 0;
    } catch (const Failed& failed) {
      VARNKIVOErrSet(failed.code);
      return -1;
    }
  });
}

int VARNKIVOHttpsRequestSend(_tag_libkivo_varn_request_* request, _tag_libkivo_varn_response_* response) {
  return VARNKIVOHttpsRequestSendWithHeader(request, response, nullptr);
}

void VARNKIVOHttpsResponseFree(_tag_libkivo_varn_response_* response) {
  if (!response) return;
  std::free(response->body);
  response->body = nullptr;
  response->http_status = 0;
}
