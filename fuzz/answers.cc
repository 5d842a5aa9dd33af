// Of each handle only the write function and its data are remembered; everything else goes to libcurl, which checks it.
#include "answers.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <map>

// The header's checks of argument types are macros of the same names.
#undef curl_easy_setopt
#undef curl_easy_getinfo

// libcurl's signatures have an enumeration in front of the dots; its type is the one that is passed.
#pragma GCC diagnostic ignored "-Wvarargs"

namespace {

struct Sink {
  curl_write_callback write = nullptr;
  void* data = nullptr;
};

std::map<CURL*, Sink> gSinks;
std::string gBody;
long gStatus = 200;

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void AnswerWith(long status, const std::string& body) {
  gStatus = status;
  gBody = body;
}

extern "C" {

CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...) {
  static auto* const next = Next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
  const int kind = static_cast<int>(option) / 10000 * 10000;
  va_list arguments;
  va_start(arguments, option);
  if (kind == CURLOPTTYPE_LONG) {
    const long value = va_arg(arguments, long);
    va_end(arguments);
    return next(curl, option, value);
  }
  if (kind == CURLOPTTYPE_OFF_T) {
    const curl_off_t value = va_arg(arguments, curl_off_t);
    va_end(arguments);
    return next(curl, option, value);
  }
  void* const pointer = va_arg(arguments, void*);
  va_end(arguments);
  if (option == CURLOPT_WRITEFUNCTION) gSinks[curl].write = reinterpret_cast<curl_write_callback>(pointer);
  if (option == CURLOPT_WRITEDATA) gSinks[curl].data = pointer;
  return next(curl, option, pointer);
}

CURLcode curl_easy_perform(CURL* curl) {
  const Sink sink = gSinks[curl];
  for (std::size_t at = 0; sink.write && at < gBody.size();) {  // in pieces, as from a network
    const std::size_t size = std::min<std::size_t>(gBody.size() - at, 1000);
    if (sink.write(gBody.data() + at, 1, size, sink.data) != size) return CURLE_WRITE_ERROR;
    at += size;
  }
  return CURLE_OK;
}

CURLcode curl_easy_getinfo(CURL* curl, CURLINFO info, ...) {
  static auto* const next = Next<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo");
  va_list arguments;
  va_start(arguments, info);
  void* const out = va_arg(arguments, void*);
  va_end(arguments);
  if (info != CURLINFO_RESPONSE_CODE) return next(curl, info, out);
  *static_cast<long*>(out) = gStatus;
  return CURLE_OK;
}

void curl_easy_cleanup(CURL* curl) {
  static auto* const next = Next<void(CURL*)>("curl_easy_cleanup");
  gSinks.erase(curl);
  next(curl);
}

}  // extern "C"
