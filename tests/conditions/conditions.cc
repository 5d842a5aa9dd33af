// The calls of the conditions.
#include "conditions.h"

#include <json/value.h>
#include <unistd.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>

namespace conditions {
namespace {

std::string Outcome(const char* name, int result) {
  return std::string(name) + " " + std::to_string(result) + " " + std::to_string(VARNKIVOErrGet());
}

long ResidentKibibytes() {
  long pages[2] = {};
  std::sscanf(ReadFile("/proc/self/statm").c_str(), "%ld %ld", &pages[0], &pages[1]);
  return pages[1] * sysconf(_SC_PAGESIZE) / 1024;
}

}  // namespace

kivosim::Simulator& FreshCloud() {
  auto& simulator = Cloud::Sim();
  simulator.Reset();
  simulator.AddAccount({kEmail, kPassword, kUserId});
  unlink(kRecord);
  return simulator;
}

std::string Login() {
  Json::Value response;
  return Outcome("login", VARNKIVOAccountLogin(kEmail, kPassword, response, false));
}

std::string Query() {
  try {
    varnkivo::User().SetLastQueryTime(0);
  } catch (...) {
  }
  Json::Value out;
  VARNKIVOErrSet(0);
  return Outcome("query", VARNKIVOAccountQueryInfo(out, true, true));
}

std::string Set() {
  static _tag_kivo_INFO_ info = {};
  if (VARNKIVOAccountGet(&info) != 0) return Outcome("get", -1);
  info.lastQueryTime = 1;
  return Outcome("set", VARNKIVOAccountSet(&info));
}

std::string Remove() { return "remove " + std::to_string(VARNKIVOAccountRemove()); }

std::string Soak(int times, const std::function<bool()>& succeeds) {
  int failed = 0;
  const auto repeat = [&](int count) {
    for (int i = 0; i < count; ++i) failed += !succeeds();
  };
  repeat(times / 10);
  const std::size_t descriptors = OpenDescriptors();
  const long before = ResidentKibibytes();
  repeat(times - times / 10);
  const long grown = kOwnMemory ? ResidentKibibytes() - before : 0;
  return std::to_string(failed) + " failed, descriptors +" + std::to_string(OpenDescriptors() - descriptors) +
         ", memory " + (grown <= 256 ? "flat" : "+" + std::to_string(grown) + " KiB");
}

}  // namespace conditions
