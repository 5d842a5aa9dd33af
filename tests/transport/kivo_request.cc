// Sends a request the way the library's own operations do.
#include "kivo_request.h"

#include <gtest/gtest.h>

#include <cstring>

Answer KivoRequest::Send() const {
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
  Answer answer;
  answer.result = headers ? VARNKIVOHttpsRequestSendWithHeader(request.get(), &response, headers)
                          : VARNKIVOHttpsRequestSend(request.get(), &response);
  answer.code = VARNKIVOErrGet();
  answer.curlCode = response.curl_code;
  answer.status = response.http_status;
  answer.hasBody = response.body != nullptr;
  if (response.body) answer.body = response.body;
  for (int i = 0; i < 2; ++i) {  // the second time finds nothing to free
    VARNKIVOHttpsResponseFree(&response);
    EXPECT_EQ(nullptr, response.body);
    EXPECT_EQ(0, response.http_status);
  }
  VLIBCSzHashFree(hash);
  return answer;
}

std::string LoggedUrl() { return std::string(kHost) + "/device/api/test"; }

std::string CurlError(int code, const char* format) {
  char text[256];
  std::snprintf(text, sizeof text, format, code, curl_easy_strerror(static_cast<CURLcode>(code)));
  return text;
}
