// bench_curl N AGENT URL FORM [URL FORM]...: makes the requests N times with libcurl alone, each with a handle of its
// own, as a program does that knows nothing of trust stores. With 0 it only starts and ends.
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "request.h"

namespace {

std::size_t Collect(char* data, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

bool Send(const char* url, const char* form, const char* agent) {
  CURL* curl = curl_easy_init();
  std::string body;
  curl_easy_setopt(curl, CURLOPT_URL, url);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, form);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, agent);
  curl_easy_setopt(curl, CURLOPT_CAINFO, "/etc/ssl/certs/ca-certificates.crt");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_slist* headers = nullptr;
  if (std::string(url) == bench::kTokenEndpoint)
    headers = curl_slist_append(headers, (std::string("X-Client-ID: ") + bench::kClientId).c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  curl_slist_free_all(headers);
  if (result == CURLE_OK && status == 200 && !body.empty()) return true;
  std::fprintf(stderr, "bench_curl: curl %d, status %ld\n", result, status);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5 || argc % 2 == 0) return 2;
  const int times = std::atoi(argv[1]);
  if (times > 0) curl_global_init(CURL_GLOBAL_DEFAULT);
  for (int left = times; left > 0; --left)
    for (int i = 3; i < argc; i += 2)
      if (!Send(argv[i], argv[i + 1], argv[2])) return 1;
  curl_global_cleanup();
  return 0;
}
