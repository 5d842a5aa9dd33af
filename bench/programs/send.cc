// bench_send N: makes the request N times with the library's sender. With 0 it only starts and ends.
#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "request.h"

namespace {

bool Send(VLIBSzHash* parameters) {
  const auto request = std::make_unique<_tag_libkivo_varn_request_>();
  request->host = bench::kHost;
  request->path = bench::kPath;
  request->params = parameters;
  request->quick = 1;
  _tag_libkivo_varn_response_ response = {};
  const bool sent = VARNKIVOHttpsRequestSend(request.get(), &response) == 0 && response.http_status == 200;
  if (!sent) std::fprintf(stderr, "bench_send: curl %d, status %ld\n", response.curl_code, response.http_status);
  VARNKIVOHttpsResponseFree(&response);
  return sent;
}

}  // namespace

int main(int argc, char** argv) {
  VLIBSzHash* parameters = VLIBCSzHashAlloc(16);
  for (const auto& [name, value] : bench::kParameters) VLIBCSzHashSetValue(parameters, name, value);
  for (int left = argc > 1 ? std::atoi(argv[1]) : 0; left > 0; --left)
    if (!Send(parameters)) return 1;
  VLIBCSzHashFree(parameters);
  return 0;
}
