// A request of the sender as tests write it, sent the way the library's own operations do, and its answer.
#pragma once

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

constexpr char kHost[] = "https://account.kivo.example";

struct Answer {
  int result = 0, code = 0;  // of the call, and the slot after it
  int curlCode = 0;
  long status = 0;
  std::string body;
  bool hasBody = false;
};

struct KivoRequest {
  std::vector<std::pair<std::string, std::string>> params = {};
  bool get = false, quick = true;
  std::string host = kHost, path = "device/api/test", accountId = {}, password = {};
  bool nullParams = false;
  curl_slist* headers = nullptr;

  /// Sends with a slot of 99 and a response full of rubbish, as a caller's may be.
  Answer Send() const {
    VLIBSzHash* const hash = nullParams ? nullptr : VLIBCSzHashAlloc(16);
    for (const auto& [name, value] : params) VLIBCSzHashSetValue(hash, name.c_str(), value.c_str());
    auto request = std::make_unique<_tag_libkivo_varn_request_>();
    request->host = host.c_str();
    request->path = path.c_str();
    request->params = hash;
    request->method = get ? 1 : 2;
    request->quick = quick;
    std::memcpy(request->account_id, accountId.data(), accountId.size());
    std::memcpy(request->account_password, password.data(), password.size());
    _tag_libkivo_varn_response_ response;
    std::memset(&response, 0x5a, sizeof response);
    VARNKIVOErrSet(99);
    const int result = headers ? VARNKIVOHttpsRequestSendWithHeader(request.get(), &response, headers)
                               : VARNKIVOHttpsRequestSend(request.get(), &response);
    const Answer answer = {result,
                           VARNKIVOErrGet(),
                           response.curl_code,
                           response.http_status,
                           response.body ? response.body : "",
                           response.body != nullptr};
    for (int i = 0; i < 2; ++i) {  // the second time finds nothing to free
      VARNKIVOHttpsResponseFree(&response);
      EXPECT_TRUE(response.body == nullptr && response.http_status == 0);
    }
    VLIBCSzHashFree(hash);
    return answer;
  }
};

/// "https://account.kivo.example/device/api/test", as log lines begin.
inline std::string LoggedUrl() { return std::string(kHost) + "/device/api/test"; }

/// "code=N, err=WHAT LIBCURL SAYS", as log lines end.
inline std::string CurlError(int code, const char* format = "code=%d, err=%s") {
  char text[256];
  std::snprintf(text, sizeof text, format, code, curl_easy_strerror(static_cast<CURLcode>(code)));
  return text;
}
