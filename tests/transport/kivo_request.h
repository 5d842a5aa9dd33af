// A request of the sender as tests write it, and its answer, which frees itself.
#pragma once

#include <curl/curl.h>
#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

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
  bool get = false;
  bool quick = true;
  std::string host = kHost;
  std::string path = "device/api/test";
  std::string accountId = {}, password = {};
  bool nullParams = false;
  curl_slist* headers = nullptr;

  /// Sends with a slot of 99 and a response full of rubbish, as a caller's may be.
  Answer Send() const;
};

/// "https://account.kivo.example/device/api/test", as log lines begin.
std::string LoggedUrl();
/// "code=N, err=WHAT LIBCURL SAYS", as log lines end.
std::string CurlError(int code, const char* format = "code=%d, err=%s");
