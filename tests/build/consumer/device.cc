// What only works when headers, flags and library fit together: a jsoncpp object handed over, and an exception of the
// library's class thrown in it and caught here.
#include <json/json.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/pkce_client.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>

namespace {

int CodeOfBadName() {
  try {
    varnkivo::PkceClient("../elsewhere").GetAccessToken();
    return -1;
  } catch (const varnkivo::KivoException& error) {
    return error.GetCode();
  }
}

}  // namespace

int main() {
  Json::Value result;
  const int repaired = VARNKIVOHandleApiKeyError(result, "badauth");
  std::printf("%s %d %d %d\n", VARNKIVOVersionGet(), repaired, VARNKIVOErrGet(), CodeOfBadName());
  return 0;
}
