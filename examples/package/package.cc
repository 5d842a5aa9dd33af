// How a program of an installed package calls a service, with a token that the library gets and keeps valid. It runs as
// root or as the account service: docs/packages.md says what others see. The token goes into the request only.
#include <curl/curl.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <iostream>
#include <memory>
#include <string>
#include <typeinfo>

namespace {

std::size_t Ignore(char*, std::size_t size, std::size_t count, void*) { return size * count; }

/// The status of a GET of `url`; 0: there was no answer.
long Get(const std::string& url, const std::string& token) {
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> request(curl_easy_init(), curl_easy_cleanup);
  const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
      curl_slist_append(nullptr, ("Authorization: Bearer " + token).c_str()), curl_slist_free_all);
  if (!request || !headers) return 0;
  curl_easy_setopt(request.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(request.get(), CURLOPT_PROTOCOLS_STR, "https");  // the token is not for everybody on the way
  curl_easy_setopt(request.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(request.get(), CURLOPT_WRITEFUNCTION, Ignore);
  curl_easy_setopt(request.get(), CURLOPT_TIMEOUT, 30L);
  long status = 0;
  if (curl_easy_perform(request.get()) == CURLE_OK) curl_easy_getinfo(request.get(), CURLINFO_RESPONSE_CODE, &status);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: varnkivo-package NAME URL\n";
    return 2;
  }
  const std::string name = argv[1], url = argv[2];
  try {
    const varnkivo::PackagePkceClient client(name);
    long status = Get(url, client.GetAccessToken());
    if (status == 401) {  // withdrawn before its time: only the service could know
      client.ForceRenewToken();
      status = Get(url, client.GetAccessToken());
    }
    std::cout << name << " called " << url << ": " << status << '\n';
    return status / 100 == 2 ? 0 : 1;
  } catch (const varnkivo::KivoException& error) {
    std::cerr << "No token for " << name << ": code " << error.GetCode() << '\n';
  } catch (const std::bad_cast&) {
    std::cerr << "No token for " << name << ": the stored one has no usable lifetime\n";
  }
  return 1;
}
