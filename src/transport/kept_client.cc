// libcurl's own set-up, which must not be left to the first of several threads that happens to need it.
#include "internal/kept_client.h"

#include <curl/curl.h>

#include <mutex>

namespace varnkivo {

void InitCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace varnkivo
