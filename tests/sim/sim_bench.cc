// libcurl, one fresh handle per request.
#include "sim/sim_bench.h"

#include <curl/curl.h>

#include <memory>

#include "sim/json_text.h"

namespace {

std::size_t Append(char* data, std::size_t size, std::size_t count, void* target) {
  static_cast<std::string*>(target)->append(data, size * count);
  return size * count;
}

}  // namespace

Exchange Send(const Ask& ask) {
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), curl_easy_cleanup);
  CURL* const curl = handle.get();
  Exchange exchange;
  curl_slist* headers = nullptr;
  for (const std::string& header : ask.headers) headers = curl_slist_append(headers, header.c_str());
  curl_easy_setopt(curl, CURLOPT_URL, ask.url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, ask.timeoutMs);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &exchange.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &exchange.head);
  if (ask.form != "-") curl_easy_setopt(curl, CURLOPT_POSTFIELDS, ask.form.c_str());
  if (ask.method) curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, ask.method);
  exchange.curlCode = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &exchange.status);
  curl_easy_getinfo(curl, CURLINFO_TOTAL_TIME, &exchange.seconds);
  curl_slist_free_all(headers);
  return exchange;
}

std::string Member(const Exchange& exchange, const std::string& name) {
  if (exchange.body.empty() || exchange.body[0] != '{') return "";
  return kivosim::ParseJson(exchange.body)[name].asString();
}

std::string Location(const Exchange& exchange) {
  const std::size_t at = exchange.head.find("Location: ");
  return at == std::string::npos ? "" : exchange.head.substr(at + 10, exchange.head.find('\r', at) - at - 10);
}

std::string NewCode(const std::string& url, const std::string& form) {
  const std::string location = Location(Post(url, form));
  const std::size_t start = location.find("code=") + 5;
  return location.substr(start, location.find('&', start) - start);
}
