// bench_renew N: asks the device's token service N times for an access token. With tokens that have expired when they
// arrive each of these is a renewal, and each token another one.
#include <varnkivo/account_pkce_service.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

int main(int argc, char** argv) {
  try {
    const varnkivo::AccountPkceService service;
    std::string last;
    for (int left = argc > 1 ? std::atoi(argv[1]) : 0; left > 0; --left) {
      const std::string token = service.GetAccessToken();
      if (token.empty() || token == last) return 1;
      last = token;
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_renew: %s\n", error.what());
    return 1;
  }
}
