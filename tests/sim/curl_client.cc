// libcurl, one fresh handle per request.
#include "sim/curl_client.h"

#include <curl/curl.h>

#include <memory>

namespace {

struct Received {
  std::string bytes;
  std::size_t most;
};

std::size_t Append(char* data, std::size_t size, std::size_t count, void* target) {
  auto* received = static_cast<Received*>(target);
  received->bytes.append(data, size * count);
  return received->most && received->bytes.size() > received->most ? 0 : size * count;
}

Exchange Perform(CURL* curl, const std::string& url, const CurlOptions& options) {
  curl_slist* headers = nullptr;
  for (const std::string& header : options.headers) headers = curl_slist_append(headers, header.c_str());
  Received head{{}, 0}, body{{}, options.mostBytes};
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_CAINFO, options.caFile.c_str());
  curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, options.timeoutMs);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &head);
  if (!options.method.empty()) curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, options.method.c_str());
  Exchange exchange;
  exchange.curlCode = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &exchange.status);
  curl_easy_getinfo(curl, CURLINFO_TOTAL_TIME, &exchange.seconds);
  exchange.head = head.bytes;
  exchange.body = body.bytes;
  curl_slist_free_all(headers);
  return exchange;
}

using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

}  // namespace

Exchange Post(const std::string& url, const std::string& body, const CurlOptions& options) {
  const Handle curl(curl_easy_init(), curl_easy_cleanup);
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.data());
  return Perform(curl.get(), url, options);
}

Exchange Get(const std::string& url, const CurlOptions& options) {
  const Handle curl(curl_easy_init(), curl_easy_cleanup);
  return Perform(curl.get(), url, options);
}
